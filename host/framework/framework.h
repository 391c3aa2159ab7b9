#pragma once
// The application framework services the module uses, for this platform.
#include "host/framework/cstring.h"
#include "host/framework/exceptions.h"
#include "host/framework/stdiofile.h"
#include "host/framework/wtoi.h"
