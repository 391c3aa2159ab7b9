#include "host/outcome/gar.h"
#include "host/outcome/results_api.h"
#include "tests/support/host_project_fixture.h"

#include <gmock/gmock.h>

#include <cmath>

namespace {

using namespace Outcome64Enums;
using hosttest::DataDir;
using hosttest::Near;
using ::testing::HasSubstr;

constexpr GUID kType = {
    0xAC98000C, 0xE79E, 0x4365, {0x87, 0x7E, 0x0A, 0x3F, 0x95, 0xAA, 0x42, 0xF4}};

CKQ_ResultKey SlabKey(int slab) {
    return CKQ_ResultKey(kType, CKQ_DsObject(eDs_Slab, slab),
                         CResultCase(eDs_LoadCase, 1, 0, false), 0, eCS_Local, eRL_Element,
                         eEE_None);
}

constexpr const char* kToml = R"(title = "shuffled"
[[slab]]
tag = 3
name = "a"
thickness = 0.2
[[slab]]
tag = 7
thickness = 0.35
[[load_case]]
id = 101
index = 1
[[load_case]]
id = 205
index = 2
valid = false
[[load_case]]
id = 7
index = 3
)";

class ResultsApiTest : public hosttest::ProjectFixture {
protected:
    void MakeProject(bool withToml = true) {
        std::filesystem::copy_file(DataDir() / "shuffled41.msh", Dir() / "proj.msh");
        if (withToml)
            Write("proj.toml", kToml);
    }
    int Open(CKQ_ResultsAPI& store) {
        store.SetSource(CString(Project().string()), 0);
        return store.Init(eST_Default, eMT_Analysis, true, 0);
    }
};

TEST_F(ResultsApiTest, InitOpensTheProject) {
    MakeProject();
    CKQ_ResultsAPI store;
    EXPECT_FALSE(store.IsOpen());
    EXPECT_EQ(Open(store), 0);
    EXPECT_TRUE(store.IsOpen());
    EXPECT_NE(store.GetSolverLink(), nullptr);
    EXPECT_TRUE(store.GetLastErrorMessage().IsEmpty());
    EXPECT_EQ(store.GetProjectNameWithPath(eMT_Analysis, 0), CString(Project().string()));
    EXPECT_FALSE(std::filesystem::exists(Dir() / "proj.GAR")); // opening writes nothing
}

TEST_F(ResultsApiTest, TheProjectPathIsMadeAbsolute) {
    MakeProject();
    auto cwd = std::filesystem::current_path();
    std::filesystem::current_path(Dir());
    CKQ_ResultsAPI store;
    store.SetSource(L"./sub/../proj", 0);
    int rc = store.Init(eST_Default, eMT_Analysis, true, 0);
    std::filesystem::current_path(cwd);
    ASSERT_EQ(rc, 0);
    EXPECT_EQ(store.GetProjectNameWithPath(eMT_Analysis, 0), CString(Project().string()));
}

TEST_F(ResultsApiTest, InitWithoutSource) {
    CKQ_ResultsAPI store;
    EXPECT_EQ(store.Init(eST_Default, eMT_Analysis, true, 0), CKQ_FemResultsAPI::eIR_NoSource);
    EXPECT_FALSE(store.IsOpen());
}

TEST_F(ResultsApiTest, InitWithoutMesh) {
    CKQ_ResultsAPI store;
    EXPECT_EQ(Open(store), CKQ_FemResultsAPI::eIR_MeshNotFound);
    EXPECT_THAT(store.GetLastErrorMessage().ToUtf8(),
                HasSubstr("proj.msh: the project's mesh file does not exist"));
}

TEST_F(ResultsApiTest, InitWithABadMeshGivesItsCodeAndMessage) {
    Write("proj.msh", "$MeshFormat\n5.0 0 8\n$EndMeshFormat\n");
    Write("proj.toml", kToml);
    CKQ_ResultsAPI store;
    EXPECT_EQ(Open(store), CKQ_FemResultsAPI::eIR_MeshInvalid);
    EXPECT_THAT(store.GetLastErrorMessage().ToUtf8(),
                HasSubstr("proj.msh:2: unknown MSH version 5.0"));
    EXPECT_FALSE(store.IsOpen());
    EXPECT_EQ(store.GetSolverLink(), nullptr);
    EXPECT_THROW(store.GetNoOfNodes(), std::logic_error);
}

TEST_F(ResultsApiTest, InitWithBadProjectData) {
    MakeProject(false);
    Write("proj.toml", "[[slab]]\ntag = 3\nthickness = 0.2\n");
    CKQ_ResultsAPI store;
    EXPECT_EQ(Open(store), CKQ_FemResultsAPI::eIR_ProjectDataInvalid);
    EXPECT_THAT(store.GetLastErrorMessage().ToUtf8(), HasSubstr("physical surface 7"));
}

TEST_F(ResultsApiTest, AProjectWithoutDataFileOpensWithoutSolverLink) {
    // The driver turns this into its own code for a missing solver link.
    MakeProject(false);
    CKQ_ResultsAPI store;
    EXPECT_EQ(Open(store), 0);
    EXPECT_EQ(store.GetSolverLink(), nullptr);
    EXPECT_EQ(store.GetSolverLinkReadOnly(), nullptr);
    EXPECT_THAT(store.GetLastErrorMessage().ToUtf8(), HasSubstr("proj.toml: does not exist"));
    EXPECT_EQ(store.GetNoOfNodes(), 6u);
    EXPECT_THROW(store.GetFemMeshElementThickness(1), std::logic_error);
    EXPECT_EQ(store.SerializeSolverLink(0, L""), 0);
}

TEST_F(ResultsApiTest, NodesElementsAndSlabsInProjectNumbering) {
    MakeProject();
    CKQ_ResultsAPI store;
    ASSERT_EQ(Open(store), 0);
    EXPECT_EQ(store.GetNoOfNodes(), 6u);
    EXPECT_EQ(store.GetNoOfElements(), 3u);
    EXPECT_EQ(store.NodeCoords(3), CKQPoint3D(2, 2, 0));
    std::vector<unsigned long> nodes = {99, 98, 97, 96, 95};
    store.GetNodesOnElement(eDim_Surface, 3, nodes);
    EXPECT_EQ(nodes, (std::vector<unsigned long>{4, 2, 5, 3}));
    store.GetNodesOnElement(eDim_Surface, 1, nodes);
    EXPECT_EQ(nodes, (std::vector<unsigned long>{1, 3, 6}));
    EXPECT_THROW(store.GetNodesOnElement(eDim_Line, 1, nodes), std::invalid_argument);
    unsigned long count = 0;
    EXPECT_EQ(store.GetElementsOnSlab(1, count), 1u);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(store.GetElementsOnSlab(2, count), 3u);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(store.GetCountOfDefNodes(1), 3u);
    EXPECT_EQ(store.GetCountOfDefNodes(3), 4u);
    EXPECT_TRUE(Near(store.GetFemMeshElementArea(2), 2.0, 1e-12, 1e-12));
    EXPECT_TRUE(Near(store.GetFemMeshElementArea(3), 4.0, 1e-12, 1e-12));
    EXPECT_EQ(store.GetFemMeshElementThickness(1), 0.2);
    EXPECT_EQ(store.GetFemMeshElementThickness(3), 0.35);
}

TEST_F(ResultsApiTest, IdsOutsideTheModelThrow) {
    MakeProject();
    CKQ_ResultsAPI store;
    ASSERT_EQ(Open(store), 0);
    unsigned long count = 0;
    std::vector<unsigned long> nodes;
    EXPECT_THROW(store.NodeCoords(0), std::out_of_range);
    EXPECT_THROW(store.NodeCoords(7), std::out_of_range);
    EXPECT_THROW(store.GetNodesOnElement(eDim_Surface, 4, nodes), std::out_of_range);
    EXPECT_THROW(store.GetElementsOnSlab(0, count), std::out_of_range);
    EXPECT_THROW(store.GetElementsOnSlab(3, count), std::out_of_range);
    EXPECT_THROW(store.GetFemMeshElementArea(0), std::out_of_range);
    EXPECT_THROW(store.GetFemMeshElementThickness(4), std::out_of_range);
    EXPECT_THROW(store.GetCountOfDefNodes(4), std::out_of_range);
}

TEST_F(ResultsApiTest, QueriesBeforeInitThrow) {
    CKQ_ResultsAPI store;
    unsigned long count = 0;
    EXPECT_THROW(store.GetNoOfNodes(), std::logic_error);
    EXPECT_THROW(store.GetElementsOnSlab(1, count), std::logic_error);
    EXPECT_THROW(store.GetProjectNameWithPath(eMT_Analysis, 0), std::logic_error);
    EXPECT_EQ(store.GetSolverLink(), nullptr);
}

TEST_F(ResultsApiTest, TheSolverLinkHasSlabsAndLoadCases) {
    MakeProject();
    CKQ_ResultsAPI store;
    ASSERT_EQ(Open(store), 0);
    CKQ_SolverLinkMock* link = store.GetSolverLink();
    ASSERT_NE(link, nullptr);
    EXPECT_EQ(link, store.GetSolverLinkReadOnly());
    EXPECT_EQ(link->GetMaxSlabMacroID(), 2);
    std::vector<std::pair<long, long>> slabs(link->GetSlabsIDs().begin(),
                                             link->GetSlabsIDs().end());
    EXPECT_EQ(slabs, (std::vector<std::pair<long, long>>{{1, 3}, {2, 7}}));
    EXPECT_EQ(link->GetCountOfLoadCases(), 3u);
    const auto& ids = link->GetLoadCasesIDs();
    EXPECT_EQ(ids.at(101), 1);
    EXPECT_EQ(ids.at(205), 2);
    EXPECT_EQ(ids.at(7), 3);
    EXPECT_EQ(ids.count(1), 0u);
    EXPECT_TRUE(link->IsLoadCaseValid(1));
    EXPECT_FALSE(link->IsLoadCaseValid(2));
    EXPECT_TRUE(link->IsLoadCaseValid(3));
    EXPECT_FALSE(link->IsLoadCaseValid(0));
    EXPECT_FALSE(link->IsLoadCaseValid(4));
}

TEST_F(ResultsApiTest, SerializeSolverLinkLoadsAndStores) {
    MakeProject();
    CKQ_ResultsAPI store;
    ASSERT_EQ(Open(store), 0);
    store.GetSolverLink()->GetSlabsIDs().clear();
    EXPECT_NE(store.SerializeSolverLink(0, L""), 0); // loads P.toml again
    EXPECT_EQ(store.GetSolverLink()->GetSlabsIDs().size(), 2u);
    EXPECT_NE(store.SerializeSolverLink(1, L""), 0); // nothing to write
    std::wstring copy = (Dir() / "copy.toml").wstring();
    EXPECT_NE(store.SerializeSolverLink(1, copy), 0);
    auto data = host::outcome::ReadProjectData(Dir() / "copy.toml");
    EXPECT_EQ(data.slabs.size(), 2u);
    EXPECT_EQ(data.slabs[1].thickness, 0.35);
    ASSERT_EQ(data.loadCases.size(), 3u);
    EXPECT_FALSE(data.loadCases[1].valid);
    EXPECT_NE(store.SerializeSolverLink(0, copy), 0);
    EXPECT_EQ(store.SerializeSolverLink(0, (Dir() / "none.toml").wstring()), 0);
}

TEST_F(ResultsApiTest, TheStoredLinkKeepsNamesWithQuotesAndBackslashes) {
    std::filesystem::copy_file(DataDir() / "shuffled41.msh", Dir() / "proj.msh");
    Write("proj.toml", "title = 'C:\\slabs\\\"north\" wing'\n"
                       "[[slab]]\ntag = 3\nname = \"a \\\"b\\\" \\\\ c\\tTab\"\nthickness = 0.2\n"
                       "[[slab]]\ntag = 7\nthickness = 0.35\n"
                       "[[load_case]]\nid = 101\nindex = 1\nname = \"self \\\"weight\\\"\"\n");
    CKQ_ResultsAPI store;
    ASSERT_EQ(Open(store), 0);
    std::wstring copy = (Dir() / "copy.toml").wstring();
    ASSERT_NE(store.SerializeSolverLink(1, copy), 0);
    auto data = host::outcome::ReadProjectData(Dir() / "copy.toml");
    EXPECT_EQ(data.title, "C:\\slabs\\\"north\" wing");
    ASSERT_EQ(data.slabs.size(), 2u);
    EXPECT_EQ(data.slabs[0].name, "a \"b\" \\ c\tTab");
    ASSERT_EQ(data.loadCases.size(), 1u);
    EXPECT_EQ(data.loadCases[0].name, "self \"weight\"");
}

TEST_F(ResultsApiTest, StoreCopiesShareTheModelButNotTheLink) {
    MakeProject();
    CKQ_ResultsAPI store;
    ASSERT_EQ(Open(store), 0);
    CKQ_ResultsAPI copy(store);
    copy.GetSolverLink()->GetSlabsIDs().clear();
    EXPECT_EQ(store.GetSolverLink()->GetSlabsIDs().size(), 2u);
    EXPECT_EQ(copy.GetNoOfNodes(), 6u);
    CKQ_ResultsAPI assigned;
    assigned = store;
    EXPECT_EQ(assigned.GetSolverLink()->GetMaxSlabMacroID(), 2);
}

TEST_F(ResultsApiTest, ResultTablesHaveTheSlabsElementsAsRows) {
    MakeProject();
    CKQ_ResultsAPI store;
    ASSERT_EQ(Open(store), 0);
    auto table = store.GetResultTable(SlabKey(2));
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->GetCountOfRows(), 1u);
    unsigned long element = 99;
    unsigned long extra = 99;
    EXPECT_EQ(store.GetFemMeshElementIndex(*table, 0, element, extra), 1);
    EXPECT_EQ(element, 3u);
    EXPECT_EQ(extra, 2u);
    EXPECT_EQ(store.GetFemMeshElementIndex(*table, 1, element, extra), 0);
    EXPECT_EQ(element, 0u);
    table = store.GetResultTable(SlabKey(1));
    EXPECT_EQ(table->GetCountOfRows(), 2u);
    EXPECT_EQ(store.GetFemMeshElementIndex(*table, 1, element, extra), 1);
    EXPECT_EQ(element, 2u);
    EXPECT_THROW(store.GetResultTable(SlabKey(3)), std::out_of_range);
    CKQ_ResultKey model(kType, CKQ_DsObject(eDs_Model, 1), CResultCase(eDs_LoadCase, 1, 0, false),
                        0, eCS_Local, eRL_Element, eEE_None);
    EXPECT_THROW(store.GetResultTable(model), std::invalid_argument);
}

TEST_F(ResultsApiTest, ARowWithoutElement) {
    MakeProject();
    CKQ_ResultsAPI store;
    ASSERT_EQ(Open(store), 0);
    CKQ_Result table(SlabKey(1), {1, 0});
    unsigned long element = 5;
    unsigned long extra = 5;
    EXPECT_EQ(store.GetFemMeshElementIndex(table, 1, element, extra), 0);
    EXPECT_EQ(element, 0u);
}

TEST_F(ResultsApiTest, SaveResultStoresInTheProjectsGarAndOpensItAgain) {
    MakeProject();
    CKQ_ResultsAPI store;
    ASSERT_EQ(Open(store), 0);
    auto table = store.GetResultTable(SlabKey(1));
    table->SetValue(0, 0, 0.125);
    table->SetValue(3, 1, 0.8);
    EXPECT_EQ(store.SaveResult(table, true), 1);
    EXPECT_TRUE(std::filesystem::exists(Dir() / "proj.GAR"));
    EXPECT_EQ(store.SaveResult(store.GetResultTable(SlabKey(1)), false), 0); // kept

    CKQ_ResultsAPI again;
    ASSERT_EQ(Open(again), 0);
    EXPECT_EQ(again.GetStoredResultKeys(), std::vector<CKQ_ResultKey>{SlabKey(1)});
    auto reopened = again.GetResultTable(SlabKey(1));
    EXPECT_EQ(reopened->GetValue(0, 0), 0.125);
    EXPECT_EQ(reopened->GetValue(3, 1), 0.8);
    EXPECT_TRUE(std::isnan(reopened->GetValue(1, 0)));
    auto loaded = again.LoadStoredResult(SlabKey(1));
    ASSERT_NE(loaded, nullptr);
    EXPECT_TRUE(*loaded == *table);
    EXPECT_EQ(again.LoadStoredResult(SlabKey(2)), nullptr);
    EXPECT_THROW(store.SaveResult(nullptr, true), std::invalid_argument);
}

TEST_F(ResultsApiTest, NoGarMeansNoStoredResults) {
    MakeProject();
    CKQ_ResultsAPI store;
    ASSERT_EQ(Open(store), 0);
    EXPECT_TRUE(store.GetStoredResultKeys().empty());
    EXPECT_EQ(store.LoadStoredResult(SlabKey(1)), nullptr);
    auto table = store.GetResultTable(SlabKey(1));
    EXPECT_EQ(table->GetCountOfRows(), 2u);
    EXPECT_EQ(table->GetCountOfColumns(), 0u);
}

// The store's operations are virtual, so that a test can answer in its place.
class FailingStore : public CKQ_ResultsAPI {
public:
    int Init(eSolverType, eModelType, bool, long) override { return 5; }
};

TEST_F(ResultsApiTest, OperationsCanBeOverridden) {
    FailingStore failing;
    CKQ_ResultsAPI& store = failing;
    EXPECT_EQ(store.Init(eST_Default, eMT_Analysis, true, 0), 5);
}

TEST_F(ResultsApiTest, InitFaultHookMakesInitAnswerItsCode) {
    MakeProject();
    std::vector<CString> asked;
    {
        host::outcome::ScopedInitFaultHook hook([&](const CString& path) {
            asked.push_back(path);
            return 5;
        });
        CKQ_ResultsAPI store;
        EXPECT_EQ(Open(store), 5);
        EXPECT_FALSE(store.IsOpen());
        EXPECT_EQ(store.GetSolverLink(), nullptr);
        EXPECT_THAT(store.GetLastErrorMessage().ToUtf8(), HasSubstr("5"));
        EXPECT_THROW(store.GetNoOfNodes(), std::logic_error);
        // A store opened before answers the code too, and is closed by it.
        CKQ_ResultsAPI opened;
        {
            host::outcome::ScopedInitFaultHook letRun([](const CString&) { return 0; });
            ASSERT_EQ(Open(opened), 0);
        }
        EXPECT_EQ(Open(opened), 5);
        EXPECT_FALSE(opened.IsOpen());
    }
    ASSERT_EQ(asked.size(), 2u);
    EXPECT_EQ(asked[0], CString(Project().string()));
    // Removed with its scope: Init runs again.
    CKQ_ResultsAPI store;
    EXPECT_EQ(Open(store), 0);
    EXPECT_NE(store.GetSolverLink(), nullptr);
}

TEST_F(ResultsApiTest, InitFaultHookAnsweringZeroLetsInitRun) {
    host::outcome::ScopedInitFaultHook hook([](const CString&) { return 0; });
    CKQ_ResultsAPI store;
    EXPECT_EQ(Open(store), CKQ_FemResultsAPI::eIR_MeshNotFound); // Init's own answer
    MakeProject();
    EXPECT_EQ(Open(store), 0);
    EXPECT_TRUE(store.IsOpen());
}

TEST(SolverLinkTest, BuiltByHand) {
    CKQ_SolverLinkMock link;
    EXPECT_EQ(link.GetMaxSlabMacroID(), 0);
    link.AddSlab(2, 20);
    link.AddSlab(1, 10);
    EXPECT_EQ(link.GetMaxSlabMacroID(), 2);
    EXPECT_EQ(link.GetSlabsIDs().begin()->first, 1);
    link.AddLoadCase(55, 4, false);
    EXPECT_FALSE(link.IsLoadCaseValid(4));
    EXPECT_EQ(link.GetCountOfLoadCases(), 1u);
    CKQ_SolverLinkMock copy = link;
    EXPECT_TRUE(copy == link);
    link.Clear();
    EXPECT_TRUE(link.GetSlabsIDs().empty());
    EXPECT_FALSE(copy == link);
}

} // namespace
