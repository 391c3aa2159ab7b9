// Writing the size field for Gmsh (P.refine.pos) of an n x n quadrilateral mesh: the host
// kit's writer beside the same text made the way it was made before (snprintf "%.17g" per
// value, a string per line), in one run, so that the two compare as a ratio.
//   build/release/bench/host/bench_size_field
#include "host/calclink/solver_writer.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

struct Grid {
    std::vector<std::vector<unsigned long>> elements;
    std::vector<double> sizes;
    std::vector<CKQPoint3D> nodes;
};

Grid MakeGrid(unsigned long n) {
    Grid g;
    const double h = 10.0 / static_cast<double>(n);
    for (unsigned long j = 0; j <= n; ++j)
        for (unsigned long i = 0; i <= n; ++i) {
            g.nodes.emplace_back(h * static_cast<double>(i), h * static_cast<double>(j), 0.0);
            g.sizes.push_back(h * (1.0 + 0.37 * static_cast<double>((i * 7 + j * 3) % 11)));
        }
    for (unsigned long j = 0; j < n; ++j)
        for (unsigned long i = 0; i < n; ++i) {
            const unsigned long a = j * (n + 1) + i + 1;
            g.elements.push_back({a, a + 1, a + n + 2, a + n + 1});
        }
    return g;
}

std::filesystem::path Target() {
    return std::filesystem::temp_directory_path() /
           ("bench-size-field-" + std::to_string(::getpid()) + ".pos");
}

void Writer(benchmark::State& state) {
    const Grid g = MakeGrid(static_cast<unsigned long>(state.range(0)));
    const auto file = Target();
    for (auto _ : state)
        host::calclink::WriteSizeField(file, g.elements, g.sizes, g.nodes);
    state.counters["elements/s"] = benchmark::Counter(
        static_cast<double>(g.elements.size()), benchmark::Counter::kIsIterationInvariantRate);
    state.counters["MB"] = static_cast<double>(std::filesystem::file_size(file)) / 1e6;
    std::filesystem::remove(file);
}

// The text as it was made before: one snprintf a value and a std::string a line.
void PrintfReference(benchmark::State& state) {
    const Grid g = MakeGrid(static_cast<unsigned long>(state.range(0)));
    const auto file = Target();
    auto number = [](double v) {
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, "%.17g", v);
        return std::string(buffer);
    };
    for (auto _ : state) {
        std::FILE* f = std::fopen(file.c_str(), "wb");
        std::fputs("View \"refinement\" {\n", f);
        for (const auto& element : g.elements) {
            std::string line = "SQ(";
            for (std::size_t k = 0; k < element.size(); ++k) {
                const CKQPoint3D& p = g.nodes[element[k] - 1];
                if (k > 0)
                    line += ',';
                line += number(p.x);
                line += ',';
                line += number(p.y);
                line += ',';
                line += number(p.z);
            }
            line += "){";
            for (std::size_t k = 0; k < element.size(); ++k) {
                if (k > 0)
                    line += ',';
                line += number(g.sizes[element[k] - 1]);
            }
            line += "};\n";
            std::fputs(line.c_str(), f);
        }
        std::fputs("};\n", f);
        std::fclose(f);
    }
    state.counters["elements/s"] = benchmark::Counter(
        static_cast<double>(g.elements.size()), benchmark::Counter::kIsIterationInvariantRate);
    std::filesystem::remove(file);
}

BENCHMARK(Writer)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(PrintfReference)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
