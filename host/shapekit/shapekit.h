#pragma once
// The geometry library's types the module uses.
#include "host/shapekit/point3d.h"
