// Reading a STRINTG file of a 10^6-element quadrilateral mesh (4 points each, all 19 columns)
// with CAdaptiveMeshData::PrepareResultsOnIntegrationPoints, beside `wc -l` over the same file
// in the same run, which marks what reading the bytes alone costs.
//
// Environment: SLABADAPT_BENCH_ELEMENTS (default 1000000) sets the element count,
// SLABADAPT_BENCH_DIR the folder of the generated file (default: the temporary folder).
// The file is written once before the benchmarks and removed afterwards; both contenders read
// it from the page cache (a first `wc -l` warms it).
#include "adaptivity/AdaptiveMeshData.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <malloc.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

struct Setup {
    long elements = 1'000'000;
    fs::path folder;
    fs::path project; // P: the file is P.STRINTG0001
    fs::path file;
    std::uintmax_t bytes = 0;
    long lines = 0;
};

Setup g_setup;
// Best times of each contender: wall clock, and CPU (user + system) of the process that did
// the work. The machine is shared, so the CPU times are the steadier comparison.
double g_wcSeconds = 0.0;
double g_wcCpuSeconds = 0.0;
double g_prepareSeconds = 0.0;
double g_prepareCpuSeconds = 0.0;

double g_plainSeconds = 0.0;
double g_plainCpuSeconds = 0.0;
double g_prepareSystemSeconds = 0.0; // of the best CPU run: kernel time (reading, page faults)

double Seconds(const timeval& t) {
    return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
}

double CpuSeconds(int who) {
    rusage usage{};
    getrusage(who, &usage);
    return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

double SystemSeconds(int who) {
    rusage usage{};
    getrusage(who, &usage);
    return Seconds(usage.ru_stime);
}

void KeepBest(double& best, double value) {
    if (best == 0.0 || value < best)
        best = value;
}

// One 15-character value field in the solver's exponent notation.
void AppendField(std::string& line, double value) {
    char text[32];
    auto [end, ec] =
        std::to_chars(text, text + sizeof text, value, std::chars_format::scientific, 7);
    (void)ec;
    const auto length = static_cast<std::size_t>(end - text);
    line.append(15 - length, ' ');
    line.append(text, length);
}

void WriteFile(const Setup& setup) {
    static const char* names[] = {"igx", "igy", "igz", "mx",  "my",  "mxy", "qx", "qy", "nx", "ny",
                                  "nxy", "kx",  "ky",  "kxy", "gxz", "gyz", "ex", "ey", "gxy"};
    std::ofstream out(setup.file, std::ios::binary | std::ios::trunc);
    std::string text = "Integration point results\nLoad case 1\n    ELEM      IP    ";
    for (const char* name : names) {
        text.append(15 - std::char_traits<char>::length(name), ' ');
        text += name;
    }
    text += "\n----\n";
    const long side = 1000;
    for (long e = 1; e <= setup.elements; ++e) {
        const double x0 = static_cast<double>((e - 1) % side);
        const double y0 = static_cast<double>((e - 1) / side);
        for (int p = 0; p < 4; ++p) {
            char head[48];
            std::snprintf(head, sizeof head, "%8ld%8d", e, p + 1);
            text += head;
            const double x = x0 + ((p == 1 || p == 2) ? 0.7886751345948129 : 0.2113248654051871);
            const double y = y0 + (p >= 2 ? 0.7886751345948129 : 0.2113248654051871);
            AppendField(text, x);
            AppendField(text, y);
            AppendField(text, 0.0);
            for (int k = 0; k < 16; ++k)
                AppendField(text, (k % 2 ? -1.0 : 1.0) * (1.0 + 0.001 * x * (k + 1) + 0.002 * y) *
                                      (k < 8 ? 1e3 : 1e-5));
            text += '\n';
        }
        if (text.size() > (std::size_t{1} << 24)) {
            out.write(text.data(), static_cast<std::streamsize>(text.size()));
            text.clear();
        }
    }
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    if (!out)
        throw std::runtime_error("cannot write " + setup.file.string());
}

void BM_WcL(benchmark::State& state) {
    const std::string command = "wc -l '" + g_setup.file.string() + "' > /dev/null";
    for (auto _ : state) {
        const double cpu = CpuSeconds(RUSAGE_CHILDREN);
        const auto start = std::chrono::steady_clock::now();
        if (std::system(command.c_str()) != 0)
            state.SkipWithError("wc -l failed");
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        KeepBest(g_wcSeconds, seconds);
        KeepBest(g_wcCpuSeconds, CpuSeconds(RUSAGE_CHILDREN) - cpu); // wc, and the shell around it
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(g_setup.bytes));
}

// The yardstick of a reader: a plain fixed-field loop (std::getline, std::from_chars on each
// field after its blanks) that only sums the values and keeps nothing.
void BM_PlainFixedFieldFromChars(benchmark::State& state) {
    for (auto _ : state) {
        const double cpu = CpuSeconds(RUSAGE_SELF);
        const auto start = std::chrono::steady_clock::now();
        std::ifstream in(g_setup.file, std::ios::binary);
        std::string line;
        double sum = 0.0;
        long records = 0;
        for (long number = 1; std::getline(in, line); ++number) {
            if (number < 5)
                continue;
            ++records;
            for (std::size_t start = 16; start + 15 <= line.size(); start += 15) {
                std::size_t i = start;
                while (line[i] == ' ')
                    ++i;
                double value = 0.0;
                std::from_chars(line.data() + i, line.data() + start + 15, value);
                sum += value;
            }
        }
        benchmark::DoNotOptimize(sum);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        KeepBest(g_plainSeconds, seconds);
        KeepBest(g_plainCpuSeconds, CpuSeconds(RUSAGE_SELF) - cpu);
        state.counters["records"] = static_cast<double>(records);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(g_setup.bytes));
}

void BM_PrepareResultsOnIntegrationPoints(benchmark::State& state) {
    const CString project(g_setup.project.string());
    double heapBytes = 0.0;
    long points = 0;
    for (auto _ : state) {
        CAdaptiveMeshData data;
        const std::size_t before = mallinfo2().uordblks;
        const double cpu = CpuSeconds(RUSAGE_SELF);
        const double system = SystemSeconds(RUSAGE_SELF);
        const auto start = std::chrono::steady_clock::now();
        const bool ok = data.PrepareResultsOnIntegrationPoints({1}, project);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const double used = CpuSeconds(RUSAGE_SELF) - cpu;
        if (g_prepareCpuSeconds == 0.0 || used < g_prepareCpuSeconds)
            g_prepareSystemSeconds = SystemSeconds(RUSAGE_SELF) - system;
        KeepBest(g_prepareCpuSeconds, used);
        state.SetIterationTime(seconds);
        if (!ok) {
            state.SkipWithError("no data read");
            break;
        }
        // The heap the loaded table holds, allocator overhead included.
        heapBytes = static_cast<double>(mallinfo2().uordblks - before);
        points = 0;
        for (unsigned long e = 0; e < static_cast<unsigned long>(g_setup.elements); ++e)
            points += data.GetCountOfIntegrationPoints(e);
        KeepBest(g_prepareSeconds, seconds);
        state.PauseTiming();
        data.Clear();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(g_setup.bytes));
    state.counters["points"] = static_cast<double>(points);
    state.counters["table_bytes_per_point"] =
        points > 0 ? heapBytes / static_cast<double>(points) : 0.0;
    state.counters["sizeof_point"] = static_cast<double>(sizeof(CIntegrationPointData));
    if (g_wcSeconds > 0.0 && g_wcCpuSeconds > 0.0) {
        state.counters["ratio_to_wc_l"] = g_prepareSeconds / g_wcSeconds;
        state.counters["cpu_ratio_to_wc_l"] = g_prepareCpuSeconds / g_wcCpuSeconds;
    }
}

} // namespace

BENCHMARK(BM_WcL)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_PlainFixedFieldFromChars)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK(BM_PrepareResultsOnIntegrationPoints)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

int main(int argc, char** argv) {
    if (const char* n = std::getenv("SLABADAPT_BENCH_ELEMENTS"))
        g_setup.elements = std::max(1L, std::atol(n));
    const char* folder = std::getenv("SLABADAPT_BENCH_DIR");
    g_setup.folder = fs::path(folder != nullptr ? folder : fs::temp_directory_path().string()) /
                     ("slabadapt-bench-" + std::to_string(::getpid()));
    fs::create_directories(g_setup.folder);
    g_setup.project = g_setup.folder / "P";
    g_setup.file = g_setup.folder / "P.STRINTG0001";

    std::cerr << "writing " << g_setup.file << " (" << g_setup.elements << " elements) ...\n";
    WriteFile(g_setup);
    g_setup.bytes = fs::file_size(g_setup.file);
    g_setup.lines = 4 + 4 * g_setup.elements;
    std::cerr << "  " << g_setup.bytes / 1e6 << " MB, " << g_setup.lines << " lines\n";
    std::system(("cat '" + g_setup.file.string() + "' > /dev/null").c_str()); // into the page cache

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    const double mb = static_cast<double>(g_setup.bytes) / 1e6;
    std::printf("\nSTRINTG reader: %.1f MB, %ld lines (best of the runs above)\n", mb,
                g_setup.lines);
    std::printf("  %-34s %8s %10s %8s %10s\n", "", "wall s", "MB/s", "CPU s", "MB/CPU-s");
    std::printf("  %-34s %8.3f %10.0f %8.3f %10.0f\n", "wc -l", g_wcSeconds, mb / g_wcSeconds,
                g_wcCpuSeconds, mb / g_wcCpuSeconds);
    if (g_plainSeconds > 0.0)
        std::printf("  %-34s %8.3f %10.0f %8.3f %10.0f   ratio %.1f (wall), %.1f (CPU)\n",
                    "plain fixed fields, from_chars", g_plainSeconds, mb / g_plainSeconds,
                    g_plainCpuSeconds, mb / g_plainCpuSeconds, g_plainSeconds / g_wcSeconds,
                    g_plainCpuSeconds / g_wcCpuSeconds);
    std::printf("  %-34s %8.3f %10.0f %8.3f %10.0f\n", "PrepareResultsOnIntegrationPoints",
                g_prepareSeconds, mb / g_prepareSeconds, g_prepareCpuSeconds,
                mb / g_prepareCpuSeconds);
    std::printf("  ratio to wc -l: %.1f (wall), %.1f (CPU); the reader's CPU time %.3f s is %.3f s "
                "in the kernel\n",
                g_prepareSeconds / g_wcSeconds, g_prepareCpuSeconds / g_wcCpuSeconds,
                g_prepareCpuSeconds, g_prepareSystemSeconds);
    std::error_code ec;
    fs::remove_all(g_setup.folder, ec);
    return 0;
}
