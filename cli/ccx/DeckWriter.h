#pragma once
// Writes the CalculiX deck P.inp of a project from what P.toml says: the materials of the
// slabs, the supports and one step per load case. The mesh itself is the part that
// WriteInp writes (P_mesh.inp), which the deck *INCLUDEs.
//
//   *INCLUDE, INPUT=P_mesh.inp
//   *MATERIAL / *ELASTIC / *DENSITY and a section per slab (SLAB1.. with its thickness)
//   *BOUNDARY           the supports: the node set of each named physical curve or point
//   *STEP per load case of P.toml in ascending index (step k is imported to the k-th case);
//         combinations have none: the host kit derives their results from their components
//     *DLOAD  pressure per slab and self weight (GRAV along -z)
//     *CLOAD  line loads lumped onto the curve's nodes, point loads on each point of a group
//     *EL PRINT S, E, COORD (what import-ccx reads)
//
// Sign of a pressure: positive acts downwards (-z) on a horizontal slab. On any slab it acts
// against the normal of the deck's element, which the mesh part orients anticlockwise seen from
// +z (so a tilted slab's normal points up); on a vertical slab that is the right-hand normal of
// the element's node order in P.msh. CalculiX's own P on a shell acts along the normal, so the
// deck writes the value with its sign turned.

#include "cli/ccx/InpWriter.h"
#include "cli/ccx/ProjectMesh.h"
#include "host/outcome/project.h"

#include <filesystem>
#include <ostream>
#include <string>

namespace slabadapt::ccx {

struct DeckOptions {
    InpFamily family = InpFamily::Shell;
    std::string meshPart;            ///< the file name the deck *INCLUDEs, e.g. "P_mesh.inp"
    bool printDisplacements = false; ///< also *NODE PRINT U of every node (for checks)
};

/// Writes the deck. Throws ImportError naming P.toml and what is missing or does not fit: a
/// slab without young or poisson, self weight without density, a group that P.msh does not
/// have, a pressure in a plane-stress deck.
void WriteDeck(const ProjectMesh& mesh, const host::outcome::ProjectData& data,
               const DeckOptions& options, std::ostream& out);

/// Reads P (P.msh, P.toml) and writes the deck to `file`; throws ImportError or WriteError.
void WriteDeckFile(const std::filesystem::path& project, const std::filesystem::path& file,
                   const DeckOptions& options);

} // namespace slabadapt::ccx
