// CalculiX's printed results (JOB.dat) and its step summary (JOB.sta), as import-ccx reads them.
#include "cli/ccx/DatFile.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace slabadapt::fuzz;
    const std::filesystem::path dat = ScratchFolder() / "job.dat";
    const std::filesystem::path sta = ScratchFolder() / "job.sta";
    WriteBytes(dat, data, size);
    WriteBytes(sta, data, size);
    Refusable([&] { (void)slabadapt::ccx::ReadDat(dat); });
    Refusable([&] { (void)slabadapt::ccx::ReadSta(sta); });
    return 0;
}
