#pragma once
// Running the programs a command drives (Gmsh, CalculiX): found on PATH, run in a folder,
// their output kept in a log file.
#include <filesystem>
#include <string>
#include <vector>

namespace slabadapt::cli {

// The program's path: `name` itself when it holds a '/' and is executable, else the first
// executable `name` in a folder of PATH; empty when there is none.
std::filesystem::path FindProgram(const std::string& name);

// Runs args[0] (found as FindProgram finds it) with the other arguments in `folder`, standard
// output and error into `log`. Returns its exit code; 127 when it could not be started, 128 +
// the signal when a signal ended it.
int RunProgram(const std::vector<std::string>& args, const std::filesystem::path& folder,
               const std::filesystem::path& log);

} // namespace slabadapt::cli
