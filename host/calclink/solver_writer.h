#pragma once
// The solver-data writer: hands the refinement field to the mesher.
#include "host/framework/cstring.h"
#include "host/outcome/project.h"
#include "host/shapekit/point3d.h"

#include <filesystem>
#include <functional>
#include <future>
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
    // A P.msh without elements and physical surfaces (an empty model) gives a view without
    // entries. While a WriteMeshRefinementsHook is set, the arguments go to it instead.
    void WriteMeshRefinements(const CString& projectPath, const std::vector<double>& refinement,
                              const std::vector<CKQPoint3D>& nodes) const;
};

namespace host::calclink {
// The size-field view itself: `elements` lists each element's one-based node ids (3 or 4),
// `sizes` and `nodes` are per node. Checks and throws as WriteMeshRefinements does.
void WriteSizeField(const std::filesystem::path& posFile,
                    const std::vector<std::vector<unsigned long>>& elements,
                    const std::vector<double>& sizes, const std::vector<CKQPoint3D>& nodes);
// The same over a mesh's elements (their node ids), without copying them.
void WriteMeshSizeField(const std::filesystem::path& posFile,
                        const std::vector<host::outcome::MeshElement>& elements,
                        const std::vector<double>& sizes, const std::vector<CKQPoint3D>& nodes);

// While an object of this class lives, CSolverFEMcoWriter::WriteMeshRefinements checks its
// arguments and reads P.msh as always (and throws as always) but writes P.refine.pos on a
// thread of its own and returns at once, so that the caller goes on (commits its results, say)
// while the field is written. Finish waits for the writing and throws what it threw; the
// destructor waits too. One object at a time in a process.
class BackgroundSizeField {
public:
    BackgroundSizeField();
    ~BackgroundSizeField();
    BackgroundSizeField(const BackgroundSizeField&) = delete;
    BackgroundSizeField& operator=(const BackgroundSizeField&) = delete;

    void Finish();

    // Starts `write` on its own thread when an object lives (after the one it started before
    // has ended); false when none does.
    static bool Start(std::function<void()> write);

private:
    std::future<void> m_writing;
};

// A test seam: while set, CSolverFEMcoWriter::WriteMeshRefinements hands its three arguments
// to the hook, exactly as it received them, instead of reading P.msh and writing
// P.refine.pos; nothing is checked and no file is touched. What the hook throws passes to the
// caller of WriteMeshRefinements. An empty hook removes it. The hook is the whole process's;
// SetWriteMeshRefinementsHook returns the previous one.
using WriteMeshRefinementsHook =
    std::function<void(const CString& projectPath, const std::vector<double>& refinement,
                       const std::vector<CKQPoint3D>& nodes)>;
WriteMeshRefinementsHook SetWriteMeshRefinementsHook(WriteMeshRefinementsHook hook);

// Installs a WriteMeshRefinements hook for the lifetime of the object and puts the previous
// one back.
class ScopedWriteMeshRefinementsHook {
public:
    explicit ScopedWriteMeshRefinementsHook(WriteMeshRefinementsHook hook)
        : m_previous(SetWriteMeshRefinementsHook(std::move(hook))) {}
    ~ScopedWriteMeshRefinementsHook() { SetWriteMeshRefinementsHook(std::move(m_previous)); }
    ScopedWriteMeshRefinementsHook(const ScopedWriteMeshRefinementsHook&) = delete;
    ScopedWriteMeshRefinementsHook& operator=(const ScopedWriteMeshRefinementsHook&) = delete;

private:
    WriteMeshRefinementsHook m_previous;
};

} // namespace host::calclink
