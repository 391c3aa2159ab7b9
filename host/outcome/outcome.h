#pragma once
// The result store library: a project's mesh, slabs and load cases, and its stored results.
#include "host/outcome/enums.h"
#include "host/outcome/gar.h"
#include "host/outcome/project.h"
#include "host/outcome/result.h"
#include "host/outcome/result_key.h"
#include "host/outcome/results_api.h"
#include "host/outcome/solver_link.h"
