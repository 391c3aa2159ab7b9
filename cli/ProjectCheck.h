#pragma once
// The checks `slabadapt check` (and `run` before it runs) makes on a project P: everything that
// would make the estimator fail, read the wrong data or stop the process, reported with the
// file and line, or the element or node, where it was found.
#include "adaptivity/ResultLayout.h"
#include "host/outcome/project.h"
#include "host/outcome/strintg_layout.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace slabadapt::cli {

enum class Severity { Error, Warning };

struct Finding {
    Severity severity = Severity::Error;
    std::filesystem::path file;
    std::size_t line = 0; // 0: the finding has no line
    std::string message;
};

// A load case as the check resolved it.
struct CheckedLoadCase {
    long id = 0;
    long index = 0; // one-based; 0 when the id is unknown
    bool valid = false;
    std::string name;
    std::filesystem::path strintgFile;
};

struct CheckReport {
    std::filesystem::path project;
    // The project as read; empty when P.msh or P.toml could not be read.
    std::shared_ptr<const host::outcome::Project> model; // the model the run shares
    std::vector<CheckedLoadCase> loadCases;
    std::vector<Finding> findings;

    std::size_t Errors() const;
    std::size_t Warnings() const;
    bool Passed() const { return Errors() == 0; }
};

// At most this many findings of one kind are listed per file; the rest are counted.
inline constexpr std::size_t kFindingsPerKind = 10;

// The estimator's limit of elements at one node.
using results::kMaxElementsAtNode;

// Checks project P for the load cases `loadCaseIds` (all load cases of P.toml when empty):
//   - P.msh and P.toml can be read and agree (slabs, thicknesses);
//   - every element has 3 or 4 nodes and a non-zero area; no node belongs to more than 64
//     elements;
//   - every requested load-case id exists in P.toml and is valid; duplicates are noted;
//   - every STRINTG file of those load cases exists, has a header with the coordinate columns,
//     lists its elements in ascending order, lists exactly the mesh's elements, each with 3
//     (triangle) or 4 (quadrilateral) points matching the element's node count, at positions on
//     the element; and the load cases agree on every element's point count.
CheckReport CheckProject(const std::filesystem::path& project,
                         const std::vector<long>& loadCaseIds);

// CheckProject in two steps, so that a run can read its STRINTG files while they are checked.
// The constructor checks P.msh, P.toml and the load cases (and makes the combinations' files);
// ScanFiles reads the STRINTG files, on any thread, and completes the report. Until then the
// report holds the findings of the first step alone. ScanFiles parses and formats numbers in a
// "C" locale of its own, so the process's locale may change meanwhile.
class StagedCheck {
public:
    StagedCheck(const std::filesystem::path& project, const std::vector<long>& loadCaseIds);
    ~StagedCheck();
    StagedCheck(const StagedCheck&) = delete;
    StagedCheck& operator=(const StagedCheck&) = delete;

    // `halves`: a large file is read in two halves at once (not while the run reads too).
    void ScanFiles(bool halves = true);
    CheckReport& Report() { return m_report; }

private:
    struct Pending;
    CheckReport m_report;
    std::unique_ptr<Pending> m_pending;
};

// "file:line: error: message" (or "file: warning: ..."), one finding a line.
void PrintFindings(const CheckReport& report, std::ostream& out);
// One line: what was checked and the outcome.
std::string SummaryLine(const CheckReport& report);
// The report as a JSON object.
std::string CheckReportJson(const CheckReport& report);

// Large STRINTG files are checked in two halves at once. With a fraction, every file is split
// at the first line that starts at or behind that fraction of its size (tests); without, the
// usual rule applies.
void SplitStrintgScansForTests(std::optional<double> fraction);

// A STRINTG value field (trimmed) that strtod reads whole as a finite number of magnitude at
// most 1e150: the check's test of every value.
bool IsTrustedValueField(std::string_view field);
// A whole 15-character field in one of the solvers' own layouts (" d.ddddddddE+dd",
// "  d.ddddddde-dd" and their negatives): trusted at a glance. Never true where the full test
// of its trimmed text is false: one digit before the point and an exponent of two digits keep
// it far below the largest value the check trusts.
using strintg::IsSolverField;
// The same decided from the characters alone for the plain decimal fields a solver writes;
// false for anything else (which then takes the full test). Never true where the full test
// is false.
bool IsPlainTrustedNumber(std::string_view field);

} // namespace slabadapt::cli
