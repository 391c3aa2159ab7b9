// P.GAR, the result store: opened to read, every result listed and loaded, the info read; and
// the command's reading of it (the results summary).
#include "cli/StoredResults.h"
#include "fuzz/fuzz_support.h"
#include "host/outcome/gar.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace slabadapt::fuzz;
    const std::filesystem::path gar = ScratchFolder() / "P.GAR";
    std::error_code ec;
    std::filesystem::remove(ScratchFolder() / "P.GAR-journal", ec);
    WriteBytes(gar, data, size);
    Refusable([&] {
        const host::outcome::GarStore store(gar, false);
        for (const auto& info : store.List())
            (void)store.Load(info.key);
        (void)store.GetInfo("envelope_load_cases");
    });
    Refusable([&] {
        const auto results = slabadapt::cli::ReadStoredResults(ScratchFolder() / "P", nullptr);
        (void)slabadapt::cli::Summarize(results);
        (void)slabadapt::cli::ElementColumns(results, 3);
        (void)slabadapt::cli::ElementColumns(results, 3, 0, true);
        (void)slabadapt::cli::GoverningPasses(results, 3);
    });
    return 0;
}
