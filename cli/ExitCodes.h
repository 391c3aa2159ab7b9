#pragma once
// The exit codes of every `slabadapt` command. `run` ends with the result code of the pass
// (0 Success to 6 WriteMeshRefinementFailed, see adaptivity/AdaptExecute.h) unless one of these
// applies first, and `adapt` with the result code of a pass that failed; otherwise the commands
// end with 0 or one of these. The numbers follow BSD's
// sysexits.h, so that scripts can tell a wrong command line from a wrong input.
namespace slabadapt::cli {

inline constexpr int kExitUsage = 64;       // the command line is wrong
inline constexpr int kExitDataError = 65;   // the project check failed, or an input does not fit
inline constexpr int kExitNoInput = 66;     // an input file is missing or unreadable
inline constexpr int kExitInternal = 70;    // an unexpected failure
inline constexpr int kExitToolFailed = 69;  // a program the command runs (gmsh, ccx) is missing
                                            // or failed
inline constexpr int kExitCannotWrite = 74; // an output file cannot be written
inline constexpr int kExitBusy = 75;        // --no-wait: another slabadapt writes the project

// slabadapt adapt: the loop stopped before the global error reached the target.
inline constexpr int kExitAdaptMaxCycles = 80;   // --max-cycles cycles were run
inline constexpr int kExitAdaptMaxElements = 81; // the next mesh would exceed --max-elements
inline constexpr int kExitAdaptStalled = 82;     // the error no longer falls from cycle to cycle

} // namespace slabadapt::cli
