#pragma once
// The commands of `slabadapt` and the command line that reaches them.
//
//   slabadapt run P --target 0.05 --load-case 101 [--load-case 102 ...] [--solver-type N]
//                   [--source-flag N] [--no-check] [--json]
//   slabadapt check P [--load-case ID ...] [--json]
//   slabadapt results P [--format table|csv|json]
//   slabadapt export P --vtu FILE | --inp FILE [--inp-type shell|plane-stress]
//   slabadapt import-ccx P JOB.dat [--plane-stress [--young E --poisson NU]] [--family ...]
//   slabadapt help [COMMAND]
//
// Every command writes its report to `out` and its complaints to `err`, and returns the
// process's exit code (cli/ExitCodes.h). The command line is put together in CommandLine.cpp.
#include "cli/ExitCodes.h"
#include "cli/ProjectCheck.h"
#include "cli/StoredResults.h"
#include "host/framework/stage_clock.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace slabadapt::cli {

// One stage of a pass: its wall time, the process's peak memory and the heap in use at its end.
struct StageTiming {
    std::string stage;
    double seconds = 0.0;
    double peakMegabytes = 0.0;
    double heapMegabytes = 0.0;
};

struct RunOptions {
    std::filesystem::path project;
    double target = 0.05;
    std::vector<long> loadCases;
    int solverType = 0;
    int sourceFlag = 0;
    bool noCheck = false;
    bool json = false;
    bool noWait = false;  // give up at once when another slabadapt writes the project
    bool timings = false; // print each stage's wall time and peak memory
};

// The project P a user named: P itself, or P when one of its files (P.msh, P.toml, ...) was named
// instead and P.msh exists (said on `err`). For a folder, `err` names the projects in it.
std::filesystem::path ResolveProject(const std::filesystem::path& given, std::ostream& err);
// The project as ResolveProject finds it, absolute and normal, without a word.
std::filesystem::path QuietlyResolved(const std::filesystem::path& given);

// Why `file` cannot be written (a folder, a missing or read-only folder, a read-only file), or
// empty when no reason is apparent.
std::string WriteProblem(const std::filesystem::path& file);
// Whether the file or folder may be written; for the superuser, whether any write permission
// is set (a file made read-only stays so, even for root).
bool PermitsWriting(const std::filesystem::path& path);
// Why a run could not replace the project's results (its folder, P.GAR or P.refine.pos not
// writable), or empty. PreviousResults asks it before it sets anything aside.
std::string ResultsWriteProblem(const std::filesystem::path& project);

// The name of a result code of the run ("Success", "EstimatorRunFailed", ...).
const char* ResultCodeName(int code);

// What a run did, for its report in either form.
struct RunReport {
    struct WrittenFile {
        std::filesystem::path path;
        std::string content;
    };
    RunOptions options;               // as given, with the project resolved and absolute
    std::optional<CheckReport> check; // empty with --no-check
    int code = -1;                    // the pass's result code; -1 when it did not run
    double globalError = 0.0;
    std::vector<SlabSummary> slabs;
    std::vector<WrittenFile> files;
    std::string resultsProblem;        // why the stored results could not be read back
    std::vector<std::string> warnings; // numbers that cannot be trusted (UntrustedNumbers)
    std::vector<StageTiming> timings;  // where the pass's time and memory went
    double seconds = 0.0;
};

// The check (unless options.noCheck, its findings on `err`) and one adaptivity pass, without
// the printed summary. Returns the pass's result code, kExitDataError when the check refused
// the project, or kExitInternal when the pass failed before the estimator started.
int RunPass(const RunOptions& options, RunReport& report, std::ostream& err);

// What a finished pass's numbers say about themselves: a global error that is not finite or
// vanishes beside local errors (overflowed sums), stored values that are not finite. Empty when
// they can be trusted or the pass gave none.
std::vector<std::string> UntrustedNumbers(const RunReport& report);

// The stages of a pass from the marks it left (host::framework::MarkStage): check, opening the
// project, reading and estimating, storing, the size field, reading the summary back. A stage
// whose marks are missing (it did not run, or the pass failed before it) is left out.
std::vector<StageTiming> StagesOf(const std::vector<host::framework::StageMark>& marks);

int RunCommand(const RunOptions& options, std::ostream& out, std::ostream& err);

// The results a run replaces. Before the pass (which deletes P.GAR first) P.GAR is backed up
// (backup_<name>.GAR beside it, the module's CreateGARFileBackup) and P.refine.pos copied aside
// (P.refine.pos.backup); then a marker, P.run-pending, records which of them there were. Settle
// puts them back, with a word on `err`, when the pass failed (any code but 0, a refused check or
// a usage error), and drops the copies otherwise; an object destroyed unsettled puts them back.
// The marker goes last on failure and first on success, so that a run killed at any moment
// leaves either no marker (its results, or the previous ones, are in place) or a marker whose
// backups are complete.
class PreviousResults {
public:
    PreviousResults(const std::filesystem::path& project, std::ostream& err);
    ~PreviousResults();
    PreviousResults(const PreviousResults&) = delete;
    PreviousResults& operator=(const PreviousResults&) = delete;
    void Settle(int code, std::ostream& err);
    // Why the results could not be replaced (a read-only P.GAR, P.refine.pos or folder) or set
    // aside (a full disk): then the run must not start. Empty when it may.
    const std::string& Problem() const { return m_problem; }

private:
    std::filesystem::path m_project;
    std::string m_problem;
    bool m_gar = false;
    bool m_pos = false;
    bool m_pending = false;
};

// What a run that was killed left: with its marker, the previous P.GAR and P.refine.pos are put
// back (or, where there were none, what the run left of its own is removed), with a word on
// `err`; the run's temporary files go. Without a marker, backups left over are stale and go.
// Call it only while holding the project's lock.
void RecoverInterruptedRun(const std::filesystem::path& project, std::ostream& err);

// The project check before a run: the findings on `err` and, when it fails, the sentence that
// nothing was run. True when the run may go on.
bool CheckBeforeRun(const std::filesystem::path& project, const std::vector<long>& loadCases,
                    std::optional<CheckReport>& check, std::ostream& err);
int CheckCommand(const std::filesystem::path& project, const std::vector<long>& loadCases,
                 bool json, std::ostream& out, std::ostream& err);
int ResultsCommand(const std::filesystem::path& project, const std::string& format,
                   std::ostream& out, std::ostream& err);
int ExportVtuCommand(const std::filesystem::path& project, const std::filesystem::path& vtu,
                     std::ostream& out, std::ostream& err);

// export --inp: P's mesh as a CalculiX input part in the project's numbering; `type` is "shell"
// (S3/S4) or "plane-stress" (CPS3/CPS4).
int ExportInpCommand(const std::filesystem::path& project, const std::filesystem::path& file,
                     const std::string& type, std::ostream& out, std::ostream& err);

// import-ccx: P.STRINTG<index> from CalculiX *EL PRINT results (S, E, COORD), one file per
// step, step k to the k-th load case of P.toml in ascending index.
struct ImportCcxOptions {
    std::filesystem::path project;
    std::filesystem::path dat;
    bool planeStress = false;      // recompute stresses from the printed strains
    std::optional<double> young;   // for planeStress; default: the deck's *ELASTIC
    std::optional<double> poisson; // likewise
    std::string family = "auto";   // auto, plane or shell
    bool noWait = false;
};
int ImportCcxCommand(const ImportCcxOptions& options, std::ostream& out, std::ostream& err);

// Adds every command to `app`. The subcommand that runs stores its exit code in exitCode (which
// must outlive the parse).
void RegisterCommands(CLI::App& app, int& exitCode, std::ostream& out, std::ostream& err);

// The whole command: builds the command line, parses argv and returns the exit code. Without a
// command the help goes to `err` and the code is kExitUsage.
int Main(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

} // namespace slabadapt::cli
