// Every fatal report of the engine, triggered once each, with its exact text. (The report at
// destruction ends the process and is checked by the death tests of test_meer_model.)
#include "tests/meer/support/meer_mesh.h"

#include <gtest/gtest.h>

#include <vector>

using namespace meertest;
using namespace meerspace;

namespace {

TestMesh grid(int nx = 2, int ny = 2, Cells cells = Cells::Quads) {
    TestMesh mesh;
    add_grid(mesh, nx, ny, 1.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, cells, 0);
    return mesh;
}

std::string run_to_error(TestEngine& engine) {
    return fatal_output([&] { engine.estimate(0.05); });
}

TEST(EngineMessages, UnknownEnorm) {
    TestEngine engine(grid(), linear_field);
    engine.initialize();
    engine.enorm = 3;
    EXPECT_TRUE(is_engine_error(run_to_error(engine), "Unknown enorm"));
}

TEST(EngineMessages, UnknownEdiInTheErrorIntegration) {
    TestMesh mesh = grid();
    mesh.elements[2].edi = 7;
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    EXPECT_TRUE(is_engine_error(run_to_error(engine), "Unknown edi"));
    EXPECT_EQ(engine.give_elem_size().size(), 0); // stopped before the sizing
}

TEST(EngineMessages, UnknownEdiInTheSizing) {
    TestEngine engine(grid(), linear_field);
    engine.initialize();
    engine.estimate(0.05);
    engine.mesh.elements[1].edi = 0;
    EXPECT_TRUE(
        is_engine_error(fatal_output([&] { engine.compute_refinement(0.05); }), "Unknown edi"));
}

TEST(EngineMessages, UnknownSprPatchTypeWhenPreparingARegion) {
    TestEngine engine(grid(), linear_field);
    engine.patch_type = 2;
    engine.initialize();
    EXPECT_TRUE(is_engine_error(run_to_error(engine), "Unknown SPR patch type"));
}

TEST(EngineMessages, UnknownSprPatchTypeWhenFitting) {
    TestEngine engine(grid(), linear_field);
    engine.initialize();
    engine.estimate(0.05);
    std::vector<NODE*> patch;
    engine.assemble_patch(engine.nodes[4], patch);
    ASSERT_FALSE(patch.empty());
    engine.regions[0].spr_patch_type = 0;
    std::vector<Dvctr*> values(static_cast<std::size_t>(engine.n_nodes), nullptr);
    Lvctr counter(engine.n_nodes);
    EXPECT_TRUE(is_engine_error(
        fatal_output([&] { engine.fit_patch(0, patch, MEER_IPV_FORCES, values.data(), counter); }),
        "Unknown SPR patch type"));
}

TEST(EngineMessages, BadPatchModeWhenPreparingARegion) {
    TestEngine engine(grid(), linear_field);
    engine.initialize();
    engine.patch_mode = 0;
    EXPECT_TRUE(is_engine_error(run_to_error(engine), kInternal));
}

TEST(EngineMessages, BadPatchModeWhenAssemblingAPatch) {
    TestEngine engine(grid(), linear_field);
    engine.initialize();
    engine.prepare_region(0);
    engine.patch_mode = 3;
    std::vector<NODE*> patch;
    EXPECT_TRUE(is_engine_error(
        fatal_output([&] { engine.assemble_patch(engine.nodes[4], patch); }), kInternal));
}

TEST(EngineMessages, ValuesOfQuantityOneNotApproximated) {
    // A lone element with two sampling points: all its nodes are kind 2 and nobody serves
    // them; the first one, index 0, is reported as 1.
    TestMesh mesh;
    const auto a = mesh.add_node({0, 0, 0});
    const auto b = mesh.add_node({1, 0, 0});
    const auto c = mesh.add_node({0, 1, 0});
    mesh.add_element({a, b, c});
    mesh.elements[0].ips1.resize(2);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    EXPECT_TRUE(is_engine_error(run_to_error(engine), "values at node 1 not approximated"));
    EXPECT_EQ(engine.nodes[0].kind, 2);
}

TEST(EngineMessages, ValuesOfQuantityTwoNotApproximated) {
    TestMesh mesh;
    mesh.add_node({5, 5, 0}); // unused, so the first reported node is index 1
    const auto a = mesh.add_node({0, 0, 0});
    const auto b = mesh.add_node({1, 0, 0});
    const auto c = mesh.add_node({0, 1, 0});
    mesh.add_element({a, b, c});
    mesh.elements[0].ips1.resize(1);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.ipv1_kind = MEER_IPV_NONE;
    engine.ipv2_kind = MEER_IPV_FORCES;
    EXPECT_TRUE(is_engine_error(fatal_output([&] { engine.recover_nodal_values(); }),
                                "values at node 2 not approximated"));
}

TEST(EngineMessages, ValuesMissingWhenIntegratingTheErrors) {
    // Error integration without a recovery has no nodal values to interpolate.
    TestEngine engine(grid(), linear_field);
    engine.initialize();
    engine.ipv1_kind = MEER_IPV_DEFORMATIONS;
    engine.ipv2_kind = MEER_IPV_FORCES;
    engine.enorm = 2;
    EXPECT_TRUE(is_engine_error(fatal_output([&] { engine.compute_element_errors(); }),
                                "values at node 1 not approximated"));
}

TEST(EngineMessages, ProblemWithThePatchAroundANode) {
    TestMesh mesh;
    const auto a = mesh.add_node({0, 0, 0});
    const auto b = mesh.add_node({1, 0, 0});
    const auto c = mesh.add_node({0, 1, 0});
    const auto t = mesh.add_element({a, b, c});
    TestEngine engine(std::move(mesh), linear_field);
    engine.ip1_positions[t] = {{0.1, 0.1, 0}, {0.2, 0.2, 0}, {0.3, 0.3, 0}};
    engine.initialize();
    EXPECT_TRUE(is_engine_error(run_to_error(engine), "Problem s zaplatou elementu kolem uzlu 0"));
}

TEST(EngineMessages, CollapsedNormal) {
    // Two copies of one triangle with opposite orientation: their normals cancel.
    TestMesh mesh;
    const auto a = mesh.add_node({0, 0, 0});
    const auto b = mesh.add_node({1, 0, 0});
    const auto c = mesh.add_node({0, 1, 0});
    mesh.add_element({a, b, c});
    mesh.add_element({a, c, b});
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    EXPECT_TRUE(is_engine_error(run_to_error(engine), "collapsed normal"));
}

TEST(EngineMessages, UnsupportedNumberOfNodesAtElement) {
    TestMesh mesh = grid(1, 1);
    const auto e = mesh.add_node({2, 0, 0});
    mesh.add_element({0, 1, 3, 2, e});
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    EXPECT_TRUE(is_engine_error(run_to_error(engine), "Unsupported number of nodes at element"));
}

TEST(EngineMessages, LoneElementThatIsNeitherTriangleNorQuadrilateral) {
    // Only reachable without element normals, i.e. in planar mode.
    TestMesh mesh;
    std::vector<std::int32_t> ids;
    for (int i = 0; i < 5; ++i)
        ids.push_back(mesh.add_node({std::cos(1.2566 * i), std::sin(1.2566 * i), 0}));
    mesh.add_element(ids);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.planar = true;
    EXPECT_TRUE(is_engine_error(run_to_error(engine), kInternal));
}

TEST(EngineMessages, LowNumberOfIntPointsOfATriangle) {
    TestMesh mesh = grid(1, 1, Cells::Triangles);
    mesh.elements[1].ips2.resize(2);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    EXPECT_TRUE(is_engine_error(run_to_error(engine), "low number of int points"));
}

TEST(EngineMessages, LowNumberOfIntPointsOfAQuadrilateral) {
    TestMesh mesh = grid(2, 1);
    mesh.elements[1].ips2.resize(3);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    EXPECT_TRUE(is_engine_error(run_to_error(engine), "low number of int points"));
}

TEST(EngineMessages, UnsupportedEnorm) {
    TestEngine engine(grid(), linear_field);
    engine.initialize();
    engine.ipv1_kind = MEER_IPV_DEFORMATIONS;
    engine.ipv2_kind = MEER_IPV_FORCES;
    engine.recover_nodal_values();
    engine.enorm = 3;
    EXPECT_TRUE(is_engine_error(fatal_output([&] { engine.compute_element_errors(); }),
                                "Unsupported enorm"));
}

TEST(EngineMessages, NormWithoutItsQuantitiesIsAnInternalError) {
    TestEngine engine(grid(), linear_field);
    engine.initialize();
    engine.ipv1_kind = MEER_IPV_FORCES;
    engine.ipv2_kind = MEER_IPV_NONE;
    engine.recover_nodal_values();
    engine.enorm = 2; // asks for the product with a quantity that was not recovered
    EXPECT_TRUE(is_engine_error(fatal_output([&] { engine.compute_element_errors(); }), kInternal));
}

} // namespace
