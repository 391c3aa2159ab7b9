// The recovery fits both quantities of a patch in one pass, factors each patch's normal
// equations once and keeps the values of recently fitted elements. None of this may change a
// bit: these tests run the recovery as its steps read (one quantity after the other, every
// value asked for at every point, the library's general solver) beside the engine and
// compare the nodal values exactly.
#include "tests/meer/support/meer_mesh.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <vector>

using namespace meertest;
using namespace meerspace;

namespace {

void wavy_field(int kind, const Vec3& p, double* out) {
    for (int c = 0; c < 8; ++c)
        out[c] = kind * 100.0 + c + std::sin(3.0 * p[0] + 0.4 * c) * std::cos(2.0 * p[1] - kind) +
                 0.5 * p[2] * (c + 1) - 1e-3 * p[0] * p[1];
}

// Nodal values [quantity 0/1][node] of region r, recovered step by step.
using Nodal = std::vector<std::vector<std::vector<double>>>;

Nodal literal_recovery(TestEngine& engine, std::int32_t r) {
    const std::int32_t k = engine.regions[r].n_values;
    const auto nodes = static_cast<std::size_t>(engine.n_nodes);
    Nodal values(2, std::vector<std::vector<double>>(nodes));
    std::vector<std::vector<std::int32_t>> counters(2, std::vector<std::int32_t>(nodes, 0));
    engine.prepare_region(r);
    std::vector<NODE*> patch;
    for (std::int32_t n = 0; n < engine.n_nodes; ++n) {
        engine.assemble_patch(engine.nodes[n], patch);
        if (patch.empty())
            continue;
        const NODE& centre = *patch.front();
        const bool local = centre.normals && centre.normals[r];
        const double* f = centre.frame.data;
        auto map = [&](double x, double y, double z, double& u, double& v) {
            if (!local) {
                u = x;
                v = y;
                return;
            }
            const double c0 =
                f[0] * centre.coords.x + f[1] * centre.coords.y + f[2] * centre.coords.z;
            const double c1 =
                f[3] * centre.coords.x + f[4] * centre.coords.y + f[5] * centre.coords.z;
            u = f[0] * x + f[1] * y + f[2] * z - c0;
            v = f[3] * x + f[4] * y + f[5] * z - c1;
        };
        for (int q = 0; q < 2; ++q) {
            double a[3][3] = {};
            std::vector<Dvctr> b(static_cast<std::size_t>(k), Dvctr(3));
            for (std::int32_t i = 0; i < centre.elems.size(); ++i) {
                const std::int32_t e = centre.elems[i];
                const ELEMENT& el = engine.elements[e];
                for (std::int32_t ip = 0; ip < el.n_ips1; ++ip) {
                    double v[8];
                    engine.field(q + 1,
                                 engine.ip1_position(static_cast<std::size_t>(e),
                                                     static_cast<std::size_t>(ip)),
                                 v);
                    double u = 0.0;
                    double w = 0.0;
                    map(el.ip_coords[ip].x, el.ip_coords[ip].y, el.ip_coords[ip].z, u, w);
                    const double p[3] = {1.0, u, w};
                    for (int x = 0; x < 3; ++x)
                        for (int y = x; y < 3; ++y)
                            a[x][y] += p[x] * p[y];
                    for (std::int32_t j = 0; j < k; ++j)
                        for (int t = 0; t < 3; ++t)
                            b[static_cast<std::size_t>(j)][t] += v[j] * p[t];
                }
            }
            Dmtrx m(3, 3);
            for (int x = 0; x < 3; ++x)
                for (int y = 0; y < 3; ++y)
                    m(x, y) = a[std::min(x, y)][std::max(x, y)];
            std::vector<Dvctr> sol(static_cast<std::size_t>(k));
            if (!m.solveMany(sol.data(), b.data(), k)) {
                ADD_FAILURE() << "singular patch at node " << n;
                return values;
            }
            for (NODE* node : patch) {
                double u = 0.0;
                double w = 0.0;
                if (node != &centre || !local)
                    map(node->coords.x, node->coords.y, node->coords.z, u, w);
                const auto c = static_cast<std::size_t>(node->number);
                if (values[static_cast<std::size_t>(q)][c].empty()) {
                    values[static_cast<std::size_t>(q)][c].assign(static_cast<std::size_t>(k), 0.0);
                    counters[static_cast<std::size_t>(q)][c] = 0;
                }
                for (std::int32_t j = 0; j < k; ++j) {
                    const Dvctr& s = sol[static_cast<std::size_t>(j)];
                    values[static_cast<std::size_t>(q)][c][static_cast<std::size_t>(j)] +=
                        s[0] * 1.0 + s[1] * u + s[2] * w;
                }
                ++counters[static_cast<std::size_t>(q)][c];
            }
        }
    }
    for (int q = 0; q < 2; ++q)
        for (std::size_t n = 0; n < nodes; ++n)
            if (counters[static_cast<std::size_t>(q)][n] > 1)
                for (double& v : values[static_cast<std::size_t>(q)][n])
                    v /= counters[static_cast<std::size_t>(q)][n];
    return values;
}

// Runs the engine on mesh and the literal recovery on a copy of it, region by region, and
// compares every nodal value for equality.
void expect_same_bits(const TestMesh& mesh) {
    TestEngine engine(mesh, wavy_field);
    engine.initialize();
    engine.estimate(0.05);
    TestEngine literal(mesh, wavy_field);
    literal.initialize();
    long compared = 0;
    for (std::int32_t r = 0; r < literal.n_regions; ++r) {
        const Nodal expected = literal_recovery(literal, r);
        for (int q = 0; q < 2; ++q) {
            for (std::int32_t n = 0; n < literal.n_nodes; ++n) {
                const auto& want =
                    expected[static_cast<std::size_t>(q)][static_cast<std::size_t>(n)];
                const Dvctr* got = engine.nodal(q + 1, r, n);
                ASSERT_EQ(got != nullptr, !want.empty()) << "region " << r << " node " << n;
                for (std::size_t c = 0; c < want.size(); ++c, ++compared)
                    ASSERT_EQ((*got)[static_cast<std::int32_t>(c)], want[c])
                        << "region " << r << " quantity " << q + 1 << " node " << n << " component "
                        << c;
            }
        }
    }
    EXPECT_GT(compared, 0);
}

TEST(RecoveryExact, AFoldedMixedMeshInTwoRegionsGetsTheValuesOfTheStepByStepRecovery) {
    TestMesh mesh;
    mesh.n_regions = 2;
    add_grid(mesh, 6, 5, 2.0, 1.5, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Mixed, 0, 0.2);
    add_grid(mesh, 6, 4, 2.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 0.6, 0.8}, Cells::Triangles, 1, 0.25,
             3, 777);
    mesh.transform(rotation({0.3, -0.5, 0.8}, 0.7), {10.0, -4.0, 2.5});
    expect_same_bits(mesh);
}

TEST(RecoveryExact, ElementsFarApartInNumberingStillGiveTheSameBits) {
    // More elements than the engine keeps values of, numbered at random, so that the
    // elements of one patch keep displacing each other's values.
    TestMesh mesh;
    add_grid(mesh, 75, 60, 7.5, 6.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Quads, 0, 0.3);
    std::vector<std::size_t> order(mesh.elements.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    Jitter jitter(99);
    for (std::size_t i = order.size() - 1; i > 0; --i) {
        const auto j =
            static_cast<std::size_t>((jitter.next() + 1.0) * 0.5 * static_cast<double>(i + 1)) %
            (i + 1);
        std::swap(order[i], order[j]);
    }
    std::vector<TestElement> shuffled;
    for (std::size_t i : order)
        shuffled.push_back(mesh.elements[i]);
    mesh.elements = std::move(shuffled);
    ASSERT_GT(mesh.elements.size(), 4096u);
    expect_same_bits(mesh);
}

TEST(RecoveryExact, ElementsOfOnePatchInTheSameSlotOfTheCacheGiveTheSameBits) {
    // The engine keeps the values of 4096 elements, by element number modulo 4096. Here the
    // right-hand neighbour of element i (i even, i < 400) is renumbered 4096 + i, so that
    // two elements of the patches around their shared nodes take the same slot: the later one
    // displaces the earlier one while the patch is being gathered.
    TestMesh mesh;
    add_grid(mesh, 75, 60, 7.5, 6.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Quads, 0, 0.3);
    ASSERT_GT(mesh.elements.size(), 4096u + 400u);
    for (std::size_t i = 0; i < 400; i += 2)
        std::swap(mesh.elements[i + 1], mesh.elements[4096 + i]);
    // At least one node lies in two elements whose numbers differ by 4096.
    std::size_t shared = 0;
    for (std::size_t i = 0; i < 400; i += 2) {
        const auto& a = mesh.elements[i].nodes;
        const auto& b = mesh.elements[4096 + i].nodes;
        for (std::int32_t n : a)
            shared += static_cast<std::size_t>(std::count(b.begin(), b.end(), n));
    }
    ASSERT_GT(shared, 0u);
    expect_same_bits(mesh);
}

TEST(RecoveryExact, ElementsWithMoreSamplingPointsThanTheirNeighboursShareTheCache) {
    TestMesh mesh;
    add_grid(mesh, 4, 4, 1.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Mixed, 0, 0.15);
    // One quadrilateral samples at nine points of its own.
    std::vector<NaturalPoint> nine;
    for (double a : {-0.7, 0.0, 0.7})
        for (double b : {-0.7, 0.0, 0.7})
            nine.push_back({{a, b, 0.0}, 4.0 / 9.0});
    for (TestElement& el : mesh.elements) {
        if (el.nodes.size() == 4) {
            el.ips1 = nine;
            break;
        }
    }
    expect_same_bits(mesh);
}

} // namespace
