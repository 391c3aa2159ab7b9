// The estimator bridge's callbacks: what the engine gets for each question, and the element
// validity test.
#include "adaptivity/AdaptivityImpl.h"
#include "tests/adaptivity/results_api_double.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <stdexcept>

using testing::_;
using testing::NiceMock;
using testing::Return;

namespace {

// The bridge with its callbacks in reach. Tests that stop after Init leave nodes that no run
// prepared; the destructor makes them destroyable for the engine.
class ExposedImpl : public CAdaptivityImpl {
public:
    using CAdaptivityImpl::CAdaptivityImpl;
    ~ExposedImpl() override { LetEngineBeDestroyed(*this); }

    using CAdaptivityImpl::give_element_area;
    using CAdaptivityImpl::give_element_EDI;
    using CAdaptivityImpl::give_element_thickness;
    using CAdaptivityImpl::give_element_thickness_reduced;
    using CAdaptivityImpl::give_IPs1_coords_global;
    using CAdaptivityImpl::give_IPs1_values;
    using CAdaptivityImpl::give_IPs1_values_count;
    using CAdaptivityImpl::give_IPs2_coords_natural;
    using CAdaptivityImpl::give_IPs2_values;
    using CAdaptivityImpl::give_IPs2_values_count;
    using CAdaptivityImpl::give_node_coords;
    using CAdaptivityImpl::give_number_of_IPs1;
    using CAdaptivityImpl::give_number_of_IPs2;
    using CAdaptivityImpl::give_superelems_to_node;
    using CAdaptivityImpl::is_element_valid;
};

const char* const kNegativeCast = "overflow - casting negative value to unsigned";

// One element whose cached integration points are the given ones (a triangle for three, a
// quadrilateral for four).
struct OneElement {
    NiceMock<MockResultsAPI> api;
    FakeModel model;
    std::unique_ptr<ExposedImpl> impl;

    explicit OneElement(const std::vector<CKQPoint3D>& points) {
        FakeElement e;
        for (std::size_t i = 0; i < points.size(); ++i) {
            model.nodes.push_back(points[i]);
            e.nodes.push_back(i);
        }
        e.points = points;
        model.elements.push_back(e);
        FillValues(model, LinearField);
        ServeModel(api, model);
        impl = std::make_unique<ExposedImpl>(api, 0.05);
        impl->Init();
    }
};

} // namespace

// --- element interpolation and properties ----------------------------------------------------

TEST(AdaptivityImplCallbacks, ElementTypeZeroIsALinearTriangleAndOneABilinearQuadrilateral) {
    NiceMock<MockResultsAPI> api;
    ExposedImpl impl(api, 0.05);
    EXPECT_CALL(api, GetElementType(4)).WillOnce(Return(Outcome64Enums::eET_Triangle));
    EXPECT_CALL(api, GetElementType(5)).WillOnce(Return(Outcome64Enums::eET_Quadrilateral));
    EXPECT_EQ(impl.give_element_EDI(4), meerspace::MEER_EDI_TRIANGLE_LINEAR);
    EXPECT_EQ(impl.give_element_EDI(5), meerspace::MEER_EDI_QUAD_BILINEAR_2);
}

TEST(AdaptivityImplCallbacks, AnyOtherElementTypeIsALinearTriangle) {
    NiceMock<MockResultsAPI> api;
    ExposedImpl impl(api, 0.05);
    for (int t : {2, 7, -1}) {
        EXPECT_CALL(api, GetElementType(3))
            .WillOnce(Return(static_cast<Outcome64Enums::eElementType>(t)));
        EXPECT_EQ(impl.give_element_EDI(3), 1) << "host type " << t;
    }
}

TEST(AdaptivityImplCallbacks, AreaAndThicknessesComeUnchangedFromTheHost) {
    NiceMock<MockResultsAPI> api;
    ExposedImpl impl(api, 0.05);
    EXPECT_CALL(api, GetElementArea(6)).WillOnce(Return(0.125));
    EXPECT_CALL(api, GetElementThickness(6)).WillOnce(Return(0.22));
    EXPECT_CALL(api, GetElementThicknessReduced(6)).WillOnce(Return(0.75));
    EXPECT_EQ(impl.give_element_area(6), 0.125);
    EXPECT_EQ(impl.give_element_thickness(6), 0.22);
    EXPECT_EQ(impl.give_element_thickness_reduced(6), 0.75);
}

TEST(AdaptivityImplCallbacks, BothPointSetsCountTheHostsIntegrationPoints) {
    NiceMock<MockResultsAPI> api;
    ExposedImpl impl(api, 0.05);
    EXPECT_CALL(api, GetCountOfIntegrationPoints(9)).Times(2).WillRepeatedly(Return(4UL));
    EXPECT_EQ(impl.give_number_of_IPs1(9), 4);
    EXPECT_EQ(impl.give_number_of_IPs2(9), 4);
}

// --- coordinates -------------------------------------------------------------------------------

TEST(AdaptivityImplCallbacks, NodeCoordsAreTheHostsAndANullArrayIsRefused) {
    NiceMock<MockResultsAPI> api;
    ExposedImpl impl(api, 0.05);
    EXPECT_CALL(api, NodeCoords(2)).WillOnce(Return(CKQPoint3D(1.5, -2.0, 3.25)));
    double xyz[3] = {};
    impl.give_node_coords(2, xyz);
    EXPECT_EQ(xyz[0], 1.5);
    EXPECT_EQ(xyz[1], -2.0);
    EXPECT_EQ(xyz[2], 3.25);
    EXPECT_THROW(impl.give_node_coords(2, nullptr), CInvalidArgException);
}

TEST(AdaptivityImplCallbacks, GlobalPointCoordsAreTheHosts) {
    NiceMock<MockResultsAPI> api;
    ExposedImpl impl(api, 0.05);
    EXPECT_CALL(api, GetIntegrationPointGlobalCoords(3, 2)).WillOnce(Return(CKQPoint3D(4, 5, 6)));
    double xyz[3] = {};
    impl.give_IPs1_coords_global(3, 2, xyz);
    EXPECT_EQ(xyz[0], 4.0);
    EXPECT_EQ(xyz[1], 5.0);
    EXPECT_EQ(xyz[2], 6.0);
    EXPECT_THROW(impl.give_IPs1_coords_global(3, 2, nullptr), CInvalidArgException);
}

TEST(AdaptivityImplCallbacks, ANegativePointIndexIsRefusedBeforeTheNullTest) {
    NiceMock<MockResultsAPI> api;
    ExposedImpl impl(api, 0.05);
    EXPECT_CALL(api, GetIntegrationPointGlobalCoords).Times(0);
    EXPECT_CALL(api, GetIntegrationPointLocalCoords).Times(0);
    double xyz[3] = {};
    for (double* out : {xyz, static_cast<double*>(nullptr)}) {
        try {
            impl.give_IPs1_coords_global(0, -1, out);
            ADD_FAILURE() << "no exception";
        } catch (const std::range_error& e) {
            EXPECT_STREQ(e.what(), kNegativeCast);
        }
        try {
            impl.give_IPs2_coords_natural(0, -3, out);
            ADD_FAILURE() << "no exception";
        } catch (const std::range_error& e) {
            EXPECT_STREQ(e.what(), kNegativeCast);
        }
    }
}

TEST(AdaptivityImplCallbacks, NaturalCoordsComeWithTheHostsWeight) {
    NiceMock<MockResultsAPI> api;
    ExposedImpl impl(api, 0.05);
    EXPECT_CALL(api, GetIntegrationPointLocalCoords(7, 1))
        .WillOnce(Return(CKQPoint3D(2.0 / 3, 1.0 / 6, 1.0 / 6)));
    EXPECT_CALL(api, GetIntegrationPointWeight(7, 1)).WillOnce(Return(0.3333333333333333));
    double c[3] = {};
    EXPECT_EQ(impl.give_IPs2_coords_natural(7, 1, c), 0.3333333333333333);
    EXPECT_EQ(c[0], 2.0 / 3);
    EXPECT_EQ(c[1], 1.0 / 6);
    EXPECT_EQ(c[2], 1.0 / 6);
    EXPECT_THROW(impl.give_IPs2_coords_natural(7, 1, nullptr), CInvalidArgException);
}

// --- values ------------------------------------------------------------------------------------

TEST(AdaptivityImplCallbacks, ValueCountIsTheHostsForAnyElementPointAndKind) {
    NiceMock<MockResultsAPI> api;
    ExposedImpl impl(api, 0.05);
    EXPECT_CALL(api, GetCountOfResults()).WillRepeatedly(Return(8UL));
    EXPECT_EQ(impl.give_IPs1_values_count(0, 0, meerspace::MEER_IPV_FORCES), 8);
    EXPECT_EQ(impl.give_IPs1_values_count(99, 3, meerspace::MEER_IPV_DEFORMATIONS), 8);
    EXPECT_EQ(impl.give_IPs2_values_count(-5, -1, meerspace::MEER_IPV_NONE), 8);
}

TEST(AdaptivityImplCallbacks, AWrongValueCountThrowsBeforeAnythingIsRead) {
    NiceMock<MockResultsAPI> api;
    ExposedImpl impl(api, 0.05);
    ON_CALL(api, GetCountOfResults()).WillByDefault(Return(8UL));
    EXPECT_CALL(api, GetIntegrationPointResults).Times(0);
    double values[9] = {};
    EXPECT_THROW(impl.give_IPs1_values(0, 0, meerspace::MEER_IPV_FORCES, 9, values),
                 std::bad_function_call);
    EXPECT_THROW(impl.give_IPs2_values(0, 0, meerspace::MEER_IPV_FORCES, 7, values),
                 std::bad_function_call);
}

TEST(AdaptivityImplCallbacks, KindOneReadsTheDeformationsAndEveryOtherKindTheForces) {
    NiceMock<MockResultsAPI> api;
    ExposedImpl impl(api, 0.05);
    ON_CALL(api, GetCountOfResults()).WillByDefault(Return(8UL));
    double values[8] = {};
    testing::InSequence order;
    EXPECT_CALL(api, GetIntegrationPointResults(4, 2, Outcome64Enums::eIPDT_Deformations, values));
    EXPECT_CALL(api,
                GetIntegrationPointResults(4, 2, Outcome64Enums::eIPDT_InternalForces, values));
    EXPECT_CALL(api,
                GetIntegrationPointResults(4, 2, Outcome64Enums::eIPDT_InternalForces, values));
    EXPECT_CALL(api,
                GetIntegrationPointResults(4, 2, Outcome64Enums::eIPDT_InternalForces, values));
    impl.give_IPs1_values(4, 2, meerspace::MEER_IPV_DEFORMATIONS, 8, values);
    impl.give_IPs1_values(4, 2, meerspace::MEER_IPV_FORCES, 8, values);
    impl.give_IPs1_values(4, 2, meerspace::MEER_IPV_NONE, 8, values);
    impl.give_IPs1_values(4, 2, static_cast<meerspace::MEER_IPValues>(7), 8, values);
}

TEST(AdaptivityImplCallbacks, TheSecondPointSetGivesExactlyWhatTheFirstGives) {
    FakeModel model = GridModel(2, 1, true, CurvedField);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    for (std::int32_t e = 0; e < 4; ++e) {
        EXPECT_EQ(impl.give_number_of_IPs2(e), impl.give_number_of_IPs1(e));
        for (int ip = 0; ip < 3; ++ip) {
            for (auto kind : {meerspace::MEER_IPV_DEFORMATIONS, meerspace::MEER_IPV_FORCES}) {
                EXPECT_EQ(impl.give_IPs2_values_count(e, ip, kind),
                          impl.give_IPs1_values_count(e, ip, kind));
                double a[8] = {}, b[8] = {};
                impl.give_IPs1_values(e, ip, kind, 8, a);
                impl.give_IPs2_values(e, ip, kind, 8, b);
                for (int j = 0; j < 8; ++j)
                    EXPECT_EQ(a[j], b[j]);
            }
        }
    }
}

// The IPs2 callbacks reach their IPs1 twins through the virtual slots: a class that answers
// IPs1 differently changes the IPs2 answers with it.
TEST(AdaptivityImplCallbacks, TheSecondPointSetForwardsThroughTheVirtualSlots) {
    struct Overriding : ExposedImpl {
        using ExposedImpl::ExposedImpl;
        std::int32_t give_number_of_IPs1(std::int32_t elem) const override { return 100 + elem; }
        std::int32_t give_IPs1_values_count(std::int32_t elem, int ip,
                                            meerspace::MEER_IPValues kind) const override {
            return 1000 * elem + 10 * ip + static_cast<std::int32_t>(kind);
        }
        void give_IPs1_values(std::int32_t elem, int ip, meerspace::MEER_IPValues kind,
                              std::int32_t count, double* values) const override {
            values[0] = elem;
            values[1] = ip;
            values[2] = kind;
            values[3] = count;
        }
    };
    NiceMock<MockResultsAPI> api;
    EXPECT_CALL(api, GetCountOfIntegrationPoints).Times(0);
    EXPECT_CALL(api, GetCountOfResults).Times(0);
    EXPECT_CALL(api, GetIntegrationPointResults).Times(0);
    Overriding impl(api, 0.05);
    ExposedImpl& base = impl;
    EXPECT_EQ(base.give_number_of_IPs2(7), 107);
    EXPECT_EQ(base.give_IPs2_values_count(3, 2, meerspace::MEER_IPV_FORCES), 3022);
    double values[4] = {};
    base.give_IPs2_values(5, 1, meerspace::MEER_IPV_DEFORMATIONS, 42, values);
    EXPECT_EQ(values[0], 5.0);
    EXPECT_EQ(values[1], 1.0);
    EXPECT_EQ(values[2], 1.0);
    EXPECT_EQ(values[3], 42.0);
}

// give_IPs1_values asks for the count through its virtual slot before it reads.
TEST(AdaptivityImplCallbacks, TheValueCountIsCheckedThroughItsVirtualSlot) {
    struct Counting : ExposedImpl {
        using ExposedImpl::ExposedImpl;
        std::int32_t give_IPs1_values_count(std::int32_t, int,
                                            meerspace::MEER_IPValues) const override {
            return 3;
        }
    };
    NiceMock<MockResultsAPI> api;
    ON_CALL(api, GetCountOfResults()).WillByDefault(Return(8UL));
    Counting impl(api, 0.05);
    double values[8] = {};
    EXPECT_CALL(api, GetIntegrationPointResults).Times(0);
    EXPECT_THROW(impl.give_IPs1_values(0, 0, meerspace::MEER_IPV_FORCES, 8, values),
                 std::bad_function_call);
    testing::Mock::VerifyAndClearExpectations(&api);
    EXPECT_CALL(api,
                GetIntegrationPointResults(0, 0, Outcome64Enums::eIPDT_InternalForces, values));
    impl.give_IPs1_values(0, 0, meerspace::MEER_IPV_FORCES, 3, values);
}

// --- elements at a node ------------------------------------------------------------------------

TEST(AdaptivityImplCallbacks, ElementsAtANodeComeInAscendingOrder) {
    FakeModel model = GridModel(2, 2, false);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    std::int32_t elems[64];
    std::int32_t count = -1;
    impl.give_superelems_to_node(4, count, elems); // the centre node of the 2 x 2 grid
    ASSERT_EQ(count, 4);
    EXPECT_EQ(elems[0], 0);
    EXPECT_EQ(elems[1], 1);
    EXPECT_EQ(elems[2], 2);
    EXPECT_EQ(elems[3], 3);
    impl.give_superelems_to_node(8, count, elems); // a corner
    ASSERT_EQ(count, 1);
    EXPECT_EQ(elems[0], 3);
    EXPECT_THROW(impl.give_superelems_to_node(4, count, nullptr), CInvalidArgException);
}

TEST(AdaptivityImplCallbacks, ANodeOfNoElementGivesCountZeroAndLeavesTheBufferAlone) {
    FakeModel model = GridModel(1, 1, false);
    model.nodes.emplace_back(5.0, 5.0, 0.0); // referenced by no element
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    std::int32_t elems[64];
    std::fill(std::begin(elems), std::end(elems), -7);
    std::int32_t count = 99;
    impl.give_superelems_to_node(4, count, elems);
    EXPECT_EQ(count, 0);
    for (std::int32_t v : elems)
        EXPECT_EQ(v, -7);
}

// --- validity ----------------------------------------------------------------------------------

// A corner whose neighbours lie in opposite directions (180 degrees) passes: here P1 of a
// quadrilateral lies on the straight line from P0 to P2.
TEST(AdaptivityImplValidity, AStraightCornerPasses) {
    OneElement q({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {1, 1, 0}});
    EXPECT_TRUE(q.impl->is_element_valid(0));
}

// Reading kept: a triangle whose three points are collinear, one between the other two, is
// INVALID here, although one could expect it to pass as a straight (180 degree) corner. The
// corner test looks at every corner in turn: the middle point sees its neighbours in opposite
// directions and passes, but an end point sees both others in the same direction (0 degrees,
// dot product 1 > cos 1 degree), so the end corner fails and with it the element. We follow
// the corner test as it is written rather than special-casing the straight corner.
TEST(AdaptivityImplValidity, ACollinearTriangleFailsAtItsEndCorners) {
    OneElement middleLast({{0, 0, 0}, {2, 0, 0}, {1, 0, 0}});
    EXPECT_FALSE(middleLast.impl->is_element_valid(0));
    OneElement middleFirst({{1, 0, 0}, {0, 0, 0}, {2, 0, 0}});
    EXPECT_FALSE(middleFirst.impl->is_element_valid(0));
}

TEST(AdaptivityImplValidity, ATriangleWithTwoPointsInAlmostTheSameDirectionIsInvalid) {
    // Seen from P0, P1 and P2 lie 0.5 degrees apart.
    const double a = 0.5 * 3.141592653589793 / 180.0;
    OneElement t({{0, 0, 0}, {1, 0, 0}, {2 * std::cos(a), 2 * std::sin(a), 0}});
    EXPECT_FALSE(t.impl->is_element_valid(0));
    // 1.5 degrees apart is a thin but acceptable corner.
    const double b = 1.5 * 3.141592653589793 / 180.0;
    OneElement u({{0, 0, 0}, {1, 0, 0}, {2 * std::cos(b), 2 * std::sin(b), 0}});
    EXPECT_TRUE(u.impl->is_element_valid(0));
}

// P1 and P2 in exactly the same direction from P0 (P1 between P0 and P2), and within less
// than 1 degree on either side of the limit.
TEST(AdaptivityImplValidity, PointsInTheSameDirectionFromP0WithinLessThanOneDegreeAreInvalid) {
    OneElement straight({{0, 0, 0}, {1, 0, 0}, {3, 0, 0}});
    EXPECT_FALSE(straight.impl->is_element_valid(0));
    const double below = 0.999 * 3.141592653589793 / 180.0;
    OneElement justBelow({{0, 0, 0}, {1, 0, 0}, {std::cos(below), std::sin(below), 0}});
    EXPECT_FALSE(justBelow.impl->is_element_valid(0));
    const double above = 1.001 * 3.141592653589793 / 180.0;
    OneElement justAbove({{0, 0, 0}, {1, 0, 0}, {std::cos(above), std::sin(above), 0}});
    EXPECT_TRUE(justAbove.impl->is_element_valid(0));
}

TEST(AdaptivityImplValidity, TheThinCornerIsFoundAtEveryCornerOfATriangle) {
    const double a = 0.5 * 3.141592653589793 / 180.0;
    const CKQPoint3D apex(0, 0, 0), near(1, 0, 0), far(2 * std::cos(a), 2 * std::sin(a), 0);
    OneElement at1({near, apex, far});
    EXPECT_FALSE(at1.impl->is_element_valid(0));
    OneElement at2({near, far, apex});
    EXPECT_FALSE(at2.impl->is_element_valid(0));
}

// A corner at a point that coincides with a neighbour meets a zero vector (dot product 0)
// and passes; so does the neighbour's corner.
TEST(AdaptivityImplValidity, CoincidentPointsPass) {
    OneElement q({{0, 0, 0}, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    EXPECT_TRUE(q.impl->is_element_valid(0));
}

TEST(AdaptivityImplValidity, AQuadrilateralWithAThinCornerIsInvalidAndARegularOneValid) {
    OneElement square({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}});
    EXPECT_TRUE(square.impl->is_element_valid(0));
    // P2 seen from P1 lies almost in the direction of P0.
    OneElement thin({{0, 0, 0}, {1, 0, 0}, {-1, 0.001, 0}, {0, 1, 0}});
    EXPECT_FALSE(thin.impl->is_element_valid(0));
    // Four points on a line in order: every corner sees its neighbours in opposite directions
    // except the ends, whose neighbours lie on one side.
    OneElement line({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}});
    EXPECT_FALSE(line.impl->is_element_valid(0));
}

TEST(AdaptivityImplValidity, AnElementOfAnotherTypeIsAlwaysValidAndInterpolatedAsATriangle) {
    OneElement t({{0, 0, 0}, {1, 0, 0}, {2, 0.0001, 0}});
    ON_CALL(t.api, GetElementType(0))
        .WillByDefault(Return(static_cast<Outcome64Enums::eElementType>(2)));
    // Degenerate enough to fail as a triangle.
    const double a = 0.1 * 3.141592653589793 / 180.0;
    t.impl->elements[0].ip_coords[2] = meerspace::PoinT(2 * std::cos(a), 2 * std::sin(a), 0);
    EXPECT_TRUE(t.impl->is_element_valid(0));
    EXPECT_EQ(t.impl->give_element_EDI(0), meerspace::MEER_EDI_TRIANGLE_LINEAR);
}

TEST(AdaptivityImplValidity, TheTestReadsTheCachedPointsNotTheHosts) {
    OneElement t({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    EXPECT_CALL(t.api, GetIntegrationPointGlobalCoords).Times(0);
    EXPECT_TRUE(t.impl->is_element_valid(0));
    const double a = 0.2 * 3.141592653589793 / 180.0;
    t.impl->elements[0].ip_coords[2] = meerspace::PoinT(std::cos(a), std::sin(a), 0);
    EXPECT_FALSE(t.impl->is_element_valid(0));
}

// Decision: a triangle or quadrilateral with fewer cached points than the test reads is
// refused with its (one-based) element number instead of being read past its point array.
TEST(AdaptivityImplValidity, TooFewCachedPointsAreRefusedWithTheElementNumber) {
    FakeModel model = GridModel(2, 1, false);
    model.elements[1].points.resize(2); // a "triangle" (not 4 points) of 2 points
    FillValues(model, LinearField);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    try {
        impl.is_element_valid(1);
        ADD_FAILURE() << "no exception";
    } catch (const std::length_error& e) {
        EXPECT_STREQ(e.what(),
                     "element 2 (triangle) has 2 integration points; its validity test needs 3");
    }
    // A quadrilateral whose cache holds fewer points than its type promises.
    impl.elements[0].n_ips1 = 3;
    EXPECT_THROW(impl.is_element_valid(0), std::length_error);
}
