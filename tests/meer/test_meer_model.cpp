// The engine's records, options, enumerations and life cycle.
#include "tests/meer/support/meer_mesh.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <type_traits>

using namespace meertest;
using namespace meerspace;

namespace {

TestMesh two_by_two(std::int32_t regions = 1) {
    TestMesh mesh;
    mesh.n_regions = regions;
    add_grid(mesh, 2, 2, 1.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Quads, 0);
    return mesh;
}

TEST(EngineModel, EnumerationsHaveTheirNumbers) {
    static_assert(std::is_same_v<std::underlying_type_t<MEER_IPValues>, std::int32_t>);
    static_assert(std::is_same_v<std::underlying_type_t<MEER_ElemDisplInterpol>, std::int32_t>);
    EXPECT_EQ(MEER_IPV_NONE, 0);
    EXPECT_EQ(MEER_IPV_DEFORMATIONS, 1);
    EXPECT_EQ(MEER_IPV_FORCES, 2);
    EXPECT_EQ(MEER_EDI_TRIANGLE_LINEAR, 1);
    EXPECT_EQ(MEER_EDI_QUAD_BILINEAR, 2);
    EXPECT_EQ(MEER_EDI_QUAD_BILINEAR_2, 3);
    EXPECT_EQ(kMaxSuperelems, 64);
}

TEST(EngineModel, DefaultConstructedEngineHasNoMeshAndTheDefaultOptions) {
    TestEngine engine(TestMesh{}, linear_field);
    EXPECT_EQ(engine.ipv1_kind, MEER_IPV_NONE);
    EXPECT_EQ(engine.ipv2_kind, MEER_IPV_NONE);
    EXPECT_EQ(engine.nodal_values1, nullptr);
    EXPECT_EQ(engine.nodal_values2, nullptr);
    EXPECT_EQ(engine.give_elem_error2().size(), 0);
    EXPECT_EQ(engine.give_elem_norm2().size(), 0);
    EXPECT_EQ(engine.give_elem_local_error().size(), 0);
    EXPECT_EQ(engine.give_elem_global_error().size(), 0);
    EXPECT_EQ(engine.give_elem_error_density().size(), 0);
    EXPECT_EQ(engine.give_elem_size().size(), 0);
    EXPECT_EQ(engine.give_elem_new_size().size(), 0);
    EXPECT_EQ(engine.enorm, 0);
    EXPECT_EQ(engine.max_size_ratio, 2.0);
    EXPECT_EQ(engine.min_size_ratio, 0.25);
    EXPECT_EQ(engine.patch_mode, 2);
    EXPECT_FALSE(engine.planar);
    EXPECT_EQ(engine.n_regions, 0);
    EXPECT_EQ(engine.regions, nullptr);
    EXPECT_EQ(engine.n_nodes, 0);
    EXPECT_EQ(engine.nodes, nullptr);
    EXPECT_EQ(engine.n_elems, 0);
    EXPECT_EQ(engine.elements, nullptr);
}

TEST(EngineModel, SetNumberOfCreatesDefaultRecordsNumberedByIndex) {
    TestEngine engine(TestMesh{}, linear_field);
    engine.set_number_of_regions(2);
    engine.set_number_of_nodes(3);
    engine.set_number_of_elements(4);
    ASSERT_EQ(engine.n_regions, 2);
    ASSERT_EQ(engine.n_nodes, 3);
    ASSERT_EQ(engine.n_elems, 4);
    for (std::int32_t r = 0; r < 2; ++r) {
        EXPECT_EQ(engine.regions[r].number, r);
        EXPECT_EQ(engine.regions[r].n_values, 0);
        EXPECT_EQ(engine.regions[r].spr_patch_type, 0);
    }
    for (std::int32_t n = 0; n < 3; ++n) {
        const NODE& node = engine.nodes[n];
        EXPECT_EQ(node.number, n);
        EXPECT_EQ(node.normals, nullptr);
        EXPECT_EQ(node.frame.rows, 3);
        EXPECT_EQ(node.frame.cols, 3);
        EXPECT_EQ(node.boundary, 0);
        EXPECT_EQ(node.kind, 0);
        EXPECT_EQ(node.elems.size(), 0);
        EXPECT_EQ(node.coords.x, 0.0);
    }
    for (std::int32_t e = 0; e < 4; ++e) {
        const ELEMENT& el = engine.elements[e];
        EXPECT_EQ(el.number, e);
        EXPECT_EQ(el.region, 0);
        EXPECT_EQ(el.n_nodes, 0);
        EXPECT_EQ(el.nodes, nullptr);
        EXPECT_EQ(el.n_ips1, 0);
        EXPECT_EQ(el.ip_coords, nullptr);
        EXPECT_EQ(el.normal, nullptr);
    }
    EXPECT_EQ(NODE().number, -1);
    EXPECT_EQ(REGION().number, -1);
    EXPECT_EQ(ELEMENT().number, -1);
}

TEST(EngineModel, UnknownEnormStopsTheRunBeforeAnyCallback) {
    TestEngine engine(two_by_two(), linear_field);
    engine.initialize();
    engine.enorm = 0; // as a freshly constructed engine has it
    const std::string text = fatal_output([&] { engine.estimate(0.05); });
    EXPECT_TRUE(is_engine_error(text, "Unknown enorm"));
    EXPECT_EQ(engine.superelem_calls, 0);
    EXPECT_EQ(engine.ip1_value_calls[1] + engine.ip1_value_calls[2], 0);
    EXPECT_EQ(engine.nodal_values1, nullptr);
}

TEST(EngineModel, EnormSelectsTheQuantities) {
    TestEngine energy(two_by_two(), linear_field);
    energy.initialize();
    energy.estimate(0.05);
    EXPECT_EQ(energy.ipv1_kind, MEER_IPV_DEFORMATIONS);
    EXPECT_EQ(energy.ipv2_kind, MEER_IPV_FORCES);
    EXPECT_NE(energy.nodal_values1, nullptr);
    EXPECT_NE(energy.nodal_values2, nullptr);

    TestEngine l2(two_by_two(), linear_field);
    l2.initialize();
    l2.enorm = 4;
    l2.estimate(0.05);
    EXPECT_EQ(l2.ipv1_kind, MEER_IPV_FORCES);
    EXPECT_EQ(l2.ipv2_kind, MEER_IPV_NONE);
    EXPECT_NE(l2.nodal_values1, nullptr);
    EXPECT_EQ(l2.nodal_values2, nullptr);
}

TEST(EngineModel, RegionWithoutValuesIsSkippedByRecovery) {
    TestMesh mesh = two_by_two(2);
    add_grid(mesh, 2, 1, 1.0, 0.5, {0, 0, 0}, {1, 0, 0}, {0, 0, 1}, Cells::Quads, 1);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.regions[1].n_values = 0;
    engine.estimate(0.05); // no "not approximated" for the nodes of region 1
    for (std::int32_t n = 0; n < engine.n_nodes; ++n) {
        EXPECT_EQ(engine.nodal(1, 1, n), nullptr);
        EXPECT_EQ(engine.nodal(2, 1, n), nullptr);
    }
    for (std::int32_t n = 0; n < 9; ++n)
        EXPECT_NE(engine.nodal(1, 0, n), nullptr); // the floor's nodes come first
    // Its elements integrate no components: zero error and norm, so an undefined local
    // error (0 / 0), which is left unguarded.
    for (std::int32_t e = 4; e < engine.n_elems; ++e) {
        EXPECT_EQ(engine.give_elem_error2()[e], 0.0);
        EXPECT_EQ(engine.give_elem_norm2()[e], 0.0);
        EXPECT_TRUE(std::isnan(engine.give_elem_local_error()[e]));
    }
}

TEST(EngineModel, CopySharesTheMeshArrays) {
    auto engine = std::make_unique<TestEngine>(two_by_two(), linear_field);
    engine->initialize();
    const double eta = engine->estimate(0.05);
    {
        TestEngine copy(*engine);
        EXPECT_EQ(copy.nodes, engine->nodes);
        EXPECT_EQ(copy.elements, engine->elements);
        EXPECT_EQ(copy.regions, engine->regions);
        EXPECT_EQ(copy.nodal_values1, engine->nodal_values1);
        EXPECT_EQ(copy.nodal_values2, engine->nodal_values2);
        EXPECT_EQ(copy.n_nodes, engine->n_nodes);
        EXPECT_EQ(copy.n_elems, engine->n_elems);
        EXPECT_EQ(copy.n_regions, engine->n_regions);
        EXPECT_EQ(copy.enorm, engine->enorm);
        EXPECT_EQ(copy.ipv1_kind, engine->ipv1_kind);
        EXPECT_EQ(copy.patch_mode, engine->patch_mode);
        // The result vectors are copies of their own.
        ASSERT_EQ(copy.give_elem_new_size().size(), engine->n_elems);
        EXPECT_NE(copy.give_elem_new_size().data, engine->give_elem_new_size().data);
        for (std::int32_t e = 0; e < engine->n_elems; ++e)
            EXPECT_EQ(copy.give_elem_new_size()[e], engine->give_elem_new_size()[e]);
        // A change through the copy is seen by the source.
        copy.nodes[0].coords.x = 42.0;
        EXPECT_EQ(engine->nodes[0].coords.x, 42.0);
    }
    // The source keeps ownership: its tables survive the copy's destruction.
    EXPECT_EQ(engine->nodes[0].number, 0);
    EXPECT_NE(engine->nodal(1, 0, 0), nullptr);
    EXPECT_GE(eta, 0.0);
    engine.reset(); // frees everything once (the sanitizer build checks for double frees)
}

TEST(EngineModel, EngineWithoutNodesIsDestroyedQuietly) {
    auto engine = std::make_unique<TestEngine>(TestMesh{}, linear_field);
    engine->arm_destruction = false;
    engine->set_number_of_regions(3);
    engine->set_number_of_elements(2);
    engine.reset();
    SUCCEED();
}

TEST(EngineModel, EngineAfterARunIsDestroyedQuietly) {
    auto engine = std::make_unique<TestEngine>(two_by_two(), linear_field);
    engine->arm_destruction = false;
    engine->initialize();
    engine->estimate(0.05);
    for (std::int32_t n = 0; n < engine->n_nodes; ++n)
        EXPECT_NE(engine->nodes[n].normals, nullptr);
    engine.reset();
}

TEST(EngineModelDeathTest, UnpreparedNodesEndTheProcessAtDestruction) {
    EXPECT_DEATH(
        {
            auto* engine = new TestEngine(two_by_two(), linear_field);
            engine->arm_destruction = false;
            engine->initialize(); // nodes exist, no run: no normals arrays
            delete engine;
        },
        "ERROR:  za ktery muze autor teto sqele utility, bezte ho vytahat za usi \\(meer:");
}

TEST(EngineModelDeathTest, RunStoppedBeforePatchPreparationEndsTheProcessAtDestruction) {
    EXPECT_DEATH(
        {
            auto* engine = new TestEngine(two_by_two(), linear_field);
            engine->arm_destruction = false;
            engine->initialize();
            engine->enorm = 7;
            try {
                engine->estimate(0.05);
            } catch (int) {
            }
            delete engine;
        },
        "za ktery muze autor");
}

TEST(EngineModel, RepeatedRunStartsFromFreshNodalValues) {
    // Not a supported use, but it must neither leak nor accumulate old values.
    TestEngine engine(two_by_two(), linear_field);
    engine.initialize();
    const double first = engine.estimate(0.05);
    const double value = (*engine.nodal(1, 0, 4))[3];
    const double second = engine.estimate(0.05);
    EXPECT_EQ(first, second);
    EXPECT_EQ((*engine.nodal(1, 0, 4))[3], value);
    // A run that does not recover quantity 2 leaves its rows as the earlier run left them:
    // only the rows of the quantities in use are allocated afresh.
    Dvctr*** rows2 = engine.nodal_values2;
    const double force = (*engine.nodal(2, 0, 4))[3];
    engine.enorm = 4;
    engine.estimate(0.05);
    EXPECT_EQ(engine.nodal_values2, rows2);
    ASSERT_NE(engine.nodal(2, 0, 4), nullptr);
    EXPECT_EQ((*engine.nodal(2, 0, 4))[3], force);
    // Quantity 1 now holds the forces.
    double expected[8];
    linear_field(2, engine.mesh.nodes[4], expected);
    EXPECT_TRUE(near((*engine.nodal(1, 0, 4))[3], expected[3], 1e-12));
}

TEST(EngineModel, EstimateReturnsTheGlobalRelativeError) {
    TestEngine engine(two_by_two(), [](int kind, const Vec3& p, double* out) {
        for (int c = 0; c < 8; ++c)
            out[c] = (kind == 1 ? 1.0 : 2.0) + std::sin(3 * p[0] + c) * std::cos(2 * p[1]);
    });
    engine.initialize();
    const double eta = engine.estimate(0.05);
    double e2 = 0.0;
    double u2 = 0.0;
    for (std::int32_t e = 0; e < engine.n_elems; ++e) {
        e2 += engine.give_elem_error2()[e];
        u2 += engine.give_elem_norm2()[e];
    }
    EXPECT_GT(e2, 0.0);
    EXPECT_TRUE(near(eta, std::sqrt(e2 / (e2 + u2)), 1e-14));
}

} // namespace
