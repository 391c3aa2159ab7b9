// P.msh: the host kit's Gmsh reader (both ways of taking an empty mesh), the project as the
// module opens it, and the CalculiX importer's reading of the project (curves and points).
#include "cli/ccx/ProjectMesh.h"
#include "fuzz/fuzz_support.h"
#include "host/outcome/project.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace slabadapt::fuzz;
    static const std::filesystem::path project = ScratchFolder() / "P";
    const std::filesystem::path msh = project.string() + ".msh";
    WriteBytes(msh, data, size);
    Refusable([&] { (void)host::outcome::ReadMesh(msh); });
    Refusable([&] { (void)host::outcome::ReadMesh(msh, host::outcome::EmptyMesh::Accept); });
    Refusable([&] { (void)slabadapt::ccx::ReadProjectMesh(project); });
    return 0;
}
