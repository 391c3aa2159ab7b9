#pragma once
// Load combinations: a load case of P.toml may be a factored sum of others,
//
//   [[load_case]]
//   id = 201
//   index = 3
//   name = "ULS 1"
//   combination = { 101 = 1.35, 102 = 1.5 }
//
// The host kit gives it to the module like any load case: its STRINTG file (P.STRINTG0003
// here) holds, point by point, the factored sum of the components' values, with the
// coordinates of the components (which must agree) and the layout the solver's files have.
// The file is made from the components' files when it is missing, older than any of them, or
// made from another definition. It is marked as derived by its first line,
//
//   slabadapt: combination 201 = 1.35 x 101 + 1.5 x 102 (derived; remade when a component changes)
//
// so that it is never taken for a solver's: a file at a combination's index without that line
// is left alone and reported.
#include "host/outcome/project.h"

#include <filesystem>
#include <string>
#include <vector>

namespace host::outcome {

inline constexpr const char* kDerivedMark = "slabadapt: combination ";

// Why a combination cannot be made: `loadCase` is its id; the message names what is wrong
// (a component that is unknown, a combination itself, without its file, or whose points do
// not agree with the others').
struct CombinationProblem {
    long loadCase = 0;
    std::string message;
};

// P + ".STRINTG" + the index in at least four digits.
std::filesystem::path StrintgFile(const std::filesystem::path& project, long index);

// The first line of the derived file of `combination`.
std::string DerivedMarkLine(const LoadCaseData& combination);

// Makes or remakes the STRINTG file of every combination of `data` (or of the load-case ids
// given, when `only` is not empty) that needs it. Returns the problems; for those load cases
// nothing is written.
std::vector<CombinationProblem> UpdateCombinations(const std::filesystem::path& project,
                                                   const ProjectData& data,
                                                   const std::vector<long>& only = {});

} // namespace host::outcome
