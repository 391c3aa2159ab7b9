#pragma once
// The Windows services the module uses, implemented for this platform.
#include "host/win32/console.h"
#include "host/win32/types.h"
