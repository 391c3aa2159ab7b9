// Convergence of the global error estimate under uniform refinement.
//
// The sampled field u is smooth and is given exactly at the sampling points. A linear
// least-squares fit over a patch of size O(h) reproduces u at the patch nodes up to
// O(h^2) (the first neglected Taylor term), and the bilinear (or linear) interpolation of
// the nodal values differs from u at the integration points by another O(h^2). The pointwise
// difference e is therefore O(h^2); the element error integrates e1 . e2 = c |e|^2 over the
// element, so E2 = sum of them is O(h^4) while U2 tends to the fixed integral of u1 . u2.
// The estimate eta = sqrt(E2 / (E2 + U2)) thus falls like h^2: halving h divides it by 4,
// an observed rate of 2.
#include "tests/meer/support/meer_mesh.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <vector>

using namespace meertest;

namespace {

// Quantity 2 is quantity 1 scaled per component, so that e1 . e2 >= 0 pointwise.
void smooth_field(int kind, const Vec3& p, double* out) {
    for (int c = 0; c < 8; ++c) {
        const double g = 2.0 + std::sin(1.3 * p[0] + 0.7 * p[1] + 0.2 * c) *
                                   std::cos(0.9 * p[1] - 0.4 * p[0] + 0.5 * p[2]);
        out[c] = kind == 1 ? g : (1.0 + 0.25 * c) * g;
    }
}

struct Row {
    int n;
    double h;
    double eta;
};

std::vector<Row> run(Cells cells, bool tilted) {
    std::vector<Row> rows;
    for (int n : {8, 16, 32, 64}) {
        TestMesh mesh;
        add_grid(mesh, n, n, 2.0, 2.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, cells, 0);
        if (tilted)
            mesh.transform(rotation({-1.0, 2.0, 0.5}, 0.6), {0.3, -0.2, 0.1});
        TestEngine engine(std::move(mesh), smooth_field);
        engine.initialize();
        rows.push_back({n, 2.0 / n, engine.estimate(0.05)});
    }
    return rows;
}

void check_rate(const std::vector<Row>& rows, const char* title) {
    std::printf("\n%s\n%6s %12s %14s %8s\n", title, "n", "h", "eta", "rate");
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (i == 0) {
            std::printf("%6d %12.6f %14.6e %8s\n", rows[i].n, rows[i].h, rows[i].eta, "-");
            continue;
        }
        const double rate =
            std::log(rows[i - 1].eta / rows[i].eta) / std::log(rows[i - 1].h / rows[i].h);
        std::printf("%6d %12.6f %14.6e %8.3f\n", rows[i].n, rows[i].h, rows[i].eta, rate);
        // Pre-asymptotic meshes may deviate a little; the finest pair must be close to 2.
        const double margin = i + 1 == rows.size() ? 0.1 : 0.25;
        EXPECT_NEAR(rate, 2.0, margin)
            << title << ", meshes " << rows[i - 1].n << " and " << rows[i].n;
    }
    std::fflush(stdout);
}

TEST(Convergence, QuadsFallAtRateTwo) {
    check_rate(run(Cells::Quads, false), "quadrilaterals");
}

TEST(Convergence, TrianglesFallAtRateTwo) {
    check_rate(run(Cells::Triangles, false), "triangles");
}

TEST(Convergence, TiltedMixedMeshFallsAtRateTwo) {
    check_rate(run(Cells::Mixed, true), "mixed cells in a tilted plane");
}

} // namespace
