// Patch test of the estimation engine: a field linear in space is recovered exactly at the
// nodes, every element error vanishes, and every element may grow to twice its size.
#include "tests/meer/support/meer_mesh.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>

using namespace meertest;

namespace {

enum class Geometry { Planar, Tilted, Folded, FoldedSlanted };

std::string name(Geometry g) {
    switch (g) {
    case Geometry::Planar:
        return "Planar";
    case Geometry::Tilted:
        return "Tilted";
    case Geometry::Folded:
        return "Folded";
    default:
        return "FoldedSlanted";
    }
}

std::string name(Cells c) {
    switch (c) {
    case Cells::Quads:
        return "Quads";
    case Cells::Triangles:
        return "Triangles";
    default:
        return "Mixed";
    }
}

TestMesh build(Geometry g, Cells cells, bool perturbed, std::int32_t quad_edi) {
    TestMesh mesh;
    const double p = perturbed ? 0.25 : 0.0;
    switch (g) {
    case Geometry::Planar:
        add_grid(mesh, 6, 5, 1.0, 0.8, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, cells, 0, p, quad_edi);
        break;
    case Geometry::Tilted:
        add_grid(mesh, 6, 5, 1.0, 0.8, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, cells, 0, p, quad_edi);
        mesh.transform(rotation({1.0, 2.0, 3.0}, 0.7), {0.1, 0.2, 0.3});
        break;
    case Geometry::Folded:
        mesh.n_regions = 2;
        add_grid(mesh, 6, 5, 1.0, 0.8, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, cells, 0, p, quad_edi);
        add_grid(mesh, 6, 4, 1.0, 0.6, {0, 0, 0}, {1, 0, 0}, {0, 0, 1}, cells, 1, p, quad_edi, 777);
        break;
    case Geometry::FoldedSlanted:
        mesh.n_regions = 2;
        add_grid(mesh, 6, 5, 1.0, 0.8, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, cells, 0, p, quad_edi);
        add_grid(mesh, 6, 4, 1.0, 0.6, {0, 0, 0}, {1, 0, 0}, {0, -0.6, 0.8}, cells, 1, p, quad_edi,
                 777);
        break;
    }
    return mesh;
}

using Param = std::tuple<Geometry, Cells, bool, std::int32_t>;

class PatchTest : public testing::TestWithParam<Param> {};

TEST_P(PatchTest, LinearFieldIsRecoveredExactly) {
    const auto [geometry, cells, perturbed, quad_edi] = GetParam();
    TestEngine engine(build(geometry, cells, perturbed, quad_edi), linear_field);
    engine.initialize();
    const double eta = engine.estimate(0.05);

    // Every node of every region carries the field's value at the node.
    int checked = 0;
    for (std::int32_t r = 0; r < engine.n_regions; ++r) {
        std::vector<bool> in_region(engine.mesh.nodes.size(), false);
        for (const TestElement& el : engine.mesh.elements)
            if (el.region == r)
                for (std::int32_t n : el.nodes)
                    in_region[static_cast<std::size_t>(n)] = true;
        for (std::int32_t n = 0; n < engine.n_nodes; ++n) {
            if (!in_region[static_cast<std::size_t>(n)]) {
                EXPECT_EQ(engine.nodal(1, r, n), nullptr);
                continue;
            }
            for (int q = 1; q <= 2; ++q) {
                const meerspace::Dvctr* v = engine.nodal(q, r, n);
                ASSERT_NE(v, nullptr) << "region " << r << " node " << n;
                double expected[8];
                linear_field(q, engine.mesh.nodes[static_cast<std::size_t>(n)], expected);
                for (int c = 0; c < 8; ++c)
                    EXPECT_TRUE(near((*v)[c], expected[c], 1e-10))
                        << "region " << r << " node " << n << " quantity " << q << " component "
                        << c;
                ++checked;
            }
        }
    }
    EXPECT_GT(checked, 0);

    for (std::int32_t e = 0; e < engine.n_elems; ++e) {
        const double norm2 = engine.give_elem_norm2()[e];
        EXPECT_GT(norm2, 0.0);
        EXPECT_LE(std::fabs(engine.give_elem_error2()[e]), 1e-20 * norm2) << "element " << e;
        const double area = engine.mesh.area(static_cast<std::size_t>(e));
        const double h = engine.mesh.elements[static_cast<std::size_t>(e)].nodes.size() == 3
                             ? std::sqrt(2 * area)
                             : std::sqrt(area);
        EXPECT_TRUE(near(engine.give_elem_size()[e], h, 1e-15));
        EXPECT_EQ(engine.give_elem_new_size()[e], 2.0 * engine.give_elem_size()[e]);
    }
    EXPECT_LT(eta, 1e-9);
    EXPECT_GE(eta, 0.0);
}

std::string param_name(const testing::TestParamInfo<Param>& info) {
    const auto [g, c, p, edi] = info.param;
    return name(g) + name(c) + (p ? "Perturbed" : "Structured") + "Edi" + std::to_string(edi);
}

INSTANTIATE_TEST_SUITE_P(
    Meshes, PatchTest,
    testing::Combine(testing::Values(Geometry::Planar, Geometry::Tilted, Geometry::Folded,
                                     Geometry::FoldedSlanted),
                     testing::Values(Cells::Quads, Cells::Triangles, Cells::Mixed), testing::Bool(),
                     testing::Values(2, 3)),
    param_name);

} // namespace
