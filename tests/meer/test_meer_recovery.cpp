// Patch recovery: node frames, boundary classes, patch assembly, least-squares fitting and
// averaging.
#include "tests/meer/support/meer_mesh.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

using namespace meertest;
using namespace meerspace;

namespace {

void nonlinear_field(int kind, const Vec3& p, double* out) {
    for (int c = 0; c < 8; ++c)
        out[c] =
            kind + 0.5 * c + std::sin(2.0 * p[0] + 0.3 * c) * std::exp(0.7 * p[1]) + p[2] * p[2];
}

void expect_frame(const Dmtrx& f, const std::array<double, 9>& rows, double tol = 0.0) {
    for (int i = 0; i < 9; ++i)
        EXPECT_TRUE(near(f.data[i], rows[static_cast<std::size_t>(i)], 0.0, tol))
            << "frame entry " << i;
}

void expect_exact_values(const TestEngine& engine, std::int32_t r) {
    for (std::int32_t n = 0; n < engine.n_nodes; ++n) {
        if (engine.nodes[n].kind == 0)
            continue;
        for (int q = 1; q <= 2; ++q) {
            const Dvctr* v = engine.nodal(q, r, n);
            ASSERT_NE(v, nullptr);
            double expected[8];
            linear_field(q, engine.mesh.nodes[static_cast<std::size_t>(n)], expected);
            for (int c = 0; c < 8; ++c)
                EXPECT_TRUE(near((*v)[c], expected[c], 1e-10)) << "node " << n;
        }
    }
}

// Independent linear least-squares fit in global x, y of component c of kind over the IPs1
// of the given elements, evaluated at point q.
double reference_fit(const TestEngine& engine, const std::vector<std::int32_t>& elems, int kind,
                     int c, const Vec3& q) {
    double a[3][3] = {};
    double b[3] = {};
    for (std::int32_t e : elems) {
        const auto& el = engine.mesh.elements[static_cast<std::size_t>(e)];
        for (std::size_t i = 0; i < el.ips1.size(); ++i) {
            const Vec3 p = engine.ip1_position(static_cast<std::size_t>(e), i);
            double v[8];
            engine.field(kind, p, v);
            const double basis[3] = {1.0, p[0], p[1]};
            for (int x = 0; x < 3; ++x) {
                for (int y = 0; y < 3; ++y)
                    a[x][y] += basis[x] * basis[y];
                b[x] += v[c] * basis[x];
            }
        }
    }
    auto det = [](double m[3][3]) {
        return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
               m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
               m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    };
    const double d = det(a);
    double coef[3];
    for (int k = 0; k < 3; ++k) {
        double m[3][3];
        for (int x = 0; x < 3; ++x)
            for (int y = 0; y < 3; ++y)
                m[x][y] = y == k ? b[x] : a[x][y];
        coef[k] = det(m) / d;
    }
    return coef[0] + coef[1] * q[0] + coef[2] * q[1];
}

// The node's stored normal of region 0 is exactly the sum of its elements' normals (a corner
// node's sum, one element's normal, is far from unit length).
void expect_summed_normal(const TestEngine& engine, std::int32_t n) {
    const NODE& node = engine.nodes[n];
    ASSERT_NE(node.normals[0], nullptr);
    VectoR sum;
    for (std::int32_t i = 0; i < node.elems.size(); ++i)
        sum.add(*engine.elements[node.elems[i]].normal);
    EXPECT_EQ(node.normals[0]->x, sum.x) << "node " << n;
    EXPECT_EQ(node.normals[0]->y, sum.y) << "node " << n;
    EXPECT_EQ(node.normals[0]->z, sum.z) << "node " << n;
    if (node.elems.size() == 1) {
        EXPECT_LT(node.normals[0]->length(), 0.5) << "node " << n;
    }
}

// Index of the grid node (i, j) of a single add_grid call on an empty mesh.
std::int32_t grid_node(int nx, int i, int j) {
    return j * (nx + 1) + i;
}

TEST(Recovery, FlatMeshInXYHasNoLocalFrameAndFitsInGlobalXY) {
    TestMesh mesh;
    add_grid(mesh, 2, 2, 1.0, 1.0, {0.5, 0.25, 3.0}, {1, 0, 0}, {0, 1, 0}, Cells::Quads, 0);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.estimate(0.05);
    for (std::int32_t n = 0; n < engine.n_nodes; ++n) {
        ASSERT_NE(engine.nodes[n].normals, nullptr);
        EXPECT_EQ(engine.nodes[n].normals[0], nullptr) << "node " << n;
        expect_frame(engine.nodes[n].frame, {1, 0, 0, 0, 1, 0, 0, 0, 1});
    }
    expect_exact_values(engine, 0);

    // The frame is not looked at without a normal: a zero frame still fits...
    const std::int32_t centre = 4;
    engine.nodes[centre].frame.zero();
    std::vector<NODE*> patch;
    engine.assemble_patch(engine.nodes[centre], patch);
    ASSERT_FALSE(patch.empty());
    std::vector<Dvctr*> values(static_cast<std::size_t>(engine.n_nodes), nullptr);
    Lvctr counter(engine.n_nodes);
    engine.fit_patch(0, patch, MEER_IPV_DEFORMATIONS, values.data(), counter);
    ASSERT_NE(values[centre], nullptr);
    double expected[8];
    linear_field(1, engine.mesh.nodes[centre], expected);
    EXPECT_TRUE(near((*values[centre])[0], expected[0], 1e-12));
    // ...while with a normal the zero frame collapses every point onto the origin.
    engine.nodes[centre].normals[0] = new VectoR(0.0, 0.0, 1.0);
    const std::string text = fatal_output(
        [&] { engine.fit_patch(0, patch, MEER_IPV_DEFORMATIONS, values.data(), counter); });
    EXPECT_TRUE(is_engine_error(text, "Problem s zaplatou elementu kolem uzlu 4"));
}

TEST(Recovery, NormalAlongXGivesTheYZFrame) {
    TestMesh mesh;
    // Almost the y-z plane: the normal has a tiny y component.
    add_grid(mesh, 3, 2, 1.0, 1.0, {0, 0, 0}, {1e-5, 1, 0}, {0, 0, 1}, Cells::Mixed, 0);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.estimate(0.05);
    for (std::int32_t n = 0; n < engine.n_nodes; ++n) {
        ASSERT_NE(engine.nodes[n].normals[0], nullptr) << "node " << n;
        expect_frame(engine.nodes[n].frame, {0, 1, 0, 0, 0, 1, 1, 0, 0});
        // This branch keeps the summed normal as it is (not normalised).
        expect_summed_normal(engine, n);
    }
    expect_exact_values(engine, 0);
}

TEST(Recovery, NormalAlongYGivesTheZXFrame) {
    TestMesh mesh;
    add_grid(mesh, 3, 2, 1.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 0, 1}, Cells::Triangles, 0, 0.2);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.estimate(0.05);
    for (std::int32_t n = 0; n < engine.n_nodes; ++n) {
        ASSERT_NE(engine.nodes[n].normals[0], nullptr);
        expect_frame(engine.nodes[n].frame, {0, 0, 1, 1, 0, 0, 0, 1, 0});
        expect_summed_normal(engine, n);
    }
    expect_exact_values(engine, 0);
}

TEST(Recovery, GeneralNormalGivesAnOrthonormalFrameWithTheNormalLast) {
    TestMesh mesh;
    // The plane z = 0.5 x: the normal is dominated by z, but not enough to drop the frame.
    add_grid(mesh, 2, 2, 1.0, 1.0, {0, 0, 0}, {1, 0, 0.5}, {0, 1, 0}, Cells::Quads, 0);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.estimate(0.05);
    for (std::int32_t n = 0; n < engine.n_nodes; ++n) {
        const VectoR* nv = engine.nodes[n].normals[0];
        ASSERT_NE(nv, nullptr);
        EXPECT_TRUE(near(nv->length(), 1.0, 1e-15));
        const double s = nv->z > 0 ? 1.0 : -1.0; // orientation follows the node order
        const double l = std::sqrt(1.25);
        EXPECT_TRUE(near(nv->x, -s * 0.5 / l, 1e-14));
        EXPECT_TRUE(near(nv->y, 0.0, 0.0, 1e-15));
        const Dmtrx& f = engine.nodes[n].frame;
        // t = (ny, -nx, 0) normalised; s = n x t; rows t, s, n.
        expect_frame(f, {0.0, s * 1.0, 0.0, f.data[3], f.data[4], f.data[5], nv->x, nv->y, nv->z},
                     1e-14);
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) {
                double dot = 0.0;
                for (int k = 0; k < 3; ++k)
                    dot += f.data[3 * i + k] * f.data[3 * j + k];
                EXPECT_TRUE(near(dot, i == j ? 1.0 : 0.0, 0.0, 1e-14));
            }
    }
    expect_exact_values(engine, 0);
}

TEST(Recovery, ElementNormalsAreUnnormalisedAndWeightedByArea) {
    TestMesh mesh;
    const auto a = mesh.add_node({0, 0, 0});
    const auto b = mesh.add_node({2, 0, 0});
    const auto c = mesh.add_node({0, 3, 0});
    const auto d = mesh.add_node({2, 3, 0});
    mesh.add_element({a, b, c});
    mesh.add_element({b, d, c, a}); // any four points: the diagonals decide
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.compute_element_normals();
    const VectoR* t = engine.elements[0].normal;
    ASSERT_NE(t, nullptr);
    // (P0 - P1) x (P2 - P1) = (-2, 0, 0) x (-2, 3, 0) = (0, 0, -6)
    EXPECT_EQ(t->x, 0.0);
    EXPECT_EQ(t->y, 0.0);
    EXPECT_EQ(t->z, -6.0);
    // (P0 - P2) x (P3 - P1) = (2, -3, 0) x (-2, -3, 0) = (0, 0, -12): twice the area.
    const VectoR* q = engine.elements[1].normal;
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(q->x, 0.0);
    EXPECT_EQ(q->y, 0.0);
    EXPECT_EQ(q->z, -12.0);
    // Existing normals are kept.
    engine.elements[0].normal->z = 5.0;
    engine.compute_element_normals();
    EXPECT_EQ(engine.elements[0].normal->z, 5.0);
}

TEST(Recovery, BoundaryClassesOfAQuadGrid) {
    TestMesh mesh;
    add_grid(mesh, 3, 3, 1.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Quads, 0);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.prepare_region(0);
    for (int j = 0; j <= 3; ++j) {
        for (int i = 0; i <= 3; ++i) {
            const NODE& node = engine.nodes[grid_node(3, i, j)];
            const bool corner = (i == 0 || i == 3) && (j == 0 || j == 3);
            const bool edge = i == 0 || i == 3 || j == 0 || j == 3;
            EXPECT_EQ(node.boundary, corner ? 2 : edge ? 1 : 0) << i << ", " << j;
            EXPECT_EQ(node.kind, 1);
        }
    }
}

TEST(Recovery, LoneTriangleCornerKeepsItsPatchAndBoundaryNodesLeanOnTheInterior) {
    TestMesh mesh;
    add_grid(mesh, 3, 3, 1.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Triangles, 0);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.prepare_region(0);
    std::vector<NODE*> patch;
    // Corner (3, 0) lies in one triangle only (the cells are cut along (0,0)-(1,1)).
    NODE& lone = engine.nodes[grid_node(3, 3, 0)];
    EXPECT_EQ(lone.boundary, 3);
    engine.assemble_patch(lone, patch);
    EXPECT_FALSE(patch.empty());
    EXPECT_EQ(patch.front(), &lone);
    // Corner (0, 0) has two triangles: an open fan, class 1, with the interior node (1, 1)
    // as a neighbour: no patch of its own.
    NODE& corner = engine.nodes[grid_node(3, 0, 0)];
    EXPECT_EQ(corner.boundary, 1);
    engine.assemble_patch(corner, patch);
    EXPECT_TRUE(patch.empty());
    NODE& edge = engine.nodes[grid_node(3, 1, 0)];
    EXPECT_EQ(edge.boundary, 1);
    engine.assemble_patch(edge, patch);
    EXPECT_TRUE(patch.empty());
    // An interior node serves itself and its boundary neighbours.
    NODE& inner = engine.nodes[grid_node(3, 1, 1)];
    EXPECT_EQ(inner.boundary, 0);
    engine.assemble_patch(inner, patch);
    ASSERT_FALSE(patch.empty());
    EXPECT_EQ(patch.front(), &inner);
    for (std::size_t i = 1; i < patch.size(); ++i)
        EXPECT_NE(patch[i]->boundary, 0);
    EXPECT_NE(std::find(patch.begin(), patch.end(), &corner), patch.end());
    EXPECT_NE(std::find(patch.begin(), patch.end(), &edge), patch.end());
}

TEST(Recovery, PlainPatchModeClassifiesNothingAndServesOnlyTheCentre) {
    TestMesh mesh;
    add_grid(mesh, 3, 3, 1.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Quads, 0);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.patch_mode = 1;
    engine.estimate(0.05);
    std::vector<NODE*> patch;
    for (std::int32_t n = 0; n < engine.n_nodes; ++n) {
        EXPECT_EQ(engine.nodes[n].boundary, 0);
        engine.assemble_patch(engine.nodes[n], patch);
        ASSERT_EQ(patch.size(), 1u);
        EXPECT_EQ(patch.front(), &engine.nodes[n]);
    }
    expect_exact_values(engine, 0);
}

// A 2 x 2 quad grid with a triangle hung on its lower edge whose apex lies in nothing else.
TestMesh grid_with_hanging_triangle(std::size_t apex_points) {
    TestMesh mesh;
    add_grid(mesh, 2, 2, 1.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Quads, 0);
    const auto apex = mesh.add_node({0.25, -0.5, 0});
    const auto t = mesh.add_element({grid_node(2, 1, 0), grid_node(2, 0, 0), apex});
    auto& ips = mesh.elements[static_cast<std::size_t>(t)].ips1;
    ips.resize(apex_points);
    return mesh;
}

TEST(Recovery, NodeWithTooFewSamplesIsServedByNeighbours) {
    for (std::size_t points : {1u, 2u}) {
        TestEngine engine(grid_with_hanging_triangle(points), linear_field);
        engine.initialize();
        engine.patch_mode = 1; // every kind-1 node builds its patch, reaching the apex
        engine.estimate(0.05);
        const std::int32_t apex = 9;
        EXPECT_EQ(engine.nodes[apex].kind, 2);
        EXPECT_EQ(engine.nodes[grid_node(2, 0, 0)].kind, 1);
        const Dvctr* v = engine.nodal(1, 0, apex);
        ASSERT_NE(v, nullptr);
        double expected[8];
        linear_field(1, engine.mesh.nodes[apex], expected);
        EXPECT_TRUE(near((*v)[3], expected[3], 1e-10));
    }
}

TEST(Recovery, NodeWithTooFewSamplesThatNoPatchReachesStopsTheRun) {
    // With boundary-aware patches the triangle's base nodes lean on the interior node and
    // build no patch, so nobody serves the apex (node index 9, reported as 10).
    TestEngine engine(grid_with_hanging_triangle(2), linear_field);
    engine.initialize();
    const std::string text = fatal_output([&] { engine.estimate(0.05); });
    EXPECT_TRUE(is_engine_error(text, "values at node 10 not approximated"));
}

TEST(Recovery, BoundaryNodeReachedByThreePatchesHoldsTheirAverage) {
    TestMesh mesh;
    add_grid(mesh, 4, 4, 1.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Quads, 0, 0.2);
    TestEngine engine(std::move(mesh), nonlinear_field);
    engine.initialize();
    engine.estimate(0.05);
    auto elements_of = [&](std::int32_t node) {
        std::vector<std::int32_t> list;
        for (std::size_t e = 0; e < engine.mesh.elements.size(); ++e)
            for (std::int32_t n : engine.mesh.elements[e].nodes)
                if (n == node)
                    list.push_back(static_cast<std::int32_t>(e));
        return list;
    };
    const std::int32_t edge = grid_node(4, 2, 0);
    const Vec3& at = engine.mesh.nodes[static_cast<std::size_t>(edge)];
    for (int q = 1; q <= 2; ++q) {
        for (int c = 0; c < 8; ++c) {
            double sum = 0.0;
            for (int i : {1, 2, 3})
                sum += reference_fit(engine, elements_of(grid_node(4, i, 1)), q, c, at);
            EXPECT_TRUE(near((*engine.nodal(q, 0, edge))[c], sum / 3.0, 1e-11))
                << "quantity " << q << " component " << c;
        }
    }
    // An interior node is served by its own patch alone.
    const std::int32_t inner = grid_node(4, 2, 2);
    const Vec3& p = engine.mesh.nodes[static_cast<std::size_t>(inner)];
    EXPECT_TRUE(near((*engine.nodal(1, 0, inner))[5],
                     reference_fit(engine, elements_of(inner), 1, 5, p), 1e-11));
}

TEST(Recovery, SingularPatchOfALoneInvalidElementTakesTheElementMean) {
    TestMesh mesh;
    for (int i = 0; i < 3; ++i) // unused nodes first, so indices and numbers differ from 0
        mesh.add_node({10.0 + i, 10.0, 0.0});
    const auto a = mesh.add_node({0, 0, 0});
    const auto b = mesh.add_node({1, 0, 0});
    const auto c = mesh.add_node({0, 1, 0});
    const auto t = mesh.add_element({a, b, c});
    mesh.elements[static_cast<std::size_t>(t)].valid = false;
    TestEngine engine(std::move(mesh), nonlinear_field);
    // Collinear sampling points make every patch of this triangle singular.
    engine.ip1_positions[t] = {{0.2, 0.2, 0}, {0.3, 0.3, 0}, {0.4, 0.4, 0}};
    engine.initialize();
    engine.estimate(0.05);
    EXPECT_GT(engine.validity_calls, 0);
    for (int q = 1; q <= 2; ++q) {
        double mean[8] = {};
        for (const Vec3& p : engine.ip1_positions[t]) {
            double v[8];
            nonlinear_field(q, p, v);
            for (int k = 0; k < 8; ++k)
                mean[k] += v[k];
        }
        for (std::int32_t n : {a, b, c}) {
            const Dvctr* v = engine.nodal(q, 0, n);
            ASSERT_NE(v, nullptr);
            for (int k = 0; k < 8; ++k)
                EXPECT_TRUE(near((*v)[k], mean[k] / 3.0, 1e-14));
        }
    }
}

TEST(Recovery, ElementMeanOfASingularLonePatchGoesToItsCentreOnly) {
    // The apex of a triangle hung on a quad grid lies in that triangle alone; the triangle is
    // invalid and its sampling points are collinear. The apex's patch also holds the two
    // base nodes (both on the boundary), but the element mean goes to the apex alone.
    TestMesh mesh = grid_with_hanging_triangle(3);
    const std::int32_t apex = 9;
    const auto t = static_cast<std::int32_t>(mesh.elements.size() - 1);
    mesh.elements.back().valid = false;
    TestEngine engine(std::move(mesh), nonlinear_field);
    engine.ip1_positions[t] = {{0.2, -0.1, 0}, {0.25, -0.2, 0}, {0.3, -0.3, 0}};
    engine.initialize();
    engine.prepare_region(0);
    ASSERT_EQ(engine.nodes[apex].kind, 1);
    ASSERT_EQ(engine.nodes[apex].boundary, 3);
    std::vector<NODE*> patch;
    engine.assemble_patch(engine.nodes[apex], patch);
    ASSERT_EQ(patch.size(), 3u);
    EXPECT_EQ(patch.front(), &engine.nodes[apex]);

    double mean[8] = {};
    for (const Vec3& p : engine.ip1_positions[t]) {
        double v[8];
        nonlinear_field(2, p, v);
        for (int k = 0; k < 8; ++k)
            mean[k] += v[k];
    }
    std::vector<Dvctr*> values(static_cast<std::size_t>(engine.n_nodes), nullptr);
    Lvctr counter(engine.n_nodes);
    counter[apex] = 7; // reset when the apex's vector is created
    engine.fit_patch(0, patch, MEER_IPV_FORCES, values.data(), counter);
    EXPECT_EQ(engine.validity_calls, 1);
    for (std::int32_t n = 0; n < engine.n_nodes; ++n) {
        if (n == apex)
            continue;
        EXPECT_EQ(values[static_cast<std::size_t>(n)], nullptr) << "node " << n;
        EXPECT_EQ(counter[n], 0) << "node " << n;
    }
    ASSERT_NE(values[apex], nullptr);
    EXPECT_EQ(counter[apex], 1);
    for (int k = 0; k < 8; ++k)
        EXPECT_TRUE(near((*values[apex])[k], mean[k] / 3.0, 1e-15));
    // A second contribution is added to the existing vector, the counter goes on.
    engine.fit_patch(0, patch, MEER_IPV_FORCES, values.data(), counter);
    EXPECT_EQ(counter[apex], 2);
    for (int k = 0; k < 8; ++k)
        EXPECT_TRUE(near((*values[apex])[k], 2.0 * mean[k] / 3.0, 1e-15));
}

TEST(Recovery, SingularPatchOfAValidElementStopsWithTheZeroBasedNode) {
    TestMesh mesh;
    for (int i = 0; i < 3; ++i)
        mesh.add_node({10.0 + i, 10.0, 0.0});
    const auto a = mesh.add_node({0, 0, 0});
    const auto b = mesh.add_node({1, 0, 0});
    const auto c = mesh.add_node({0, 1, 0});
    const auto t = mesh.add_element({a, b, c});
    TestEngine engine(std::move(mesh), nonlinear_field);
    engine.ip1_positions[t] = {{0.2, 0.2, 0}, {0.3, 0.3, 0}, {0.4, 0.4, 0}};
    engine.initialize();
    const std::string text = fatal_output([&] { engine.estimate(0.05); });
    EXPECT_TRUE(is_engine_error(text, "Problem s zaplatou elementu kolem uzlu 3"));
    EXPECT_EQ(engine.validity_calls, 1);
}

TEST(Recovery, ElementsOfOtherRegionsAreNotPartOfTheNodesList) {
    TestMesh mesh;
    mesh.n_regions = 2;
    add_grid(mesh, 2, 1, 1.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Quads, 0);
    add_grid(mesh, 2, 1, 1.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 0, 1}, Cells::Quads, 1);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.prepare_region(1);
    const NODE& shared = engine.nodes[1]; // (0.5, 0, 0) lies in both grids
    ASSERT_EQ(shared.elems.size(), 2);
    EXPECT_EQ(shared.elems[0], 2);
    EXPECT_EQ(shared.elems[1], 3);
    EXPECT_EQ(engine.nodes[4].kind, 0); // a floor-only node has no samples in the wall
    engine.estimate(0.05);
    expect_exact_values(engine, 1);
}

TEST(Recovery, BoundaryClassOfAnEarlierRegionIsKept) {
    // A wall (region 0) stands on a floor (region 1) along a line through the floor's centre
    // node: the wall's open fan makes it class 1, and the floor's closed fan does not reset it.
    TestMesh mesh;
    mesh.n_regions = 2;
    add_grid(mesh, 2, 2, 2.0, 2.0, {-1, 0, 0}, {1, 0, 0}, {0, 0, 1}, Cells::Quads, 0);
    add_grid(mesh, 2, 2, 2.0, 2.0, {-1, -1, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Quads, 1);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    const std::int32_t centre = 1; // (0, 0, 0): the wall's bottom middle node
    engine.prepare_region(0);
    EXPECT_EQ(engine.nodes[centre].boundary, 1);
    engine.prepare_region(1);
    EXPECT_EQ(engine.nodes[centre].elems.size(), 4);
    EXPECT_EQ(engine.nodes[centre].boundary, 1);
}

TEST(Recovery, NodesInTwoRegionsAreAveragedPerRegion) {
    TestMesh mesh;
    mesh.n_regions = 2;
    add_grid(mesh, 3, 3, 1.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Quads, 0, 0.2);
    add_grid(mesh, 3, 2, 1.0, 0.7, {0, 0, 0}, {1, 0, 0}, {0, 0, 1}, Cells::Triangles, 1, 0.2);
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.estimate(0.05);
    expect_exact_values(engine, 1);
    for (std::int32_t n = 0; n < 4; ++n) { // the shared edge
        ASSERT_NE(engine.nodal(1, 0, n), nullptr);
        ASSERT_NE(engine.nodal(1, 1, n), nullptr);
        EXPECT_TRUE(near((*engine.nodal(1, 0, n))[2], (*engine.nodal(1, 1, n))[2], 1e-10));
    }
}

TEST(Recovery, SixtyFourElementsMayMeetAtANode) {
    TestMesh mesh;
    const auto centre = mesh.add_node({0.5, 0.5, 0});
    std::vector<std::int32_t> rim;
    for (int i = 0; i < 64; ++i) {
        const double t = 2 * 3.141592653589793 * i / 64;
        rim.push_back(mesh.add_node({0.5 + 0.4 * std::cos(t), 0.5 + 0.3 * std::sin(t), 0}));
    }
    for (int i = 0; i < 64; ++i)
        mesh.add_element({centre, rim[static_cast<std::size_t>(i)],
                          rim[static_cast<std::size_t>((i + 1) % 64)]});
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    engine.estimate(0.05);
    EXPECT_EQ(engine.nodes[centre].elems.size(), 64);
    EXPECT_EQ(engine.nodes[centre].boundary, 0); // a closed fan
    expect_exact_values(engine, 0);
}

TEST(Recovery, LargerValueCountsAreFetchedWholeAndTheFirstComponentsUsed) {
    TestMesh mesh;
    add_grid(mesh, 2, 2, 1.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Quads, 0);
    TestEngine engine(std::move(mesh), linear_field);
    engine.value_count = 12;
    engine.n_values = 6;
    engine.initialize();
    engine.estimate(0.05);
    const Dvctr* v = engine.nodal(2, 0, 4);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v->size(), 6);
    double expected[8];
    linear_field(2, engine.mesh.nodes[4], expected);
    for (int c = 0; c < 6; ++c)
        EXPECT_TRUE(near((*v)[c], expected[c], 1e-12));
}

} // namespace
