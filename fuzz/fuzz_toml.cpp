// P.toml: the project data reader, and the project it makes with a small valid mesh.
#include "fuzz/fuzz_support.h"
#include "host/outcome/project.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace slabadapt::fuzz;
    static const std::filesystem::path project = [] {
        const std::filesystem::path p = ScratchFolder() / "P";
        WriteBytes(p.string() + ".msh", kSmallMesh);
        return p;
    }();
    const std::filesystem::path toml = project.string() + ".toml";
    WriteBytes(toml, data, size);
    Refusable([&] { (void)host::outcome::ReadProjectData(toml); });
    Refusable([&] { (void)host::outcome::LoadProject(project); });
    return 0;
}
