#pragma once
// CalculiX results -> STRINTG files of a project.
//
// CalculiX expands plane-stress (CPS3, CPS4) and shell (S3, S4) elements into one layer of
// 3-D elements and prints *EL PRINT results at the 3-D integration points:
//   - 4-node elements: 8 points, 1-4 on the lower face and 5-8 on the upper one, each face in
//     the in-plane order (-a,-a), (+a,-a), (-a,+a), (+a,+a) of the element's natural system;
//   - 3-node elements: 2 points, lower and upper, both at the centroid (constant strain);
//   - lower and upper points at z = -/+ t/(2 sqrt 3) about the mid-surface.
// With both faces two-point Gauss rules through the thickness, per unit width:
//   n = t (s_low + s_up) / 2            e = (e_low + e_up) / 2
//   m = t^2 (s_up - s_low) / (4 sqrt 3)  k = sqrt 3 (e_up - e_low) / t
//   q = t (s_low + s_up) / 2 of sxz, syz  g = e_low + e_up of exz, eyz (engineering)
// which reproduces the through-thickness integral of s:e exactly (n e + m k = t/2 (s_l e_l +
// s_u e_u)). Shear terms of the in-plane and transverse strains are doubled, because CalculiX
// prints tensor strains.
//
// Module points are matched to CalculiX points by position (the mesh gives each module
// point's place), so element node orders that CalculiX would number differently (a mesh
// element oriented clockwise, written anticlockwise into the deck) still map correctly.
// A triangle's three module points take the value of its single centroid pair.

#include "cli/ccx/DatFile.h"
#include "cli/ccx/ProjectMesh.h"
#include "cli/ccx/StrintgFile.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace slabadapt::ccx {

/// Where the stresses come from.
///  - Printed: as CalculiX printed them (default). They are what the solver equilibrated
///    and need no material data; the through-thickness stress szz that the 3-D expansion
///    leaves is simply not used.
///  - PlaneStress: recomputed from the printed strains with the plane-stress law
///    (sxx = E/(1-nu^2)(exx + nu eyy), sxy = E/(1+nu) exy, transverse shear s = E/(1+nu) e),
///    which removes the coupling to szz of the 3-D law. E and nu come from the options or
///    from the single isotropic *ELASTIC of the deck JOB.inp next to JOB.dat.
enum class StressSource { Printed, PlaneStress };

/// Which values an element gives.
///  - Plane: walls, membrane forces and strains only (moments, shear forces, curvatures and
///    transverse shear strains are written as 0).
///  - Shell: all sixteen values.
///  - Auto: Shell for rows that carry CalculiX's shell orientation ("_shell_..."), else Plane.
enum class ElementFamily { Auto, Plane, Shell };

struct ImportOptions {
    StressSource stress = StressSource::Printed;
    ElementFamily family = ElementFamily::Auto;
    std::optional<double> young;
    std::optional<double> poisson;
};

struct IsotropicElastic {
    double young = 0.0;
    double poisson = 0.0;
};

/// The isotropic *ELASTIC constants of a deck; throws ImportError when the deck has none or
/// several different ones.
IsotropicElastic ReadDeckElastic(const std::filesystem::path& inpFile);

/// The module's integration points of every project element for one printed increment.
/// Throws ImportError naming the element when results are missing or do not fit the mesh.
std::vector<StrintgElement> ConvertIncrement(const ProjectMesh& mesh, const DatIncrement& increment,
                                             ElementFamily family,
                                             const std::optional<IsotropicElastic>& planeStress);

struct WrittenCase {
    int step = 0;      ///< one-based CalculiX step
    double time = 0.0; ///< total time of the printed increment
    LoadCase loadCase;
    std::filesystem::path file;
};

/// Reads P (P.msh, P.toml), JOB.dat (and JOB.sta, JOB.inp when they exist) and writes one
/// STRINTG file per step: step k goes to the k-th load case of P.toml in ascending index
/// (combinations left out: the host kit derives their files from their components).
std::vector<WrittenCase> ImportCcx(const std::filesystem::path& project,
                                   const std::filesystem::path& datFile,
                                   const ImportOptions& options);

} // namespace slabadapt::ccx
