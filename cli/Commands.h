#pragma once
// The commands of `slabadapt` and the command line that reaches them.
//
//   slabadapt run P --target 0.05 --load-case 101 [--load-case 102 ...] [--solver-type N]
//                   [--source-flag N] [--no-check] [--json]
//   slabadapt check P [--load-case ID ...] [--json]
//   slabadapt results P [--format table|csv|json]
//   slabadapt export P --vtu FILE
//   slabadapt help [COMMAND]
//
// Every command writes its report to `out` and its complaints to `err`, and returns the
// process's exit code.
#include <CLI/CLI.hpp>

#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace slabadapt::cli {

// Exit codes besides the run's result codes 0 to 6.
inline constexpr int kExitUsage = 64;       // the command line is wrong
inline constexpr int kExitCheckFailed = 65; // the project check found errors
inline constexpr int kExitNoInput = 66;     // an input file is missing or unreadable
inline constexpr int kExitInternal = 70;    // an unexpected failure
inline constexpr int kExitCannotWrite = 74; // an output file cannot be written

struct RunOptions {
    std::filesystem::path project;
    double target = 0.05;
    std::vector<long> loadCases;
    int solverType = 0;
    int sourceFlag = 0;
    bool noCheck = false;
    bool json = false;
};

// The project P a user named: P itself, or P when one of its files (P.msh, P.toml, ...) was named
// instead and P.msh exists (said on `err`). For a folder, `err` names the projects in it.
std::filesystem::path ResolveProject(const std::filesystem::path& given, std::ostream& err);

// Why `file` cannot be written (a folder, a missing or read-only folder, a read-only file), or
// empty when no reason is apparent.
std::string WriteProblem(const std::filesystem::path& file);

// The name of a result code of the run ("Success", "EstimatorRunFailed", ...).
const char* ResultCodeName(int code);

int RunCommand(const RunOptions& options, std::ostream& out, std::ostream& err);
int CheckCommand(const std::filesystem::path& project, const std::vector<long>& loadCases,
                 bool json, std::ostream& out, std::ostream& err);
int ResultsCommand(const std::filesystem::path& project, const std::string& format,
                   std::ostream& out, std::ostream& err);
int ExportVtuCommand(const std::filesystem::path& project, const std::filesystem::path& vtu,
                     std::ostream& out, std::ostream& err);

// Adds help, run, check, results and export to `app`. The subcommand that runs stores its exit code
// in exitCode (which must outlive the parse).
void RegisterCommands(CLI::App& app, int& exitCode, std::ostream& out, std::ostream& err);

// The whole command: builds the command line, lets `extend` add commands of other parts of the
// program (after the own ones exist), parses argv and returns the exit code. Without a command
// the help goes to `err` and the code is kExitUsage.
int Main(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
         const std::function<void(CLI::App&)>& extend = {});

} // namespace slabadapt::cli
