#pragma once
// The solver-data library: the writer of the mesher's size field.
#include "host/calclink/solver_writer.h"
