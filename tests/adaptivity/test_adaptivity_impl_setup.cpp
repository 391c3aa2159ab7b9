// The estimator bridge's set-up (Init: the mesh copied into the engine) and run.
#include "adaptivity/AdaptivityImpl.h"
#include "tests/adaptivity/results_api_double.h"

#include <gtest/gtest.h>

#include <stdexcept>

using testing::_;
using testing::DoAll;
using testing::InSequence;
using testing::NiceMock;
using testing::Return;
using testing::SetArgReferee;

namespace {

// The bridge as tests hold it: its destructor gives nodes that no run prepared the normals
// the engine expects, so that an object whose Init or Run failed can be destroyed. The bridge
// itself does not do this (see the death tests below).
class ExposedImpl : public CAdaptivityImpl {
public:
    using CAdaptivityImpl::CAdaptivityImpl;
    ~ExposedImpl() override { LetEngineBeDestroyed(*this); }
    using CAdaptivityImpl::give_superelems_to_node;
};

const char* const kNegativeCast = "overflow - casting negative value to unsigned";
// The engine's report when it is destroyed with nodes that no run prepared.
const char* const kInternalError =
    "ERROR:  za ktery muze autor teto sqele utility, bezte ho vytahat za usi";

// Two slabs: a 2 x 1 quadrilateral grid (slab 0) and, beside it, two triangles (slab 1).
FakeModel TwoSlabs() {
    FakeModel model = GridModel(2, 1, false);
    const unsigned long base = model.nodes.size();
    model.nodes.emplace_back(3.0, 0.0, 0.0);
    model.nodes.emplace_back(3.0, 1.0, 0.0);
    for (std::vector<unsigned long> cell : {std::vector<unsigned long>{2, base, base + 1},
                                            std::vector<unsigned long>{2, base + 1, 5}}) {
        FakeElement e;
        e.slab = 1;
        e.nodes = cell;
        e.points =
            IntegrationPoints({model.nodes[cell[0]], model.nodes[cell[1]], model.nodes[cell[2]]});
        model.elements.push_back(e);
    }
    model.slabs = 2;
    FillValues(model, LinearField);
    return model;
}

std::vector<std::int32_t> ElementsAt(const ExposedImpl& impl, std::int32_t node) {
    std::int32_t buffer[64];
    std::int32_t count = 0;
    impl.give_superelems_to_node(node, count, buffer);
    return {buffer, buffer + count};
}

} // namespace

TEST(AdaptivityImplSetup, InitSetsTheEngineOptions) {
    FakeModel model = GridModel(1, 1, false);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.max_size_ratio = 7.0;
    impl.min_size_ratio = 0.9;
    impl.Init();
    EXPECT_EQ(impl.enorm, 2);
    EXPECT_EQ(impl.max_size_ratio, 2.0);
    EXPECT_EQ(impl.min_size_ratio, 0.25);
    EXPECT_EQ(impl.patch_mode, 2);
    EXPECT_FALSE(impl.planar);
    EXPECT_EQ(impl.GetGlobalError(), 0.0);
}

TEST(AdaptivityImplSetup, InitCopiesNodesElementsAndIntegrationPoints) {
    FakeModel model = TwoSlabs();
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    ASSERT_EQ(impl.n_nodes, 8);
    ASSERT_EQ(impl.n_elems, 4);
    ASSERT_EQ(impl.n_regions, 2);
    for (std::int32_t n = 0; n < impl.n_nodes; ++n) {
        EXPECT_EQ(impl.nodes[n].number, n);
        EXPECT_EQ(impl.nodes[n].coords.x, model.nodes[n].x);
        EXPECT_EQ(impl.nodes[n].coords.y, model.nodes[n].y);
        EXPECT_EQ(impl.nodes[n].coords.z, model.nodes[n].z);
    }
    for (std::int32_t e = 0; e < impl.n_elems; ++e) {
        const meerspace::ELEMENT& rec = impl.elements[e];
        const FakeElement& src = model.elements[e];
        EXPECT_EQ(rec.number, e);
        EXPECT_EQ(rec.region, static_cast<std::int32_t>(src.slab));
        ASSERT_EQ(rec.n_nodes, static_cast<std::int32_t>(src.nodes.size()));
        for (std::size_t i = 0; i < src.nodes.size(); ++i)
            EXPECT_EQ(rec.nodes[i], static_cast<std::int32_t>(src.nodes[i]));
        ASSERT_EQ(rec.n_ips1, static_cast<std::int32_t>(src.points.size()));
        for (std::size_t j = 0; j < src.points.size(); ++j) {
            EXPECT_EQ(rec.ip_coords[j].x, src.points[j].x);
            EXPECT_EQ(rec.ip_coords[j].y, src.points[j].y);
            EXPECT_EQ(rec.ip_coords[j].z, src.points[j].z);
        }
    }
    for (std::int32_t r = 0; r < 2; ++r) {
        EXPECT_EQ(impl.regions[r].number, r);
        EXPECT_EQ(impl.regions[r].n_values, 8);
        EXPECT_EQ(impl.regions[r].spr_patch_type, 1);
    }
    // Node 2 is shared by both quadrilaterals' neighbour and both triangles.
    EXPECT_EQ(ElementsAt(impl, 2), (std::vector<std::int32_t>{1, 2, 3}));
    EXPECT_EQ(ElementsAt(impl, 5), (std::vector<std::int32_t>{1, 3}));
}

TEST(AdaptivityImplSetup, SlabsThatFollowOneAnotherGiveEveryElementItsSlab) {
    // Three slabs of 2, 1 and 3 elements, the host's ranges 0-1, 2, 3-5.
    FakeModel model = GridModel(6, 1, false);
    const unsigned long slabOf[6] = {0, 0, 1, 2, 2, 2};
    for (int e = 0; e < 6; ++e)
        model.elements[e].slab = slabOf[e];
    model.slabs = 3;
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    for (int e = 0; e < 6; ++e)
        EXPECT_EQ(impl.elements[e].region, static_cast<std::int32_t>(slabOf[e])) << "element " << e;
}

TEST(AdaptivityImplSetup, ASlabWithoutElementsIsPassedOver) {
    FakeModel model = GridModel(2, 1, false);
    model.elements[1].slab = 2;
    model.slabs = 3; // slab 1 has no element
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ON_CALL(api, GetElementsOnSlab(1, _))
        .WillByDefault(DoAll(SetArgReferee<1>(0UL), Return(static_cast<unsigned long>(-1))));
    ExposedImpl impl(api, 0.05);
    impl.Init();
    EXPECT_EQ(impl.n_elems, 2);
    EXPECT_EQ(impl.elements[0].region, 0);
    EXPECT_EQ(impl.elements[1].region, 2);
}

// Decision: the slab ranges are checked only where the map of elements to slabs would be
// written beyond its end; such a range is refused with the slab's (one-based) number.
TEST(AdaptivityImplSetup, ASlabRangeBeyondTheElementsCountedSoFarIsRefused) {
    FakeModel model = GridModel(3, 1, false);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    EXPECT_CALL(api, GetElementsOnSlab(0, _))
        .WillOnce(DoAll(SetArgReferee<1>(2UL), Return(1UL))); // elements 1-2 of a count of 2
    EXPECT_CALL(api, NodeCoords).Times(0);
    CAdaptivityImpl impl(api, 0.05);
    try {
        impl.Init();
        ADD_FAILURE() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "slab 1: its elements 2 to 3 lie beyond the 2 elements of the "
                               "slabs up to it");
    }
}

// Decision: ranges that overlap leave elements that no slab claims; such an element is
// refused with its (one-based) number instead of being read from outside the map.
TEST(AdaptivityImplSetup, AnElementThatNoSlabClaimsIsRefused) {
    FakeModel model = GridModel(3, 1, false);
    model.slabs = 2;
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ON_CALL(api, GetElementsOnSlab(0, _)).WillByDefault(DoAll(SetArgReferee<1>(2UL), Return(0UL)));
    ON_CALL(api, GetElementsOnSlab(1, _)).WillByDefault(DoAll(SetArgReferee<1>(1UL), Return(0UL)));
    ExposedImpl impl(api, 0.05);
    try {
        impl.Init();
        ADD_FAILURE() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "element 3 belongs to no slab");
    }
}

// Decision: the engine counts in 32 bits; a host count beyond that is refused before anything
// is allocated.
TEST(AdaptivityImplSetup, ACountBeyondThirtyTwoBitsIsRefused) {
    NiceMock<MockResultsAPI> api;
    ON_CALL(api, GetNoOfNodes()).WillByDefault(Return(1UL << 31));
    ON_CALL(api, GetNoOfSlabs()).WillByDefault(Return(1UL));
    EXPECT_CALL(api, GetElementsOnSlab).Times(0);
    CAdaptivityImpl impl(api, 0.05);
    try {
        impl.Init();
        ADD_FAILURE() << "no exception";
    } catch (const std::range_error& e) {
        EXPECT_STREQ(e.what(), "count 2147483648 exceeds the estimator's 32-bit range");
    }
    EXPECT_EQ(impl.nodes, nullptr);
}

TEST(AdaptivityImplSetup, ANodeOfNoElementKeepsAnEmptyList) {
    FakeModel model = GridModel(1, 1, false);
    model.nodes.emplace_back(9.0, 9.0, 0.0);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    EXPECT_TRUE(ElementsAt(impl, 4).empty());
    EXPECT_EQ(ElementsAt(impl, 0), (std::vector<std::int32_t>{0}));
}

TEST(AdaptivityImplSetup, AnElementWithoutIntegrationPointsGetsAnEmptyPointArray) {
    FakeModel model = GridModel(2, 1, false);
    model.elements[1].points.clear();
    FillValues(model, LinearField);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    EXPECT_CALL(api, GetIntegrationPointGlobalCoords(1, _)).Times(0);
    EXPECT_CALL(api, GetIntegrationPointGlobalCoords(0, _)).Times(4);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    EXPECT_EQ(impl.elements[1].n_ips1, 0);
    EXPECT_EQ(impl.elements[0].n_ips1, 4);
}

TEST(AdaptivityImplSetup, ANegativeNodeCountStopsInitWithARangeError) {
    NiceMock<MockResultsAPI> api;
    ON_CALL(api, GetNoOfNodes()).WillByDefault(Return(static_cast<unsigned long>(-3)));
    ON_CALL(api, GetNoOfSlabs()).WillByDefault(Return(1UL));
    CAdaptivityImpl impl(api, 0.05);
    try {
        impl.Init();
        ADD_FAILURE() << "no exception";
    } catch (const std::range_error& e) {
        EXPECT_STREQ(e.what(), kNegativeCast);
    }
}

TEST(AdaptivityImplSetup, NegativeSlabAndElementCountsStopInitWithARangeError) {
    FakeModel model = GridModel(1, 1, false);
    {
        NiceMock<MockResultsAPI> api;
        ServeModel(api, model);
        ON_CALL(api, GetNoOfSlabs()).WillByDefault(Return(static_cast<unsigned long>(-1)));
        CAdaptivityImpl impl(api, 0.05);
        EXPECT_THROW(impl.Init(), std::range_error);
    }
    {
        NiceMock<MockResultsAPI> api;
        ServeModel(api, model);
        ON_CALL(api, GetElementsOnSlab(0, _))
            .WillByDefault(DoAll(SetArgReferee<1>(static_cast<unsigned long>(-2)), Return(0UL)));
        CAdaptivityImpl impl(api, 0.05);
        EXPECT_THROW(impl.Init(), std::range_error);
    }
}

// A negative count after the engine's tables exist reaches the caller as the range error.
TEST(AdaptivityImplSetup, ANegativePointCountAfterTheTablesExistReachesTheCaller) {
    FakeModel model = GridModel(2, 1, false);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ON_CALL(api, GetCountOfIntegrationPoints(1))
        .WillByDefault(Return(static_cast<unsigned long>(-1)));
    ExposedImpl impl(api, 0.05);
    try {
        impl.Init();
        ADD_FAILURE() << "no exception";
    } catch (const std::range_error& e) {
        EXPECT_STREQ(e.what(), kNegativeCast);
    }
    EXPECT_EQ(impl.n_nodes, 6); // the tables were made before the failure
}

TEST(AdaptivityImplSetup, AHostErrorWhileCopyingTheMeshReachesTheCallerUnchanged) {
    FakeModel model = GridModel(2, 1, false);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ON_CALL(api, GetNodesOnElement(1, _)).WillByDefault(testing::Throw(std::runtime_error("host")));
    ExposedImpl impl(api, 0.05);
    try {
        impl.Init();
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "host");
    }
}

// Init leaves nothing tidied after a failure: once the node table exists, destroying the
// object ends the process with the engine's internal-error report.
TEST(AdaptivityImplSetupDeathTest, DestroyingAfterAnInitFailureOnceTheNodesExistEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            FakeModel model = GridModel(2, 1, false);
            NiceMock<MockResultsAPI> api;
            ServeModel(api, model);
            ON_CALL(api, GetNodesOnElement(1, _))
                .WillByDefault(testing::Throw(std::runtime_error("host")));
            auto* impl = new CAdaptivityImpl(api, 0.05);
            try {
                impl->Init();
            } catch (const std::runtime_error&) {
            }
            delete impl;
        },
        kInternalError);
}

// Before the node table exists there is nothing the engine could object to.
TEST(AdaptivityImplSetup, AnInitFailureBeforeTheNodeTableExistsLeavesADestroyableObject) {
    NiceMock<MockResultsAPI> api;
    ON_CALL(api, GetNoOfNodes()).WillByDefault(Return(4UL));
    ON_CALL(api, GetNoOfSlabs()).WillByDefault(Return(static_cast<unsigned long>(-1)));
    auto impl = std::make_unique<CAdaptivityImpl>(api, 0.05);
    EXPECT_THROW(impl->Init(), std::range_error);
    EXPECT_EQ(impl->nodes, nullptr);
    impl.reset();
}

TEST(AdaptivityImplSetup, AnElementReferringToAMissingNodeIsRefused) {
    FakeModel model = GridModel(1, 1, false);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ON_CALL(api, GetNodesOnElement(0, _))
        .WillByDefault(testing::SetArgReferee<1>(std::vector<unsigned long>{0, 1, 3, 4}));
    ExposedImpl impl(api, 0.05);
    try {
        impl.Init();
        ADD_FAILURE() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "element 1 refers to node 5, but the mesh has 4 nodes");
    }
}

TEST(AdaptivityImplSetup, AnElementWithFewerListedNodesThanItsCountIsRefused) {
    FakeModel model = GridModel(1, 1, false);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ON_CALL(api, GetNodesOnElement(0, _))
        .WillByDefault(testing::SetArgReferee<1>(std::vector<unsigned long>{0, 1, 3}));
    ExposedImpl impl(api, 0.05);
    EXPECT_THROW(impl.Init(), std::out_of_range);
}

namespace {

// A fan of `count` triangles around node 1 (index 0).
FakeModel FanModel(int count) {
    FakeModel model;
    model.nodes.emplace_back(0.0, 0.0, 0.0);
    for (int k = 0; k < count; ++k) {
        const double a = 2 * 3.141592653589793 * k / count;
        model.nodes.emplace_back(std::cos(a), std::sin(a), 0.0);
    }
    for (int k = 0; k < count; ++k) {
        FakeElement e;
        e.nodes = {0, static_cast<unsigned long>(1 + k),
                   static_cast<unsigned long>(1 + (k + 1) % count)};
        e.points = IntegrationPoints(
            {model.nodes[e.nodes[0]], model.nodes[e.nodes[1]], model.nodes[e.nodes[2]]});
        model.elements.push_back(e);
    }
    FillValues(model, LinearField);
    return model;
}

} // namespace

// Decision: a node of more than 64 elements (the engine's list buffers hold 64) is refused by
// Init with its (one-based) node number. The count is known only once the mesh is copied, so
// the refusal comes after the engine's tables exist.
TEST(AdaptivityImplSetup, ANodeOfMoreThan64ElementsIsRefusedWithItsNumber) {
    const FakeModel model = FanModel(70);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    try {
        impl.Init();
        ADD_FAILURE() << "no exception";
    } catch (const std::length_error& e) {
        EXPECT_STREQ(e.what(), "node 1 belongs to 70 elements; the estimator takes at most 64");
    }
    EXPECT_EQ(impl.n_nodes, 71);
}

// The refusal is an Init failure like any other: the object that made it cannot be destroyed
// without ending the process.
TEST(AdaptivityImplSetupDeathTest, DestroyingAfterRefusingABusyNodeEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const FakeModel model = FanModel(70);
            NiceMock<MockResultsAPI> api;
            ServeModel(api, model);
            auto* impl = new CAdaptivityImpl(api, 0.05);
            try {
                impl->Init();
            } catch (const std::length_error&) {
            }
            delete impl;
        },
        kInternalError);
}

TEST(AdaptivityImplSetup, SixtyFourElementsAtANodeAreAccepted) {
    const FakeModel model = FanModel(64);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    EXPECT_EQ(ElementsAt(impl, 0).size(), 64u);
}

TEST(AdaptivityImplSetup, InitAsksTheHostInTheOrderOfTheCopy) {
    FakeModel model;
    model.nodes = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    FakeElement e;
    e.nodes = {0, 1, 2};
    e.points = IntegrationPoints(model.nodes);
    model.elements.push_back(e);
    FillValues(model, LinearField);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    {
        InSequence order;
        EXPECT_CALL(api, GetNoOfNodes());
        EXPECT_CALL(api, GetNoOfSlabs());
        EXPECT_CALL(api, GetElementsOnSlab(0, _));
        EXPECT_CALL(api, NodeCoords(0));
        EXPECT_CALL(api, NodeCoords(1));
        EXPECT_CALL(api, NodeCoords(2));
        EXPECT_CALL(api, GetCountOfDefNodes(0));
        EXPECT_CALL(api, GetNodesOnElement(0, _));
        EXPECT_CALL(api, GetCountOfIntegrationPoints(0));
        EXPECT_CALL(api, GetIntegrationPointGlobalCoords(0, 0));
        EXPECT_CALL(api, GetIntegrationPointGlobalCoords(0, 1));
        EXPECT_CALL(api, GetIntegrationPointGlobalCoords(0, 2));
        EXPECT_CALL(api, GetCountOfResults());
    }
    ExposedImpl impl(api, 0.05);
    impl.Init();
}

TEST(AdaptivityImplSetup, InitCallsInitializeThroughItsVirtualSlot) {
    struct Counting : ExposedImpl {
        using ExposedImpl::ExposedImpl;
        void initialize() override { ++calls; }
        int calls = 0;
    };
    NiceMock<MockResultsAPI> api;
    Counting impl(api, 0.05);
    impl.Init();
    EXPECT_EQ(impl.calls, 1);
}

// --- run -------------------------------------------------------------------------------------

TEST(AdaptivityImplRun, ALinearFieldHasNoErrorAndEveryElementDoublesItsSize) {
    for (bool triangles : {false, true}) {
        FakeModel model = GridModel(4, 3, triangles);
        NiceMock<MockResultsAPI> api;
        ServeModel(api, model);
        CAdaptivityImpl impl(api, 0.05);
        impl.Init();
        impl.Run();
        EXPECT_TRUE(Near(0.0, impl.GetGlobalError(), 1e-7)) << (triangles ? "triangles" : "quads");
        const double h = triangles ? 1.0 : 1.0; // sqrt(2 * 0.5) and sqrt(1)
        for (std::int32_t e = 0; e < impl.n_elems; ++e)
            EXPECT_TRUE(Near(2 * h, impl.give_elem_new_size()[e]));
    }
}

TEST(AdaptivityImplRun, ACurvedFieldGivesTheEnginesGlobalError) {
    FakeModel model = GridModel(4, 4, false, CurvedField);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    CAdaptivityImpl impl(api, 0.05);
    impl.Init();
    impl.Run();
    const double e2 = impl.give_elem_error2().sum();
    const double u2 = impl.give_elem_norm2().sum();
    EXPECT_GT(impl.GetGlobalError(), 0.0);
    EXPECT_TRUE(Near(std::sqrt(e2 / (e2 + u2)), impl.GetGlobalError()));
}

TEST(AdaptivityImplRun, TheTargetErrorReachesTheSizing) {
    FakeModel model = GridModel(4, 4, false, CurvedField);
    std::vector<double> sizes[2];
    const double targets[2] = {0.5, 0.001};
    for (int k = 0; k < 2; ++k) {
        NiceMock<MockResultsAPI> api;
        ServeModel(api, model);
        CAdaptivityImpl impl(api, targets[k]);
        impl.Init();
        impl.Run();
        for (std::int32_t e = 0; e < impl.n_elems; ++e)
            sizes[k].push_back(impl.give_elem_new_size()[e]);
    }
    // A loose target coarsens (at most 2 h), a strict one refines (at least h / 4).
    for (std::size_t e = 0; e < sizes[0].size(); ++e) {
        EXPECT_TRUE(Near(2.0, sizes[0][e])) << e;
        EXPECT_TRUE(Near(0.25, sizes[1][e])) << e;
    }
}

namespace {

// A five-node element stops the engine while it prepares the first region, before it has set
// up any node.
void ServeAFiveNodeElement(NiceMock<MockResultsAPI>& api) {
    ON_CALL(api, GetCountOfDefNodes(0)).WillByDefault(Return(5UL));
    ON_CALL(api, GetNodesOnElement(0, _))
        .WillByDefault(SetArgReferee<1>(std::vector<unsigned long>{0, 1, 4, 3, 1}));
}

} // namespace

TEST(AdaptivityImplRun, AFailedRunReachesTheCallerAndKeepsTheGlobalErrorZero) {
    FakeModel model = GridModel(2, 2, false);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ServeAFiveNodeElement(api);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    EXPECT_THROW(impl.Run(), int); // the engine's fatal report
    EXPECT_EQ(impl.GetGlobalError(), 0.0);
}

TEST(AdaptivityImplRunDeathTest, DestroyingAfterARunStoppedBeforeTheFirstRegionEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            FakeModel model = GridModel(2, 2, false);
            NiceMock<MockResultsAPI> api;
            ServeModel(api, model);
            ServeAFiveNodeElement(api);
            auto* impl = new CAdaptivityImpl(api, 0.05);
            impl->Init();
            try {
                impl->Run();
            } catch (int) {
            }
            delete impl;
        },
        kInternalError);
}

// A run that fails once the first region is prepared leaves every node with its normals:
// the object is destroyed as after a successful run.
TEST(AdaptivityImplRun, ARunThatFailsAfterTheFirstRegionIsPreparedLeavesADestroyableObject) {
    FakeModel model = GridModel(2, 2, false);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ON_CALL(api, GetIntegrationPointResults(3, _, _, _))
        .WillByDefault(testing::Throw(std::runtime_error("unreadable point")));
    auto impl = std::make_unique<CAdaptivityImpl>(api, 0.05);
    impl->Init();
    EXPECT_THROW(impl->Run(), std::runtime_error);
    for (std::int32_t n = 0; n < impl->n_nodes; ++n)
        EXPECT_NE(impl->nodes[n].normals, nullptr) << "node " << n;
    impl.reset();
}

TEST(AdaptivityImplRun, ACopySharesTheMeshAndCopiesTheListsAndErrors) {
    FakeModel model = GridModel(2, 2, false, CurvedField);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    CAdaptivityImpl impl(api, 0.05);
    impl.Init();
    impl.Run();
    {
        struct Peek : CAdaptivityImpl {
            explicit Peek(const CAdaptivityImpl& o) : CAdaptivityImpl(o) {}
            using CAdaptivityImpl::give_superelems_to_node;
        };
        Peek copy(impl);
        EXPECT_EQ(copy.nodes, impl.nodes);
        EXPECT_EQ(copy.elements, impl.elements);
        EXPECT_EQ(copy.GetGlobalError(), impl.GetGlobalError());
        std::int32_t buffer[64];
        std::int32_t count = 0;
        copy.give_superelems_to_node(4, count, buffer);
        EXPECT_EQ(count, 4);
        // The copy hands the same sizes to the host.
        std::vector<double> fromCopy, fromOriginal;
        EXPECT_CALL(api, WriteMeshRefinement)
            .WillOnce(testing::DoAll(testing::SaveArg<0>(&fromCopy), Return(true)))
            .WillOnce(testing::DoAll(testing::SaveArg<0>(&fromOriginal), Return(true)));
        copy.WriteMeshRefinement();
        impl.WriteMeshRefinement();
        EXPECT_EQ(fromCopy, fromOriginal);
    }
    // The source still owns its mesh after the copy is gone.
    EXPECT_EQ(impl.nodes[4].number, 4);
}
