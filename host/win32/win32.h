#pragma once
// The Windows services the module uses, implemented for this platform.
#include "host/win32/console.h"
#include "host/win32/files.h"
#include "host/win32/text.h"
#include "host/win32/types.h"
