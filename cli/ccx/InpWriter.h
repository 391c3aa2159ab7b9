#pragma once
// Writes a project's mesh as a CalculiX input part, in the project's numbering, so that the
// element numbers of CalculiX's results are the project's without any mapping:
//   *NODE, NSET=NALL                   nodes 1..N
//   *ELEMENT, TYPE=S4 (S3, CPS4, CPS3)  elements 1..M, slab by slab
//   *ELSET, ELSET=SLAB<s>               one set per slab (s = 1..S), and EALL
//   *NSET, NSET=<name>                  nodes of each physical curve and point of P.msh
// A deck *INCLUDEs the part and adds material, sections, boundary conditions and steps.
// Elements whose node order runs clockwise about +z are written anticlockwise (first node
// kept), because CalculiX rejects clockwise plane elements and orients shells by it; the
// importer matches integration points by position, so this needs no mapping either.

#include "cli/ccx/ProjectMesh.h"

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace slabadapt::ccx {

enum class InpFamily {
    Shell,      ///< S3 / S4: slabs (plates)
    PlaneStress ///< CPS3 / CPS4: walls (membranes)
};

/// CalculiX reads no field of an input line beyond this many characters.
inline constexpr long kCcxFieldWidth = 20;

/// A number for a CalculiX input line, in any locale: the shortest form that reads back to the
/// same double when it fits in kCcxFieldWidth characters, else as many digits as fit (at least
/// 13, e.g. "-1.2345678901235e-05": a relative change below 1e-13).
std::string CcxNumber(double v);

/// The set name of a node group: its physical name in upper case with characters other than
/// letters, digits and '_' replaced by '_', or CURVE<tag> / POINT<tag> when it has none.
std::string NodeSetName(const NodeGroup& group);

/// The node set names of all node groups, in group order: NodeSetName made unique.
std::vector<std::string> NodeSetNames(const ProjectMesh& mesh);

void WriteInp(const ProjectMesh& mesh, InpFamily family, std::ostream& out);

/// Reads P.msh (and P.toml when it exists, for the slab names and thicknesses) and writes `file`.
void ExportInp(const std::filesystem::path& project, const std::filesystem::path& file,
               InpFamily family);

} // namespace slabadapt::ccx
