// The STRINTG file of load case 1 of a small valid model: the module's reader (with the model's
// element count, as a run gives it) and the project check read it, the check also in two halves
// (which must find what one reading finds).
#include "adaptivity/AdaptiveMeshData.h"
#include "cli/ProjectCheck.h"
#include "fuzz/fuzz_support.h"

#include <optional>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace slabadapt::fuzz;
    static const std::filesystem::path project = [] {
        const std::filesystem::path p = ScratchFolder() / "P";
        WriteBytes(p.string() + ".msh", kSmallMesh);
        WriteBytes(p.string() + ".toml", kSmallData);
        return p;
    }();
    WriteBytes(project.string() + ".STRINTG0001", data, size);

    Refusable([&] {
        CAdaptiveMeshData mesh;
        mesh.LimitElementNumbers(3);
        if (!mesh.PrepareResultsOnIntegrationPoints({1}, CString(project.string())))
            return;
        double values[8];
        for (unsigned long e = 0; e < 3; ++e) {
            long points = 0;
            try {
                points = mesh.GetCountOfIntegrationPoints(e);
            } catch (const std::out_of_range&) {
                continue; // the file ends before this element: no entry
            }
            for (long p = 0; p < points; ++p) {
                mesh.GetIntegrationPointResults(e, static_cast<unsigned long>(p),
                                                Outcome64Enums::eIPDT_InternalForces, values);
                (void)mesh.GetIntegrationPointGlobalCoords(e, static_cast<unsigned long>(p));
            }
        }
    });
    Refusable([&] {
        slabadapt::cli::SplitStrintgScansForTests(std::nullopt);
        const auto report = slabadapt::cli::CheckProject(project, {1});
        std::ostringstream out;
        slabadapt::cli::PrintFindings(report, out);
        (void)slabadapt::cli::CheckReportJson(report);
        // A large file is read in two halves at once: split this one where its size says and
        // the findings must be those of the one reading.
        slabadapt::cli::SplitStrintgScansForTests(static_cast<double>(size % 97) / 97.0);
        const auto halves = slabadapt::cli::CheckProject(project, {1});
        slabadapt::cli::SplitStrintgScansForTests(std::nullopt);
        std::ostringstream again;
        slabadapt::cli::PrintFindings(halves, again);
        if (again.str() != out.str())
            __builtin_trap();
    });
    return 0;
}
