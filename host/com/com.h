#pragma once
// The COM support types the module uses, for this platform: result codes, GUID, BSTR,
// VARIANT/_variant_t, _com_error and IUnknown.
#include "host/com/bstr.h"
#include "host/com/error.h"
#include "host/com/guid.h"
#include "host/com/types.h"
#include "host/com/unknown.h"
#include "host/com/variant.h"
