#pragma once
// slabadapt run P --target T --envelope ID ID ... : one adaptivity pass per load case or
// combination, merged into an envelope that asks for a mesh fine enough for each.
//
// Per element the envelope takes the largest global error, local error and error density and
// the smallest new size over the passes, and names the governing pass (the one of the smallest
// size; the first of them on a tie); per node the smallest of the passes' nodal sizes, which
// P.refine.pos holds. P.GAR keeps every pass's result (result case k for the k-th pass, in
// the order given) and the envelope as a result of its own (result case 0, envelope extreme
// "maximum", a fifth column "governing_pass"); gar_info's "envelope_load_cases" lists the
// passes' load cases, comma-separated.
#include "cli/Commands.h"

#include <array>
#include <cstddef>
#include <vector>

namespace slabadapt::cli {

// The merge of the passes' element columns (global error, local error, error density, new
// size), each pass a vector over the elements. NaN (an element a pass did not store) is left
// out; an element no pass has stays NaN with governing pass 0.
struct MergedElements {
    std::vector<std::array<double, 4>> columns;
    std::vector<int> governing; // one-based pass, 0 for none
};
MergedElements MergeElementColumns(const std::vector<std::vector<std::array<double, 4>>>& passes);

// The smallest size of each node over the passes (0, no size, is left out).
std::vector<double> MergeNodalSizes(const std::vector<std::vector<double>>& passes);

struct EnvelopePass {
    long loadCase = 0;
    int code = -1;
    double globalError = 0.0;
};

struct EnvelopeReport {
    RunOptions options; // options.loadCases: the passes, in order
    std::optional<CheckReport> check;
    std::vector<EnvelopePass> passes;
    int code = -1;                  // 0 when every pass succeeded, else the first failure's code
    double globalError = 0.0;       // the largest of the passes'
    std::size_t governingPass = 0;  // one-based: the pass of the largest global error
    std::vector<SlabSummary> slabs; // of the envelope
    double seconds = 0.0;
};

// The check (unless options.noCheck) and the passes; writes P.GAR and P.refine.pos as above.
// Returns 0, the code of the first pass that failed, kExitDataError when the check refused the
// project, or kExitCannotWrite when the merged results cannot be written.
int RunEnvelope(const RunOptions& options, EnvelopeReport& report, std::ostream& err);

int EnvelopeCommand(const RunOptions& options, std::ostream& out, std::ostream& err);

} // namespace slabadapt::cli
