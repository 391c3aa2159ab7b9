#pragma once
// P.adapt/report.html: one self-contained page (no script, nothing fetched) with the
// convergence of an adaptive analysis (global error against elements, log-log, the target as a
// line), the table of cycles, and the first and the final mesh coloured by the local error
// (inline SVG; a plan view, or an oblique view for a model that is not flat).
#include "cli/AdaptHistory.h"

#include <filesystem>
#include <ostream>
#include <string>

namespace slabadapt::cli {

// Writes `record`/report.html from the history and the cycles' projects (record/cycle-NN/stem).
// Throws std::runtime_error naming the file when it cannot be written.
void WriteReport(const std::filesystem::path& record, const AdaptHistory& history,
                 const std::string& stem);

// The page itself.
void WriteReportHtml(const std::filesystem::path& record, const AdaptHistory& history,
                     const std::string& stem, std::ostream& out);

} // namespace slabadapt::cli
