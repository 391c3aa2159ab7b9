// Throughput of MEER::estimate on structured quadrilateral meshes served from memory, single
// thread, and of a minimal hand-written linear patch recovery with error integration on the
// same data (the yardstick). Also counts heap allocations made during estimate.
//
//   bench_meer --benchmark_counters_tabular=true
#include "meer/meer.h"

#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <new>
#include <vector>

// ---- Allocation counting ---------------------------------------------------------------------

namespace {
std::atomic<long> g_allocations{0};
}

// Kept out of line so that the compiler never pairs an inlined free with a new expression.
__attribute__((noinline)) void* operator new(std::size_t n) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(n ? n : 1))
        return p;
    throw std::bad_alloc();
}
__attribute__((noinline)) void* operator new[](std::size_t n) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(n ? n : 1))
        return p;
    throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* p) noexcept {
    std::free(p);
}
__attribute__((noinline)) void operator delete[](void* p) noexcept {
    std::free(p);
}
__attribute__((noinline)) void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
__attribute__((noinline)) void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}

namespace {

using meerspace::MEER_ElemDisplInterpol;
using meerspace::MEER_IPValues;

constexpr int kComponents = 8;
constexpr int kIps = 4;
constexpr double kThickness = 0.2;

// Natural coordinates of the 2 x 2 Gauss points and the bilinear shape functions with the
// first node at (-1, -1).
const double kGauss = 1.0 / std::sqrt(3.0);
const std::array<std::array<double, 2>, kIps> kNatural = {
    {{-kGauss, -kGauss}, {kGauss, -kGauss}, {kGauss, kGauss}, {-kGauss, kGauss}}};

std::array<double, 4> shape(double xi, double eta) {
    return {0.25 * (1 - xi) * (1 - eta), 0.25 * (1 + xi) * (1 - eta), 0.25 * (1 + xi) * (1 + eta),
            0.25 * (1 - xi) * (1 + eta)};
}

// A structured n x n mesh of the unit square with values of both quantities at every
// integration point.
struct QuadMesh {
    explicit QuadMesh(int n) : n(n) {
        const int nodes = (n + 1) * (n + 1);
        const int elems = n * n;
        const double h = 1.0 / n;
        x.resize(static_cast<std::size_t>(nodes));
        y.resize(static_cast<std::size_t>(nodes));
        for (int j = 0; j <= n; ++j)
            for (int i = 0; i <= n; ++i) {
                x[static_cast<std::size_t>(j * (n + 1) + i)] = i * h;
                y[static_cast<std::size_t>(j * (n + 1) + i)] = j * h;
            }
        conn.resize(static_cast<std::size_t>(4 * elems));
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i) {
                const int e = j * n + i;
                const int a = j * (n + 1) + i;
                conn[static_cast<std::size_t>(4 * e)] = a;
                conn[static_cast<std::size_t>(4 * e + 1)] = a + 1;
                conn[static_cast<std::size_t>(4 * e + 2)] = a + n + 2;
                conn[static_cast<std::size_t>(4 * e + 3)] = a + n + 1;
            }
        // Node-to-element lists in ascending element order.
        start.assign(static_cast<std::size_t>(nodes + 1), 0);
        for (std::int32_t v : conn)
            ++start[static_cast<std::size_t>(v + 1)];
        for (int i = 0; i < nodes; ++i)
            start[static_cast<std::size_t>(i + 1)] += start[static_cast<std::size_t>(i)];
        list.resize(conn.size());
        std::vector<std::int32_t> fill(start.begin(), start.end() - 1);
        for (int e = 0; e < elems; ++e)
            for (int k = 0; k < 4; ++k) {
                const auto v = static_cast<std::size_t>(conn[static_cast<std::size_t>(4 * e + k)]);
                list[static_cast<std::size_t>(fill[v]++)] = e;
            }
        ipx.resize(static_cast<std::size_t>(kIps * elems));
        ipy.resize(ipx.size());
        values.resize(ipx.size() * 2 * kComponents);
        for (int e = 0; e < elems; ++e)
            for (int ip = 0; ip < kIps; ++ip) {
                const auto nf = shape(kNatural[static_cast<std::size_t>(ip)][0],
                                      kNatural[static_cast<std::size_t>(ip)][1]);
                double px = 0.0;
                double py = 0.0;
                for (int k = 0; k < 4; ++k) {
                    const auto v =
                        static_cast<std::size_t>(conn[static_cast<std::size_t>(4 * e + k)]);
                    px += nf[static_cast<std::size_t>(k)] * x[v];
                    py += nf[static_cast<std::size_t>(k)] * y[v];
                }
                const auto p = static_cast<std::size_t>(kIps * e + ip);
                ipx[p] = px;
                ipy[p] = py;
                double* out = &values[p * 2 * kComponents];
                for (int c = 0; c < kComponents; ++c) {
                    const double g = 2.0 + std::sin(3.0 * px + 0.2 * c) * std::cos(2.0 * py);
                    out[c] = g;                                  // deformations
                    out[kComponents + c] = (1.0 + 0.25 * c) * g; // forces
                }
            }
    }
    std::int32_t elements() const { return n * n; }
    std::int32_t nodes() const { return (n + 1) * (n + 1); }
    const double* at(std::int32_t e, int ip, int kind) const {
        return &values[(static_cast<std::size_t>(kIps * e + ip) * 2 + (kind == 2 ? 1 : 0)) *
                       kComponents];
    }

    int n;
    std::vector<double> x, y;
    std::vector<std::int32_t> conn, start, list;
    std::vector<double> ipx, ipy, values;
};

const QuadMesh& mesh_of(int n) {
    static std::map<int, std::unique_ptr<QuadMesh>> cache;
    auto& slot = cache[n];
    if (!slot)
        slot = std::make_unique<QuadMesh>(n);
    return *slot;
}

// The engine over a QuadMesh.
class MemoryEngine final : public meerspace::MEER {
public:
    explicit MemoryEngine(const QuadMesh& m) : m_mesh(m) {}

    // The first step of the recovery alone: element normals, the nodes' element lists and
    // boundary classes, the frames.
    void prepare(std::int32_t region) { prepare_region(region); }

    void initialize() override {
        enorm = 2;
        max_size_ratio = 2.0;
        min_size_ratio = 0.25;
        set_number_of_nodes(m_mesh.nodes());
        set_number_of_elements(m_mesh.elements());
        set_number_of_regions(1);
        for (std::int32_t i = 0; i < n_nodes; ++i) {
            nodes[i].coords.x = m_mesh.x[static_cast<std::size_t>(i)];
            nodes[i].coords.y = m_mesh.y[static_cast<std::size_t>(i)];
            nodes[i].coords.z = 0.0;
        }
        for (std::int32_t e = 0; e < n_elems; ++e) {
            meerspace::ELEMENT& el = elements[e];
            el.region = 0;
            el.n_nodes = 4;
            el.nodes = new std::int32_t[4];
            std::memcpy(el.nodes, &m_mesh.conn[static_cast<std::size_t>(4 * e)],
                        4 * sizeof(std::int32_t));
            el.n_ips1 = kIps;
            el.ip_coords = new meerspace::PoinT[kIps];
            for (int ip = 0; ip < kIps; ++ip) {
                el.ip_coords[ip].x = m_mesh.ipx[static_cast<std::size_t>(kIps * e + ip)];
                el.ip_coords[ip].y = m_mesh.ipy[static_cast<std::size_t>(kIps * e + ip)];
            }
        }
        regions[0].n_values = kComponents;
        regions[0].spr_patch_type = 1;
    }

protected:
    void give_superelems_to_node(std::int32_t node, std::int32_t& count,
                                 std::int32_t* elems) const override {
        const std::int32_t b = m_mesh.start[static_cast<std::size_t>(node)];
        count = m_mesh.start[static_cast<std::size_t>(node) + 1] - b;
        std::memcpy(elems, &m_mesh.list[static_cast<std::size_t>(b)],
                    static_cast<std::size_t>(count) * sizeof(std::int32_t));
    }
    MEER_ElemDisplInterpol give_element_EDI(std::int32_t) override {
        return meerspace::MEER_EDI_QUAD_BILINEAR_2;
    }
    double give_element_area(std::int32_t) const override {
        return 1.0 / (static_cast<double>(m_mesh.n) * m_mesh.n);
    }
    double give_element_thickness(std::int32_t) const override { return kThickness; }
    double give_element_thickness_reduced(std::int32_t) const override { return kThickness; }
    std::int32_t give_number_of_IPs2(std::int32_t) const override { return kIps; }
    double give_IPs2_coords_natural(std::int32_t, int ip, double* coords) const override {
        coords[0] = kNatural[static_cast<std::size_t>(ip)][0];
        coords[1] = kNatural[static_cast<std::size_t>(ip)][1];
        coords[2] = 0.0;
        return 1.0;
    }
    void give_IPs1_values(std::int32_t elem, int ip, MEER_IPValues kind, std::int32_t count,
                          double* values) const override {
        std::memcpy(values, m_mesh.at(elem, ip, kind),
                    static_cast<std::size_t>(count) * sizeof(double));
    }
    void give_IPs2_values(std::int32_t elem, int ip, MEER_IPValues kind, std::int32_t count,
                          double* values) const override {
        std::memcpy(values, m_mesh.at(elem, ip, kind),
                    static_cast<std::size_t>(count) * sizeof(double));
    }
    std::int32_t give_IPs1_values_count(std::int32_t, int, MEER_IPValues) const override {
        return kComponents;
    }
    std::int32_t give_IPs2_values_count(std::int32_t, int, MEER_IPValues) const override {
        return kComponents;
    }
    bool is_element_valid(std::int32_t) const override { return true; }

private:
    const QuadMesh& m_mesh;
};

// ---- The yardstick ----------------------------------------------------------------------------

// Minimal linear SPR: every node fits (1, x, y) in coordinates centred at the node over the
// sampling points of its elements, both quantities at once, and takes the constant term;
// then the energy-type error of every element is integrated with the bilinear interpolant,
// and the sizes follow with the same clamps as the engine's.
struct Yardstick {
    explicit Yardstick(const QuadMesh& m)
        : mesh(m), nodal(static_cast<std::size_t>(m.nodes()) * 2 * kComponents),
          error2(static_cast<std::size_t>(m.elements())),
          norm2(static_cast<std::size_t>(m.elements())),
          new_size(static_cast<std::size_t>(m.elements())) {
        for (int ip = 0; ip < kIps; ++ip)
            n_at[static_cast<std::size_t>(ip)] = shape(kNatural[static_cast<std::size_t>(ip)][0],
                                                       kNatural[static_cast<std::size_t>(ip)][1]);
    }

    double run(double target) {
        constexpr int kRhs = 2 * kComponents;
        for (std::int32_t v = 0; v < mesh.nodes(); ++v) {
            const double cx = mesh.x[static_cast<std::size_t>(v)];
            const double cy = mesh.y[static_cast<std::size_t>(v)];
            double a00 = 0, a01 = 0, a02 = 0, a11 = 0, a12 = 0, a22 = 0;
            double b[kRhs][3] = {};
            for (std::int32_t k = mesh.start[static_cast<std::size_t>(v)];
                 k < mesh.start[static_cast<std::size_t>(v) + 1]; ++k) {
                const std::int32_t e = mesh.list[static_cast<std::size_t>(k)];
                for (int ip = 0; ip < kIps; ++ip) {
                    const auto p = static_cast<std::size_t>(kIps * e + ip);
                    const double u = mesh.ipx[p] - cx;
                    const double w = mesh.ipy[p] - cy;
                    a00 += 1;
                    a01 += u;
                    a02 += w;
                    a11 += u * u;
                    a12 += u * w;
                    a22 += w * w;
                    const double* val = &mesh.values[p * kRhs];
                    for (int c = 0; c < kRhs; ++c) {
                        b[c][0] += val[c];
                        b[c][1] += val[c] * u;
                        b[c][2] += val[c] * w;
                    }
                }
            }
            // First row of the inverse: the constant term is all that the node needs.
            const double c00 = a11 * a22 - a12 * a12;
            const double c01 = a02 * a12 - a01 * a22;
            const double c02 = a01 * a12 - a02 * a11;
            const double inv = 1.0 / (a00 * c00 + a01 * c01 + a02 * c02);
            double* out = &nodal[static_cast<std::size_t>(v) * kRhs];
            for (int c = 0; c < kRhs; ++c)
                out[c] = (c00 * b[c][0] + c01 * b[c][1] + c02 * b[c][2]) * inv;
        }
        const double area = 1.0 / (static_cast<double>(mesh.n) * mesh.n);
        const double fac = 0.25 * area * kThickness;
        double e2 = 0.0;
        double u2 = 0.0;
        for (std::int32_t e = 0; e < mesh.elements(); ++e) {
            const double* nv[4];
            for (int k = 0; k < 4; ++k)
                nv[k] = &nodal[static_cast<std::size_t>(
                                   mesh.conn[static_cast<std::size_t>(4 * e + k)]) *
                               kRhs];
            double de = 0.0;
            double dn = 0.0;
            for (int ip = 0; ip < kIps; ++ip) {
                const auto& n = n_at[static_cast<std::size_t>(ip)];
                const double* h = mesh.at(e, ip, 1);
                for (int c = 0; c < kComponents; ++c) {
                    const double s1 =
                        n[0] * nv[0][c] + n[1] * nv[1][c] + n[2] * nv[2][c] + n[3] * nv[3][c];
                    const int c2 = c + kComponents;
                    const double s2 =
                        n[0] * nv[0][c2] + n[1] * nv[1][c2] + n[2] * nv[2][c2] + n[3] * nv[3][c2];
                    de += (s1 - h[c]) * (s2 - h[c2]);
                    dn += h[c] * h[c2];
                }
            }
            error2[static_cast<std::size_t>(e)] = fac * de;
            norm2[static_cast<std::size_t>(e)] = fac * dn;
            e2 += fac * de;
            u2 += fac * dn;
        }
        const double em = target * std::sqrt((e2 + u2) / mesh.elements());
        const double h = std::sqrt(area);
        for (std::int32_t e = 0; e < mesh.elements(); ++e) {
            double xi = std::sqrt(std::max(error2[static_cast<std::size_t>(e)], 0.0)) / em;
            xi = std::min(std::max(xi, 0.5), 4.0);
            new_size[static_cast<std::size_t>(e)] = h / xi;
        }
        return std::sqrt(e2 / (e2 + u2));
    }

    const QuadMesh& mesh;
    std::array<std::array<double, 4>, kIps> n_at{};
    std::vector<double> nodal, error2, norm2, new_size;
};

// ---- Benchmarks -------------------------------------------------------------------------------

// CPU time of this thread: the machine is shared, so wall time would count others' work.
double thread_seconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

int side_of(std::int64_t elements) {
    return static_cast<int>(std::lround(std::sqrt(static_cast<double>(elements))));
}

void BM_Estimate(benchmark::State& state) {
    const QuadMesh& mesh = mesh_of(side_of(state.range(0)));
    long allocations = 0;
    double eta = 0.0;
    for (auto _ : state) {
        auto engine = std::make_unique<MemoryEngine>(mesh);
        engine->initialize();
        const long before = g_allocations.load();
        const double t0 = thread_seconds();
        eta = engine->estimate(0.05);
        const double t1 = thread_seconds();
        allocations = g_allocations.load() - before;
        benchmark::DoNotOptimize(eta);
        state.SetIterationTime(t1 - t0);
        engine.reset();
    }
    state.SetItemsProcessed(state.iterations() * mesh.elements());
    state.counters["elements"] = mesh.elements();
    state.counters["allocs/element"] = static_cast<double>(allocations) / mesh.elements();
    state.counters["eta"] = eta;
}

// The same run step by step, to see where the time goes (shares of the estimate time).
void BM_EstimateSteps(benchmark::State& state) {
    const QuadMesh& mesh = mesh_of(side_of(state.range(0)));
    double recover = 0.0;
    double preparation = 0.0;
    double errors = 0.0;
    double sizing = 0.0;
    for (auto _ : state) {
        auto engine = std::make_unique<MemoryEngine>(mesh);
        engine->initialize();
        const double t0 = thread_seconds();
        engine->ipv1_kind = meerspace::MEER_IPV_DEFORMATIONS; // what estimate sets for enorm 2
        engine->ipv2_kind = meerspace::MEER_IPV_FORCES;
        engine->recover_nodal_values();
        const double t1 = thread_seconds();
        engine->compute_element_errors();
        const double t2 = thread_seconds();
        benchmark::DoNotOptimize(engine->compute_refinement(0.05));
        const double t3 = thread_seconds();
        recover += t1 - t0;
        errors += t2 - t1;
        sizing += t3 - t2;
        state.SetIterationTime(t3 - t0);
        engine.reset();
        // The recovery's first step on its own, on an engine of its own.
        auto prepared = std::make_unique<MemoryEngine>(mesh);
        prepared->initialize();
        const double p0 = thread_seconds();
        prepared->prepare(0);
        preparation += thread_seconds() - p0;
    }
    const double total = recover + errors + sizing;
    state.SetItemsProcessed(state.iterations() * mesh.elements());
    state.counters["recovery"] = recover / total;
    state.counters["preparation"] = preparation / total; // part of the recovery
    state.counters["errors"] = errors / total;
    state.counters["sizing"] = sizing / total;
}

void BM_Yardstick(benchmark::State& state) {
    const QuadMesh& mesh = mesh_of(side_of(state.range(0)));
    Yardstick yardstick(mesh);
    double eta = 0.0;
    for (auto _ : state) {
        eta = yardstick.run(0.05);
        benchmark::DoNotOptimize(eta);
    }
    state.SetItemsProcessed(state.iterations() * mesh.elements());
    state.counters["elements"] = mesh.elements();
    state.counters["eta"] = eta;
}

BENCHMARK(BM_Estimate)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(1.0);
BENCHMARK(BM_EstimateSteps)
    ->Arg(100'000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(1.0);
// The yardstick has no set-up to leave out, so its CPU time is the measure.
BENCHMARK(BM_Yardstick)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(1.0);

} // namespace

BENCHMARK_MAIN();
