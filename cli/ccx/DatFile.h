#pragma once
// Reader of the CalculiX results printed with *EL PRINT into JOB.dat:
//
//    stresses (elem, integ.pnt.,sxx,syy,szz,sxy,sxz,syz) for set EALL and time  0.1000000E+01
//            1   1  1.356891E+01 -1.607774E+00 ... [_shell_0000000001]
//    strains (elem, integ.pnt.,exx,eyy,ezz,exy,exz,eyz) for set ...
//    global coordinates (elem, integ.pnt.,x,y,z) for set ...
//
// Strains are tensor components (exy is half the engineering shear). Shell rows end with the
// name of the element's local orientation, in which their components are given. Blocks of
// other quantities (displacements, forces, energies, ...) are skipped.

#include <array>
#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace slabadapt::ccx {

/// One element's rows of one output time, indexed by integration point (point p at p - 1).
struct DatElement {
    std::vector<std::array<double, 6>> stress; ///< sxx, syy, szz, sxy, sxz, syz
    std::vector<std::array<double, 6>> strain; ///< exx, eyy, ezz, exy, exz, eyz (tensor)
    std::vector<std::array<double, 3>> coords; ///< x, y, z of the point
    std::string orientation; ///< local system named on the stress rows ("" = global)
};

/// Everything printed for one output time (one increment).
struct DatIncrement {
    double time = 0.0;
    std::map<long, DatElement> elements; ///< by CalculiX element number
};

/// Reads every *EL PRINT block of S, E and COORD, grouped by output time in file order.
/// Throws ImportError on an unreadable file or a malformed row (with its line).
std::vector<DatIncrement> ReadDat(const std::filesystem::path& file);

/// One step of JOB.sta: its number and the total time of its last increment.
struct StaStep {
    int step = 0;
    double totalTime = 0.0;
};

/// Reads JOB.sta (the step/increment summary). Returns an empty list when it does not exist.
std::vector<StaStep> ReadSta(const std::filesystem::path& file);

/// The increments that end the steps: with a .sta summary, the last printed increment of each
/// step; without one, every printed increment is taken as one step.
/// Throws ImportError when a step of the summary has no printed results.
std::vector<const DatIncrement*> SelectSteps(const std::vector<DatIncrement>& increments,
                                             const std::vector<StaStep>& steps);

} // namespace slabadapt::ccx
