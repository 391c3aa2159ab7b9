// Element error integration and refinement sizing.
#include "tests/meer/support/meer_mesh.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

using namespace meertest;
using namespace meerspace;

namespace {

void wavy_field(int kind, const Vec3& p, double* out) {
    for (int c = 0; c < 8; ++c)
        out[c] = 1.0 + kind + 0.1 * c + std::sin(2.5 * p[0] - 0.4 * c) * std::cos(1.7 * p[1]);
}

TestMesh strip(int n, Cells cells = Cells::Quads, std::int32_t quad_edi = 3) {
    TestMesh mesh;
    add_grid(mesh, n, 1, 1.0 * n, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, cells, 0, 0.0, quad_edi);
    return mesh;
}

// ---- Shape functions and weights at the error-integration points ----------------------------

TEST(ElementErrors, ShapeFunctionsAndWeightsFollowTheEdi) {
    TestMesh mesh;
    const auto a = mesh.add_node({0, 0, 0});
    const auto b = mesh.add_node({1, 0, 0});
    const auto c = mesh.add_node({1, 1, 0});
    const auto d = mesh.add_node({0, 1, 0});
    mesh.add_element({a, b, c});
    mesh.add_element({c, d, a, b}, 0, 2);
    mesh.add_element({a, b, c, d}, 0, 3);
    mesh.elements[0].ips2 = {{{0.2, 0.3, 0.5}, 0.125}};
    mesh.elements[1].ips2 = {{{0.5, -0.25, 0.0}, 0.75}};
    mesh.elements[2].ips2 = {{{0.5, -0.25, 0.0}, 0.75}};
    TestEngine engine(std::move(mesh), linear_field);
    engine.initialize();
    double n[4];
    EXPECT_EQ(engine.ip_shape_functions(0, 0, n), 0.25); // doubled
    EXPECT_EQ(n[0], 0.2);
    EXPECT_EQ(n[1], 0.3);
    EXPECT_EQ(n[2], 0.5);
    EXPECT_EQ(n[3], 0.0);
    EXPECT_EQ(engine.ip_shape_functions(1, 0, n), 0.1875); // times 0.25
    EXPECT_DOUBLE_EQ(n[0], 0.25 * 1.5 * 0.75);
    EXPECT_DOUBLE_EQ(n[1], 0.25 * 0.5 * 0.75);
    EXPECT_DOUBLE_EQ(n[2], 0.25 * 0.5 * 1.25);
    EXPECT_DOUBLE_EQ(n[3], 0.25 * 1.5 * 1.25);
    EXPECT_EQ(engine.ip_shape_functions(2, 0, n), 0.1875);
    EXPECT_DOUBLE_EQ(n[0], 0.25 * 0.5 * 1.25);
    EXPECT_DOUBLE_EQ(n[1], 0.25 * 1.5 * 1.25);
    EXPECT_DOUBLE_EQ(n[2], 0.25 * 1.5 * 0.75);
    EXPECT_DOUBLE_EQ(n[3], 0.25 * 0.5 * 0.75);
}

// ---- Integration ------------------------------------------------------------------------

TEST(ElementErrors, MinimumNumbersOfIntegrationPointsAreAccepted) {
    TestMesh mesh = strip(2, Cells::Mixed);
    for (TestElement& el : mesh.elements) // exactly 3 for triangles, 4 for quads
        ASSERT_EQ(el.ips2.size(), el.nodes.size());
    TestEngine engine(std::move(mesh), wavy_field);
    engine.initialize();
    const double eta = engine.estimate(0.05);
    EXPECT_GT(eta, 0.0);
}

TEST(ElementErrors, OneIntegrationPointTooFewStopsTheRun) {
    for (Cells cells : {Cells::Triangles, Cells::Quads}) {
        TestMesh mesh = strip(2, cells);
        mesh.elements.back().ips2.pop_back();
        TestEngine engine(std::move(mesh), wavy_field);
        engine.initialize();
        const std::string text = fatal_output([&] { engine.estimate(0.05); });
        EXPECT_TRUE(is_engine_error(text, "low number of int points"));
    }
}

TEST(ElementErrors, ComputedValuesEqualToTheSmoothedFieldGiveZeroError) {
    TestEngine engine(strip(3, Cells::Mixed), linear_field);
    engine.initialize();
    engine.estimate(0.05);
    for (std::int32_t e = 0; e < engine.n_elems; ++e) {
        EXPECT_TRUE(
            near(engine.give_elem_error2()[e], 0.0, 0.0, 1e-24 * engine.give_elem_norm2()[e]));
        EXPECT_EQ(engine.give_elem_new_size()[e], 2 * engine.give_elem_size()[e]);
    }
}

// Reference integration of one element from the recovered nodal values.
void reference_element(const TestEngine& engine, std::int32_t e, double& error2, double& norm2) {
    const TestElement& el = engine.mesh.elements[static_cast<std::size_t>(e)];
    const double fac = engine.thickness_reduced * engine.mesh.area(static_cast<std::size_t>(e));
    error2 = 0.0;
    norm2 = 0.0;
    for (const NaturalPoint& ip : el.ips2) {
        const int edi = el.nodes.size() == 3 ? 1 : el.edi;
        const auto n = shape_functions(edi, ip.xi);
        const double w = ip.weight * (edi == 1 ? 2.0 : 0.25) * fac;
        const Vec3 p = engine.mesh.position(static_cast<std::size_t>(e), ip.xi);
        double h[3][8];
        engine.field(1, p, h[1]);
        engine.field(2, p, h[2]);
        double s[3][8] = {};
        for (int q = 1; q <= 2; ++q)
            for (std::size_t i = 0; i < el.nodes.size(); ++i)
                for (int c = 0; c < 8; ++c)
                    s[q][c] += n[i] * (*engine.nodal(q, el.region, el.nodes[i]))[c];
        for (int c = 0; c < 8; ++c) {
            error2 += w * (s[1][c] - h[1][c]) * (s[2][c] - h[2][c]);
            norm2 += w * h[1][c] * h[2][c];
        }
    }
}

TEST(ElementErrors, EnergyNormIntegratesTheProductOfBothDifferences) {
    for (std::int32_t edi : {2, 3}) {
        TestMesh mesh;
        add_grid(mesh, 3, 3, 1.5, 1.2, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Mixed, 0, 0.2, edi);
        TestEngine engine(std::move(mesh), wavy_field);
        engine.initialize();
        engine.estimate(0.05);
        for (std::int32_t e = 0; e < engine.n_elems; ++e) {
            double error2 = 0.0;
            double norm2 = 0.0;
            reference_element(engine, e, error2, norm2);
            if (error2 >= 0.0) { // negative ones are repaired by the sizing
                EXPECT_TRUE(near(engine.give_elem_error2()[e], error2, 1e-9, 1e-18))
                    << "element " << e;
            }
            EXPECT_TRUE(near(engine.give_elem_norm2()[e], norm2, 1e-12)) << "element " << e;
        }
    }
}

TEST(ElementErrors, NormOfAConstantFieldIsReducedThicknessTimesAreaTimesTheProduct) {
    TestMesh mesh;
    add_grid(mesh, 2, 2, 2.0, 1.0, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, Cells::Mixed, 0, 0.3);
    TestEngine engine(std::move(mesh), [](int kind, const Vec3&, double* out) {
        for (int c = 0; c < 8; ++c)
            out[c] = kind == 1 ? 1.0 + c : 2.0;
    });
    engine.initialize();
    engine.estimate(0.05);
    const double product = 2.0 * (1 + 2 + 3 + 4 + 5 + 6 + 7 + 8);
    for (std::int32_t e = 0; e < engine.n_elems; ++e)
        EXPECT_TRUE(near(engine.give_elem_norm2()[e],
                         0.15 * engine.mesh.area(static_cast<std::size_t>(e)) * product, 1e-13));
}

TEST(ElementErrors, L2NormReadsOnlyTheForces) {
    TestEngine engine(strip(3, Cells::Mixed), wavy_field);
    engine.initialize();
    engine.enorm = 4;
    engine.estimate(0.05);
    EXPECT_EQ(engine.ipv1_kind, MEER_IPV_FORCES);
    EXPECT_EQ(engine.ipv2_kind, MEER_IPV_NONE);
    EXPECT_EQ(engine.ip1_value_calls[1], 0);
    EXPECT_EQ(engine.ip2_value_calls[1], 0);
    EXPECT_GT(engine.ip1_value_calls[2], 0);
    EXPECT_GT(engine.ip2_value_calls[2], 0);
    // e . e and u . u of the forces.
    for (std::int32_t e = 0; e < engine.n_elems; ++e) {
        const TestElement& el = engine.mesh.elements[static_cast<std::size_t>(e)];
        const double fac = 0.15 * engine.mesh.area(static_cast<std::size_t>(e));
        double error2 = 0.0;
        double norm2 = 0.0;
        for (const NaturalPoint& ip : el.ips2) {
            const int edi = el.nodes.size() == 3 ? 1 : el.edi;
            const auto n = shape_functions(edi, ip.xi);
            const double w = ip.weight * (edi == 1 ? 2.0 : 0.25) * fac;
            double h[8];
            wavy_field(2, engine.mesh.position(static_cast<std::size_t>(e), ip.xi), h);
            for (int c = 0; c < 8; ++c) {
                double s = 0.0;
                for (std::size_t i = 0; i < el.nodes.size(); ++i)
                    s += n[i] * (*engine.nodal(1, 0, el.nodes[i]))[c];
                error2 += w * (s - h[c]) * (s - h[c]);
                norm2 += w * h[c] * h[c];
            }
        }
        EXPECT_GT(engine.give_elem_error2()[e], 0.0);
        EXPECT_TRUE(near(engine.give_elem_error2()[e], error2, 1e-10));
        EXPECT_TRUE(near(engine.give_elem_norm2()[e], norm2, 1e-12));
    }
}

// ---- Sizing -----------------------------------------------------------------------------

// An engine over a strip of quads whose element errors and norms are set by hand.
struct Sizing {
    explicit Sizing(TestMesh mesh) : engine(std::move(mesh), linear_field) { engine.initialize(); }
    void set(const std::vector<double>& error2, const std::vector<double>& norm2) {
        engine.elem_error2.assign(error2.data(), static_cast<std::int32_t>(error2.size()));
        engine.elem_norm2.assign(norm2.data(), static_cast<std::int32_t>(norm2.size()));
    }
    TestEngine engine;
};

TEST(Sizing, ErrorEqualToThePermittedOneKeepsTheSize) {
    Sizing s(strip(1));
    s.set({1.0}, {3.0});
    // em = 0.5 * sqrt((3 + 1) / 1) = 1
    const double eta = s.engine.compute_refinement(0.5);
    EXPECT_EQ(eta, 0.5);
    EXPECT_EQ(s.engine.give_elem_size()[0], 1.0);
    EXPECT_EQ(s.engine.give_elem_new_size()[0], 1.0);
    EXPECT_EQ(s.engine.give_elem_local_error()[0], 50.0);
    EXPECT_EQ(s.engine.give_elem_global_error()[0], 50.0);
}

TEST(Sizing, ZeroErrorDoublesAndTenfoldErrorQuartersTheSize) {
    Sizing s(strip(3));
    // U2 + E2 = 3 over 3 elements: em = 0.1 * sqrt(3 / 3) = 0.1.
    s.set({0.0, 1.0, 0.0}, {1.0, 0.0, 1.0});
    s.engine.compute_refinement(0.1);
    // element 1: xi = 1 / 0.1 = 10, clamped to 4
    EXPECT_EQ(s.engine.give_elem_new_size()[0], 2.0);
    EXPECT_EQ(s.engine.give_elem_new_size()[1], 0.25);
    EXPECT_EQ(s.engine.give_elem_new_size()[2], 2.0);
}

TEST(Sizing, IndicatorBetweenTheClampsScalesTheSize) {
    Sizing s(strip(2));
    s.set({0.25, 0.25}, {0.75, 0.75});
    // em = 0.25 * sqrt(2 / 2) = 0.25; xi = 0.5 / 0.25 = 2
    s.engine.compute_refinement(0.25);
    EXPECT_EQ(s.engine.give_elem_new_size()[0], 0.5);
    s.engine.max_size_ratio = 4.0;
    s.engine.min_size_ratio = 0.5; // clamps 0.25 .. 2
    s.engine.compute_refinement(0.25);
    EXPECT_EQ(s.engine.give_elem_new_size()[0], 0.5);
    s.engine.compute_refinement(0.01); // xi = 50, clamped to 2
    EXPECT_EQ(s.engine.give_elem_new_size()[1], 0.5);
}

TEST(Sizing, CharacteristicSizeFollowsTheEdi) {
    TestMesh mesh;
    const auto a = mesh.add_node({0, 0, 0});
    const auto b = mesh.add_node({1, 0, 0});
    const auto c = mesh.add_node({1, 1, 0});
    const auto d = mesh.add_node({0, 1, 0});
    const auto f = mesh.add_node({2, 0, 0});
    const auto g = mesh.add_node({2, 1, 0});
    mesh.add_element({a, b, d});          // area 0.5
    mesh.add_element({b, f, g, c}, 0, 3); // area 1
    mesh.add_element({g, c, b, f}, 0, 2); // area 1
    mesh.elements[2].area = 2.25;
    Sizing s(std::move(mesh));
    s.set({0.0, 0.0, 0.0}, {1.0, 1.0, 1.0});
    s.engine.compute_refinement(0.05);
    EXPECT_EQ(s.engine.give_elem_size()[0], 1.0);
    EXPECT_EQ(s.engine.give_elem_size()[1], 1.0);
    EXPECT_EQ(s.engine.give_elem_size()[2], 1.5);
}

TEST(Sizing, NegativeErrorSurroundedByNegativeOnesBecomesZero) {
    Sizing s(strip(3));
    s.set({-1.0, -2.0, -3.0}, {1.0, 1.0, 1.0});
    s.engine.compute_refinement(0.05);
    EXPECT_EQ(s.engine.give_elem_error2()[0], 0.0);
    // Element 1 sees the repaired element 0 (twice, over its two shared nodes).
    EXPECT_EQ(s.engine.give_elem_error2()[1], 0.0);
    EXPECT_EQ(s.engine.give_elem_error2()[2], 0.0);
}

TEST(Sizing, UnusableErrorTakesTheMeanOverItsNodesNeighbours) {
    Sizing s(strip(3));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    s.set({4.0, -1.0, 1.0}, {1.0, 1.0, 1.0});
    s.engine.compute_refinement(0.05);
    // Each of element 1's four nodes lists it and one neighbour (two nodes each side):
    // (4 + 4 + 1 + 1) / 4.
    EXPECT_EQ(s.engine.give_elem_error2()[1], 2.5);

    Sizing t(strip(3));
    t.set({nan, 2.0, nan}, {1.0, 1.0, 1.0});
    t.engine.compute_refinement(0.05);
    // Element 0: nodes 0 and 4 list only itself; nodes 1 and 5 add element 1: (2 + 2) / 2.
    EXPECT_EQ(t.engine.give_elem_error2()[0], 2.0);
    EXPECT_EQ(t.engine.give_elem_error2()[2], 2.0);
}

TEST(Sizing, EarlierRepairsCountForLaterOnes) {
    Sizing s(strip(3));
    s.set({-1.0, -1.0, 6.0}, {1.0, 1.0, 1.0});
    s.engine.compute_refinement(0.05);
    // Element 0 has no usable neighbour: 0. Element 1 then sees 0 (twice), 6 (twice).
    EXPECT_EQ(s.engine.give_elem_error2()[0], 0.0);
    EXPECT_EQ(s.engine.give_elem_error2()[1], 3.0);
}

TEST(Sizing, ErrorFiguresFollowTheirFormulas) {
    TestMesh mesh = strip(3);
    mesh.elements[1].area = 4.0;
    Sizing s(std::move(mesh));
    s.engine.thickness = 0.5;
    s.set({0.02, 0.08, 0.01}, {1.0, 2.0, 0.5});
    const double target = 0.05;
    const double eta = s.engine.compute_refinement(target);
    const double e2 = 0.11;
    const double u2 = 3.5;
    EXPECT_TRUE(near(eta, std::sqrt(e2 / (e2 + u2)), 1e-14));
    const double m = std::sqrt((u2 + e2) / 3);
    const double em = target * m;
    const double areas[3] = {1.0, 4.0, 1.0};
    for (std::int32_t e = 0; e < 3; ++e) {
        const double err = s.engine.give_elem_error2()[e];
        const double nrm = s.engine.give_elem_norm2()[e];
        EXPECT_TRUE(
            near(s.engine.give_elem_local_error()[e], std::sqrt(err / (nrm + err)) * 100, 1e-14));
        EXPECT_TRUE(near(s.engine.give_elem_global_error()[e], std::sqrt(err) / m * 100, 1e-14));
        // Full thickness here, not the reduced one.
        EXPECT_TRUE(near(s.engine.give_elem_error_density()[e], err / areas[e] / 0.5, 1e-15));
        double xi = std::sqrt(err) / em;
        xi = std::min(std::max(xi, 0.5), 4.0);
        EXPECT_TRUE(near(s.engine.give_elem_new_size()[e], std::sqrt(areas[e]) / xi, 1e-14));
    }
}

TEST(Sizing, ErrorFiguresAreEvaluatedInTheirOwnOrder) {
    // Values for which another order of the same operations rounds differently, so that
    // the order itself is pinned (bit for bit).
    TestMesh mesh = strip(3);
    mesh.elements[1].area = 3.0;
    Sizing s(std::move(mesh));
    s.engine.thickness = 0.3;
    const std::vector<double> error2 = {0.02, 0.08, 0.01};
    const std::vector<double> norm2 = {1.0, 2.0, 0.5};
    s.set(error2, norm2);
    const double target = 0.05;
    const double eta = s.engine.compute_refinement(target);
    const double e2 = error2[0] + error2[1] + error2[2];
    const double u2 = norm2[0] + norm2[1] + norm2[2];
    EXPECT_EQ(eta, std::sqrt(e2 / (e2 + u2)));
    const double m = std::sqrt((u2 + e2) / 3.0);
    const double em = (1.0 * target) * std::sqrt((u2 + e2) / 3.0);
    const double areas[3] = {1.0, 3.0, 1.0};
    for (std::size_t e = 0; e < 3; ++e) {
        const auto i = static_cast<std::int32_t>(e);
        const double err = error2[e];
        EXPECT_EQ(s.engine.give_elem_local_error()[i], std::sqrt(err / (norm2[e] + err)) * 100);
        EXPECT_EQ(s.engine.give_elem_global_error()[i], std::sqrt(err) / m * 100);
        // Divided by the area first, then by the full thickness.
        EXPECT_EQ(s.engine.give_elem_error_density()[i], err / areas[e] / 0.3);
        double xi = std::sqrt(err) / em;
        if (1 / 2.0 > xi)
            xi = 1 / 2.0;
        if (xi > 1 / 0.25)
            xi = 1 / 0.25;
        EXPECT_EQ(s.engine.give_elem_new_size()[i], std::sqrt(areas[e]) / xi);
    }
    // The other order would have shown.
    ASSERT_NE(error2[1] / areas[1] / 0.3, error2[1] / (areas[1] * 0.3));
    EXPECT_NE(s.engine.give_elem_error_density()[1], error2[1] / (areas[1] * 0.3));
}

TEST(Sizing, ModelWithoutAnyNormOrErrorGivesNotANumber) {
    Sizing s(strip(2));
    s.set({0.0, 0.0}, {0.0, 0.0});
    const double eta = s.engine.compute_refinement(0.05);
    EXPECT_TRUE(std::isnan(eta));
    EXPECT_TRUE(std::isnan(s.engine.give_elem_local_error()[0]));
    EXPECT_TRUE(std::isnan(s.engine.give_elem_global_error()[0]));
}

TEST(Sizing, ElementWithoutErrorAndNormHasAnUndefinedLocalError) {
    Sizing s(strip(2));
    s.set({0.0, 1.0}, {0.0, 1.0});
    s.engine.compute_refinement(0.05);
    EXPECT_TRUE(std::isnan(s.engine.give_elem_local_error()[0]));
    EXPECT_EQ(s.engine.give_elem_global_error()[0], 0.0);
    EXPECT_EQ(s.engine.give_elem_new_size()[0], 2.0);
}

TEST(Sizing, RefinementAsksTheSuperelementsWithAFullBuffer) {
    // 64 elements meet at one node (a fan of triangles): the repair still sees them all.
    TestMesh mesh;
    const auto centre = mesh.add_node({0, 0, 0});
    std::vector<std::int32_t> rim;
    for (int i = 0; i < 64; ++i) {
        const double t = 2 * std::numbers::pi * i / 64;
        rim.push_back(mesh.add_node({std::cos(t), std::sin(t), 0}));
    }
    for (int i = 0; i < 64; ++i)
        mesh.add_element({centre, rim[static_cast<std::size_t>(i)],
                          rim[static_cast<std::size_t>((i + 1) % 64)]});
    Sizing s(std::move(mesh));
    std::vector<double> error(64, 1.0);
    error[0] = -5.0;
    error[63] = 3.0;
    s.set(error, std::vector<double>(64, 1.0));
    s.engine.compute_refinement(0.05);
    // Node centre: 63 usable (62 x 1 + 3); rim[0]: elements 0 and 63 -> 3; rim[1]: 0 and 1 -> 1.
    EXPECT_TRUE(near(s.engine.give_elem_error2()[0], (62.0 + 3.0 + 3.0 + 1.0) / 65.0, 1e-15));
}

} // namespace
