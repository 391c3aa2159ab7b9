// The estimator bridge's hand-back: element vectors to the host's results, element sizes
// averaged onto the nodes for the mesher.
#include "adaptivity/AdaptivityImpl.h"
#include "tests/adaptivity/results_api_double.h"

#include <gtest/gtest.h>

#include <stdexcept>

using testing::_;
using testing::DoAll;
using testing::NiceMock;
using testing::Return;
using testing::SaveArg;

namespace {

class ExposedImpl : public CAdaptivityImpl {
public:
    using CAdaptivityImpl::CAdaptivityImpl;
    ~ExposedImpl() override { LetEngineBeDestroyed(*this); }
};

void SetVector(meerspace::Dvctr& v, const std::vector<double>& values) {
    v.resize(static_cast<std::int32_t>(values.size()));
    for (std::size_t i = 0; i < values.size(); ++i)
        v[static_cast<std::ptrdiff_t>(i)] = values[i];
}

std::vector<double> NodalSizes(NiceMock<MockResultsAPI>& api, CAdaptivityImpl& impl) {
    std::vector<double> sizes;
    EXPECT_CALL(api, WriteMeshRefinement).WillOnce(DoAll(SaveArg<0>(&sizes), Return(true)));
    EXPECT_TRUE(impl.WriteMeshRefinement());
    return sizes;
}

} // namespace

TEST(AdaptivityImplResults, ANodeSharedByElementsOfSizes02And04Gets03) {
    FakeModel model = GridModel(2, 1, false); // nodes 1 and 4 are shared
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    SetVector(impl.elem_new_size, {0.2, 0.4});
    const std::vector<double> sizes = NodalSizes(api, impl);
    ASSERT_EQ(sizes.size(), 6u);
    EXPECT_TRUE(Near(0.2, sizes[0]));
    EXPECT_TRUE(Near(0.3, sizes[1]));
    EXPECT_TRUE(Near(0.4, sizes[2]));
    EXPECT_TRUE(Near(0.2, sizes[3]));
    EXPECT_TRUE(Near(0.3, sizes[4]));
    EXPECT_TRUE(Near(0.4, sizes[5]));
}

TEST(AdaptivityImplResults, ANodeOfNoElementGetsSizeZero) {
    FakeModel model = GridModel(1, 1, false);
    model.nodes.emplace_back(4.0, 4.0, 0.0);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    SetVector(impl.elem_new_size, {0.7});
    const std::vector<double> sizes = NodalSizes(api, impl);
    ASSERT_EQ(sizes.size(), 5u);
    EXPECT_EQ(sizes[4], 0.0);
}

TEST(AdaptivityImplResults, AModelOfOneElementGivesEachNodeThatElementsSize) {
    FakeModel model = GridModel(1, 1, true);
    model.elements.pop_back(); // one triangle of nodes 0, 1, 3; node 2 unused
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    SetVector(impl.elem_new_size, {0.123456789});
    const std::vector<double> sizes = NodalSizes(api, impl);
    ASSERT_EQ(sizes.size(), 4u);
    EXPECT_EQ(sizes[0], 0.123456789);
    EXPECT_EQ(sizes[1], 0.123456789);
    EXPECT_EQ(sizes[3], 0.123456789);
    EXPECT_EQ(sizes[2], 0.0);
}

TEST(AdaptivityImplResults, TheNodalSizeIsThePlainMeanOfTheElementsNotAreaWeighted) {
    // Node 4 (centre of a 2 x 2 grid) has four elements; sizes 1, 2, 3, 10.
    FakeModel model = GridModel(2, 2, false);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    SetVector(impl.elem_new_size, {1.0, 2.0, 3.0, 10.0});
    const std::vector<double> sizes = NodalSizes(api, impl);
    EXPECT_EQ(sizes[4], 4.0);
    EXPECT_EQ(sizes[1], 1.5);
}

TEST(AdaptivityImplResults, TheHostReceivesGlobalLocalNumericalAndSizesInThatOrder) {
    FakeModel model = GridModel(3, 1, false);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    SetVector(impl.elem_global_error, {11, 12, 13});
    SetVector(impl.elem_local_error, {21, 22, 23});
    SetVector(impl.elem_error_density, {31, 32, 33});
    SetVector(impl.elem_new_size, {41, 42, 43});
    EXPECT_CALL(api, StoreMeshErrorAndRefinementInResults(
                         1UL, std::vector<double>{11, 12, 13}, std::vector<double>{21, 22, 23},
                         std::vector<double>{31, 32, 33}, std::vector<double>{41, 42, 43}))
        .WillOnce(Return(true));
    EXPECT_TRUE(impl.StoreResults());
}

TEST(AdaptivityImplResults, TheHostsRefusalComesBackAsFalse) {
    FakeModel model = GridModel(1, 1, false);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    SetVector(impl.elem_global_error, {1});
    SetVector(impl.elem_local_error, {1});
    SetVector(impl.elem_error_density, {1});
    SetVector(impl.elem_new_size, {1});
    EXPECT_CALL(api, StoreMeshErrorAndRefinementInResults).WillOnce(Return(false));
    EXPECT_CALL(api, WriteMeshRefinement).WillOnce(Return(false));
    EXPECT_FALSE(impl.StoreResults());
    EXPECT_FALSE(impl.WriteMeshRefinement());
}

// Decision: before a run the engine's vectors are empty; handing them back is refused instead
// of reading past them.
TEST(AdaptivityImplResults, HandingBackBeforeARunIsRefused) {
    FakeModel model = GridModel(2, 1, false);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    ExposedImpl impl(api, 0.05);
    impl.Init();
    EXPECT_CALL(api, StoreMeshErrorAndRefinementInResults).Times(0);
    EXPECT_CALL(api, WriteMeshRefinement).Times(0);
    EXPECT_THROW(impl.StoreResults(), std::logic_error);
    EXPECT_THROW(impl.WriteMeshRefinement(), std::logic_error);
}

TEST(AdaptivityImplResults, AfterARunTheStoredVectorsAreTheEnginesVectors) {
    FakeModel model = GridModel(3, 2, true, CurvedField);
    NiceMock<MockResultsAPI> api;
    ServeModel(api, model);
    CAdaptivityImpl impl(api, 0.05);
    impl.Init();
    impl.Run();
    std::vector<double> g, l, n, r;
    EXPECT_CALL(api, StoreMeshErrorAndRefinementInResults(1UL, _, _, _, _))
        .WillOnce(
            DoAll(SaveArg<1>(&g), SaveArg<2>(&l), SaveArg<3>(&n), SaveArg<4>(&r), Return(true)));
    impl.StoreResults();
    ASSERT_EQ(g.size(), 12u);
    for (std::size_t e = 0; e < g.size(); ++e) {
        const auto i = static_cast<std::ptrdiff_t>(e);
        EXPECT_EQ(g[e], impl.give_elem_global_error()[i]);
        EXPECT_EQ(l[e], impl.give_elem_local_error()[i]);
        EXPECT_EQ(n[e], impl.give_elem_error_density()[i]);
        EXPECT_EQ(r[e], impl.give_elem_new_size()[i]);
    }
}
