// The run driver over a test double of the results access: call order, the load-case list,
// and every result code.
#include "adaptivity/AdaptExecute.h"
#include "adaptivity/AdaptivityImpl.h"
#include "tests/adaptivity/results_api_double.h"

#include <gtest/gtest.h>

#include <stdexcept>

using testing::_;
using testing::AnyNumber;
using testing::InSequence;
using testing::NiceMock;
using testing::Return;
using testing::Throw;

namespace {

// The driver with its pass in reach over any results access.
class Driver : public CAdaptExecute {
public:
    eFunctionReturnType Run(IAdaptivityResultsAPI& api, const std::vector<long>& ids = {101},
                            double target = 0.05) {
        return ExecuteOn(api, CString(L"/projects/p"), 3, 1, target, ids);
    }
};

// A model whose run succeeds and has a non-zero global error.
struct Served {
    FakeModel model = GridModel(3, 3, false, CurvedField);
    NiceMock<MockResultsAPI> api;
    Served() {
        ServeModel(api, model);
        // Tests expect single directions; the other one may come as it does.
        EXPECT_CALL(api, SerializeSolverLink(_)).Times(AnyNumber());
    }
};

// The engine's report when the estimator is destroyed with nodes that no run prepared.
const char* const kInternalError =
    "ERROR:  za ktery muze autor teto sqele utility, bezte ho vytahat za usi";

// A fan of `count` triangles around one node.
FakeModel FanModel(int count) {
    FakeModel fan;
    fan.nodes.emplace_back(0.0, 0.0, 0.0);
    for (int k = 0; k < count; ++k) {
        const double a = 2 * 3.141592653589793 * k / count;
        fan.nodes.emplace_back(std::cos(a), std::sin(a), 0.0);
    }
    for (int k = 0; k < count; ++k) {
        FakeElement e;
        e.nodes = {0, static_cast<unsigned long>(1 + k),
                   static_cast<unsigned long>(1 + (k + 1) % count)};
        e.points = IntegrationPoints(
            {fan.nodes[e.nodes[0]], fan.nodes[e.nodes[1]], fan.nodes[e.nodes[2]]});
        fan.elements.push_back(e);
    }
    FillValues(fan, LinearField);
    return fan;
}

// The global error of the served model for the default target.
double ReferenceError() {
    Served s;
    Driver d;
    EXPECT_EQ(d.Run(s.api), Success);
    return d.GetAdaptivityResult();
}

} // namespace

TEST(AdaptExecute, ResultCodesHaveTheirNumbers) {
    EXPECT_EQ(Success, 0);
    EXPECT_EQ(ResultsAccessInitFailed, 1);
    EXPECT_EQ(MeshDataPreparationFailed, 2);
    EXPECT_EQ(EstimatorInitFailed, 3);
    EXPECT_EQ(EstimatorRunFailed, 4);
    EXPECT_EQ(StoreResultsFailed, 5);
    EXPECT_EQ(WriteMeshRefinementFailed, 6);
}

TEST(AdaptExecute, ANewObjectHasResultZeroAndNoProblematicLoadCase) {
    CAdaptExecute x;
    EXPECT_EQ(x.GetAdaptivityResult(), 0.0);
    EXPECT_EQ(x.GetProblematicLoadCaseID(), -1);
}

TEST(AdaptExecute, ASuccessfulPassCallsTheResultsAccessInOrder) {
    Served s;
    {
        InSequence order;
        EXPECT_CALL(s.api, Init(CString(L"/projects/p"), 3, Outcome64Enums::eST_Linear));
        EXPECT_CALL(s.api, DeleteResultFiles());
        EXPECT_CALL(s.api, SerializeSolverLink(false));
        EXPECT_CALL(s.api, GetLoadCaseIndex(101)).WillOnce(Return(1UL));
        EXPECT_CALL(s.api, GetLoadCaseIndex(102)).WillOnce(Return(2UL));
        EXPECT_CALL(s.api, PrepareAdaptiveMeshData(std::vector<long>{1, 2}));
        EXPECT_CALL(s.api, GetNoOfNodes());
        EXPECT_CALL(s.api, StoreMeshErrorAndRefinementInResults(1UL, _, _, _, _));
        EXPECT_CALL(s.api, WriteMeshRefinement(_));
        EXPECT_CALL(s.api, SerializeSolverLink(true));
    }
    EXPECT_CALL(s.api, ClearAdaptiveMeshData()).Times(0);
    Driver d;
    EXPECT_EQ(d.Run(s.api, {101, 102}), Success);
    EXPECT_GT(d.GetAdaptivityResult(), 0.0);
    EXPECT_EQ(d.GetProblematicLoadCaseID(), -1);
}

TEST(AdaptExecute, TheTargetErrorReachesTheEstimator) {
    // A loose target doubles every size, a strict one quarters it: the sizes handed to the
    // mesher show which target the estimator got.
    for (double target : {10.0, 1e-6}) {
        Served s;
        std::vector<double> sizes;
        EXPECT_CALL(s.api, WriteMeshRefinement)
            .WillOnce(testing::DoAll(testing::SaveArg<0>(&sizes), Return(true)));
        Driver d;
        EXPECT_EQ(d.Run(s.api, {1}, target), Success);
        for (double h : sizes)
            EXPECT_TRUE(Near(target > 1 ? 2.0 : 0.25, h));
    }
}

TEST(AdaptExecute, UnusableLoadCasesAreSkippedAndDuplicatesKeptInOrder) {
    Served s;
    EXPECT_CALL(s.api, GetLoadCaseIndex(7)).WillRepeatedly(Return(3UL));
    EXPECT_CALL(s.api, GetLoadCaseIndex(8)).WillOnce(Return(0UL));
    EXPECT_CALL(s.api, GetLoadCaseIndex(9)).WillOnce(Return(0xFFFFFFFFUL));  // -1 in 32 bits
    EXPECT_CALL(s.api, GetLoadCaseIndex(10)).WillOnce(Return(0x80000000UL)); // negative too
    EXPECT_CALL(s.api, GetLoadCaseIndex(11)).WillOnce(Return(1UL));
    EXPECT_CALL(s.api, PrepareAdaptiveMeshData(std::vector<long>{3, 1, 3}));
    Driver d;
    EXPECT_EQ(d.Run(s.api, {7, 8, 9, 10, 11, 7}), Success);
}

TEST(AdaptExecute, AnEmptyListStillReachesThePreparation) {
    Served s;
    EXPECT_CALL(s.api, GetLoadCaseIndex).Times(0);
    EXPECT_CALL(s.api, PrepareAdaptiveMeshData(std::vector<long>{})).WillOnce(Return(false));
    EXPECT_CALL(s.api, SerializeSolverLink(false));
    EXPECT_CALL(s.api, SerializeSolverLink(true)).Times(0);
    Driver d;
    EXPECT_EQ(d.Run(s.api, {}), MeshDataPreparationFailed);
    EXPECT_EQ(d.GetAdaptivityResult(), 0.0);
    EXPECT_EQ(d.GetProblematicLoadCaseID(), -1);
}

TEST(AdaptExecute, OnlyUnknownLoadCasesGiveAnEmptyListAndTheOutcomeOfThePreparation) {
    {
        Served s;
        ON_CALL(s.api, GetLoadCaseIndex).WillByDefault(Return(0UL));
        EXPECT_CALL(s.api, PrepareAdaptiveMeshData(std::vector<long>{})).WillOnce(Return(false));
        Driver d;
        EXPECT_EQ(d.Run(s.api, {5, 6}), MeshDataPreparationFailed);
    }
    {
        // A results layer that accepts the empty list: the pass goes on.
        Served s;
        ON_CALL(s.api, GetLoadCaseIndex).WillByDefault(Return(0UL));
        EXPECT_CALL(s.api, PrepareAdaptiveMeshData(std::vector<long>{})).WillOnce(Return(true));
        Driver d;
        EXPECT_EQ(d.Run(s.api, {5}), Success);
    }
}

TEST(AdaptExecute, AFailedInitEndsThePassWithCode1BeforeAnythingElse) {
    for (int rc : {-1, 5}) {
        NiceMock<MockResultsAPI> api;
        EXPECT_CALL(api, Init).WillOnce(Return(rc));
        EXPECT_CALL(api, DeleteResultFiles).Times(0);
        EXPECT_CALL(api, SerializeSolverLink).Times(0);
        EXPECT_CALL(api, GetLoadCaseIndex).Times(0);
        EXPECT_CALL(api, PrepareAdaptiveMeshData).Times(0);
        Driver d;
        EXPECT_EQ(d.Run(api), ResultsAccessInitFailed);
        EXPECT_EQ(d.GetAdaptivityResult(), 0.0);
        EXPECT_EQ(d.GetProblematicLoadCaseID(), -1);
    }
}

TEST(AdaptExecute, AnEstimatorInitFailureGivesCode3AndStillSerializesTheLink) {
    Served s;
    ON_CALL(s.api, GetNoOfNodes()).WillByDefault(Return(static_cast<unsigned long>(-1)));
    EXPECT_CALL(s.api, StoreMeshErrorAndRefinementInResults).Times(0);
    EXPECT_CALL(s.api, SerializeSolverLink(true));
    Driver d;
    EXPECT_EQ(d.Run(s.api), EstimatorInitFailed);
    EXPECT_EQ(d.GetAdaptivityResult(), 0.0);
    EXPECT_EQ(d.GetProblematicLoadCaseID(), -1);
}

// An Init stage that fails once the engine's node table exists leaves nodes without normals;
// the driver's guard turns the exception into code 3, but destroying the estimator then ends
// the process with the engine's internal-error report, and no code reaches the caller.
TEST(AdaptExecuteDeathTest, AnInitFailureAfterTheNodeTableExistsEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Served s;
            ON_CALL(s.api, GetNodesOnElement(4, _))
                .WillByDefault(Throw(std::runtime_error("host")));
            Driver d;
            d.Run(s.api);
        },
        kInternalError);
}

// The same for a node of more than 64 elements, which Init refuses only after the mesh has
// been copied.
TEST(AdaptExecuteDeathTest, ANodeOfTooManyElementsEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const FakeModel fan = FanModel(70);
            NiceMock<MockResultsAPI> api;
            ServeModel(api, fan);
            Driver d;
            d.Run(api);
        },
        kInternalError);
}

TEST(AdaptExecute, AnInitFailureBeforeTheNodeTableExistsGivesCode3) {
    Served s;
    ON_CALL(s.api, GetNoOfSlabs()).WillByDefault(Return(static_cast<unsigned long>(-2)));
    EXPECT_CALL(s.api, NodeCoords).Times(0);
    EXPECT_CALL(s.api, SerializeSolverLink(true));
    Driver d;
    EXPECT_EQ(d.Run(s.api), EstimatorInitFailed);
    EXPECT_EQ(d.GetAdaptivityResult(), 0.0);
}

TEST(AdaptExecute, AnEstimatorRunFailureGivesCode4) {
    Served s;
    ON_CALL(s.api, GetIntegrationPointResults(4, _, _, _))
        .WillByDefault(Throw(std::runtime_error("unreadable point")));
    EXPECT_CALL(s.api, StoreMeshErrorAndRefinementInResults).Times(0);
    EXPECT_CALL(s.api, WriteMeshRefinement).Times(0);
    EXPECT_CALL(s.api, SerializeSolverLink(true));
    Driver d;
    EXPECT_EQ(d.Run(s.api), EstimatorRunFailed);
    EXPECT_EQ(d.GetAdaptivityResult(), 0.0);
    EXPECT_EQ(d.GetProblematicLoadCaseID(), -1);
}

// The engine stops (its fatal report throws an int) before it has prepared any node: the
// guard gives code 4, and destroying the estimator then ends the process.
TEST(AdaptExecuteDeathTest, AnEngineStopBeforeTheNodesArePreparedEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Served s;
            ON_CALL(s.api, GetCountOfDefNodes(0)).WillByDefault(Return(5UL));
            ON_CALL(s.api, GetNodesOnElement(0, _))
                .WillByDefault(
                    testing::SetArgReferee<1>(std::vector<unsigned long>{0, 1, 5, 4, 1}));
            Driver d;
            d.Run(s.api);
        },
        kInternalError);
}

TEST(AdaptExecute, AStoreFailureGivesCode5AndSkipsTheWrite) {
    Served s;
    EXPECT_CALL(s.api, StoreMeshErrorAndRefinementInResults)
        .WillOnce(Throw(std::runtime_error("disk full")));
    EXPECT_CALL(s.api, WriteMeshRefinement).Times(0);
    EXPECT_CALL(s.api, SerializeSolverLink(true));
    Driver d;
    EXPECT_EQ(d.Run(s.api), StoreResultsFailed);
    EXPECT_EQ(d.GetAdaptivityResult(), 0.0);
    EXPECT_EQ(d.GetProblematicLoadCaseID(), -1);
}

TEST(AdaptExecute, AWriteFailureGivesCode6AndStillPublishesTheGlobalError) {
    const double reference = ReferenceError();
    Served s;
    EXPECT_CALL(s.api, WriteMeshRefinement).WillOnce(Throw(42));
    EXPECT_CALL(s.api, SerializeSolverLink(true));
    Driver d;
    EXPECT_EQ(d.Run(s.api), WriteMeshRefinementFailed);
    EXPECT_GT(reference, 0.0);
    EXPECT_EQ(d.GetAdaptivityResult(), reference);
    EXPECT_EQ(d.GetProblematicLoadCaseID(), -1);
}

TEST(AdaptExecute, RefusalsOfTheHostStoreAreNotFailures) {
    Served s;
    EXPECT_CALL(s.api, StoreMeshErrorAndRefinementInResults).WillOnce(Return(false));
    EXPECT_CALL(s.api, WriteMeshRefinement).WillOnce(Return(false));
    ON_CALL(s.api, SerializeSolverLink).WillByDefault(Return(false));
    Driver d;
    EXPECT_EQ(d.Run(s.api), Success);
    EXPECT_GT(d.GetAdaptivityResult(), 0.0);
}

TEST(AdaptExecute, AFailedPassKeepsTheResultOfAnEarlierOne) {
    const double reference = ReferenceError();
    Driver d;
    {
        Served s;
        ASSERT_EQ(d.Run(s.api), Success);
    }
    EXPECT_EQ(d.GetAdaptivityResult(), reference);
    {
        NiceMock<MockResultsAPI> api;
        ON_CALL(api, Init).WillByDefault(Return(2));
        EXPECT_EQ(d.Run(api), ResultsAccessInitFailed);
    }
    {
        Served s;
        ON_CALL(s.api, PrepareAdaptiveMeshData).WillByDefault(Return(false));
        EXPECT_EQ(d.Run(s.api), MeshDataPreparationFailed);
    }
    {
        Served s;
        ON_CALL(s.api, StoreMeshErrorAndRefinementInResults).WillByDefault(Throw(1));
        EXPECT_EQ(d.Run(s.api), StoreResultsFailed);
    }
    EXPECT_EQ(d.GetAdaptivityResult(), reference);
    EXPECT_EQ(d.GetProblematicLoadCaseID(), -1);
}

TEST(AdaptExecute, ExceptionsBeforeTheStagesReachTheCaller) {
    {
        NiceMock<MockResultsAPI> api;
        ON_CALL(api, Init).WillByDefault(Throw(std::runtime_error("no store")));
        Driver d;
        EXPECT_THROW(d.Run(api), std::runtime_error);
    }
    {
        Served s;
        ON_CALL(s.api, PrepareAdaptiveMeshData).WillByDefault(Throw(std::bad_alloc()));
        EXPECT_CALL(s.api, SerializeSolverLink(true)).Times(0);
        Driver d;
        EXPECT_THROW(d.Run(s.api), std::bad_alloc);
    }
    {
        Served s;
        ON_CALL(s.api, GetLoadCaseIndex).WillByDefault(Throw(std::out_of_range("id")));
        Driver d;
        EXPECT_THROW(d.Run(s.api), std::out_of_range);
    }
    {
        Served s;
        ON_CALL(s.api, DeleteResultFiles).WillByDefault(Throw(std::runtime_error("locked")));
        EXPECT_CALL(s.api, PrepareAdaptiveMeshData).Times(0);
        Driver d;
        EXPECT_THROW(d.Run(s.api), std::runtime_error);
    }
}

TEST(AdaptExecute, CopiesCarryTheResult) {
    Driver d;
    Served s;
    ASSERT_EQ(d.Run(s.api), Success);
    CAdaptExecute copy;
    copy = d;
    EXPECT_EQ(copy.GetAdaptivityResult(), d.GetAdaptivityResult());
    CAdaptExecute moved;
    moved = std::move(copy);
    EXPECT_EQ(moved.GetAdaptivityResult(), d.GetAdaptivityResult());
}

// The public entry opens the host's own results: a project that does not exist fails to open.
TEST(AdaptExecute, ExecuteOnAMissingProjectGivesCode1) {
    CAdaptExecute x;
    EXPECT_EQ(x.Execute(CString(L"/nonexistent/dir/p"), 0, 0, 0.05, {101}),
              ResultsAccessInitFailed);
    EXPECT_EQ(x.GetAdaptivityResult(), 0.0);
    EXPECT_EQ(x.GetProblematicLoadCaseID(), -1);
}
