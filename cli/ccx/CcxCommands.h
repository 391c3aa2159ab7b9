#pragma once
// The CalculiX commands of `slabadapt`:
//
//   slabadapt import-ccx P JOB.dat [--plane-stress [--young E --poisson NU]] [--family ...]
//       writes P.STRINTG<index> from CalculiX *EL PRINT results (S, E, COORD), one file per
//       step, step k to the k-th load case of P.toml in ascending index.
//   slabadapt export P --inp FILE [--inp-type shell|plane-stress]
//       writes P's mesh in the project's numbering as a CalculiX input part.
//
// Call RegisterCcxCommands after the `export` subcommand exists: `--inp` is then added to it
// (and performed when the subcommand's parsing completes, before the subcommand's own
// callback). Without an `export` subcommand, `export-inp P FILE` is registered instead.
// Failures print "slabadapt: <message>" on standard error and end with CLI::RuntimeError of
// 65 (a project, deck or results file that does not fit), 74 (a file not written) or 70.

#include <CLI/CLI.hpp>

namespace slabadapt::ccx {

void RegisterCcxCommands(CLI::App& app);

/// Adds `--inp FILE` and `--inp-type` to an existing export subcommand whose first positional
/// is the project path P. Returns the `--inp` option (so the caller can tell that an export
/// of another kind is not required when it was given).
CLI::Option* AddInpExportOptions(CLI::App& exportCommand);

} // namespace slabadapt::ccx

using slabadapt::ccx::RegisterCcxCommands;
