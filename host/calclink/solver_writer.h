#pragma once
// The solver-data writer: hands the refinement field to the mesher.
#include "host/framework/cstring.h"
#include "host/shapekit/point3d.h"

#include <filesystem>
#include <vector>

class CSolverFEMcoWriter {
public:
    CSolverFEMcoWriter() = default;

    // Writes P.refine.pos beside the project P: a Gmsh list-based view with one ST (triangle)
    // or SQ (quadrilateral) entry per element of P.msh, its corners at the given node
    // coordinates and its values the given nodal sizes, so that
    //     gmsh geometry.geo -2 -bgm P.refine.pos
    // remeshes with these sizes. refinement and nodes are in project node order (entry i is
    // node i+1). Throws host::outcome::ProjectError when P.msh cannot be read,
    // std::invalid_argument when the vectors do not match the mesh's node count or a size is
    // not a positive finite number, and std::runtime_error when the file cannot be written.
    void WriteMeshRefinements(const CString& projectPath, const std::vector<double>& refinement,
                              const std::vector<CKQPoint3D>& nodes) const;
};

namespace host::calclink {
// The size-field view itself: `elements` lists each element's one-based node ids (3 or 4),
// `sizes` and `nodes` are per node. Checks and throws as WriteMeshRefinements does.
void WriteSizeField(const std::filesystem::path& posFile,
                    const std::vector<std::vector<unsigned long>>& elements,
                    const std::vector<double>& sizes, const std::vector<CKQPoint3D>& nodes);
} // namespace host::calclink
