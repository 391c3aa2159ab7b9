// CAdaptivityResultsAPIImpl against real projects on disk: a hand-written mesh whose numbers
// are known, and a two-slab mesh made by Gmsh with STRINTG files that match it.
#include "adaptivity/AdaptivityResultsAPIImpl.h"
#include "host/calclink/solver_writer.h"
#include "tests/adaptivity/support/project.h"

#include <gtest/gtest.h>

#include <limits>
#include <regex>
#include <stdexcept>
#include <type_traits>

using slabadapt::test::Near;
using slabadapt::test::ReadBytes;
using slabadapt::test::ScratchDir;
using slabadapt::test::WriteBytes;

struct CAdaptivityResultsAPIImplTestAccess {
    static CKQ_ResultsAPI& Store(CAdaptivityResultsAPIImpl& api) { return api.m_ResultsAPI; }
    static CAdaptiveMeshData& MeshData(CAdaptivityResultsAPIImpl& api) {
        return api.m_AdaptiveMeshData;
    }
};
using ApiAccess = CAdaptivityResultsAPIImplTestAccess;

namespace {

constexpr auto c_solver = static_cast<Outcome64Enums::eSolverType>(0);
constexpr auto c_forces = static_cast<Outcome64Enums::eIntegrationPointDataType>(0);
constexpr auto c_deformations = static_cast<Outcome64Enums::eIntegrationPointDataType>(1);

// {AC98000C-E79E-4365-877E-0A3F95AA42F4}
constexpr GUID c_resultType = {
    0xAC98000C, 0xE79E, 0x4365, {0x87, 0x7E, 0x0A, 0x3F, 0x95, 0xAA, 0x42, 0xF4}};

CKQ_ResultKey KeyOf(int slab, int resultCase) {
    using namespace Outcome64Enums;
    return CKQ_ResultKey(c_resultType, CKQ_DsObject(eDs_Slab, slab),
                         CResultCase(eDs_LoadCase, resultCase, 0, false), 0,
                         static_cast<eCoordSystem>(1), static_cast<eResLocation>(0),
                         static_cast<eEnvelopeExtreme>(0));
}

// 4 x 3 grid nodes, tag = 4 j + i + 1 at (i, j, 0.5 i); slab tag 5: quadrilaterals of the
// lower row; slab tag 7: two quadrilaterals and the triangles (7, 8, 12), (7, 12, 11).
const char* c_gridMesh = R"($MeshFormat
2.2 0 8
$EndMeshFormat
$PhysicalNames
2
2 5 "lower"
2 7 "upper"
$EndPhysicalNames
$Nodes
12
1 0 0 0
2 1 0 0.5
3 2 0 1
4 3 0 1.5
5 0 1 0
6 1 1 0.5
7 2 1 1
8 3 1 1.5
9 0 2 0
10 1 2 0.5
11 2 2 1
12 3 2 1.5
$EndNodes
$Elements
7
1 3 2 5 1 1 2 6 5
2 3 2 5 1 2 3 7 6
3 3 2 5 1 3 4 8 7
4 3 2 7 2 5 6 10 9
5 3 2 7 2 6 7 11 10
6 2 2 7 2 7 8 12
7 2 2 7 2 7 12 11
$EndElements
)";

const char* c_gridToml = R"(title = "grid"
[[slab]]
tag = 5
thickness = 0.3
[[slab]]
tag = 7
thickness = 0.15
[[load_case]]
id = 101
index = 1
valid = true
[[load_case]]
id = 102
index = 2
valid = false
[[load_case]]
id = 7
index = 12
valid = true
)";

class GridProject : public ::testing::Test {
protected:
    ScratchDir dir;
    CString project = dir.Project("grid");
    CAdaptivityResultsAPIImpl api;

    void SetUp() override {
        WriteBytes(dir / "grid.msh", c_gridMesh);
        WriteBytes(dir / "grid.toml", c_gridToml);
        ASSERT_EQ(api.Init(project, 0, c_solver), 0);
    }
};

} // namespace

// ---------------------------------------------------------------------------------------------
// Init

TEST(ResultsApiInit, ProjectWithoutSolverLinkAnswersMinusOne) {
    ScratchDir dir;
    WriteBytes(dir / "grid.msh", c_gridMesh); // no grid.toml: the results open, no solver link
    CAdaptivityResultsAPIImpl api;
    EXPECT_EQ(api.Init(dir.Project("grid"), 0, c_solver), -1);
}

TEST(ResultsApiInit, HostErrorCodesPassUnchanged) {
    ScratchDir dir;
    {
        CAdaptivityResultsAPIImpl api;
        EXPECT_EQ(api.Init(dir.Project("missing"), 0, c_solver), 2); // no P.msh
    }
    {
        CAdaptivityResultsAPIImpl api;
        EXPECT_EQ(api.Init(CString(), 0, c_solver), 1); // no source
    }
    {
        WriteBytes(dir / "bad.msh", "$MeshFormat\n9.9 0 8\n$EndMeshFormat\n");
        CAdaptivityResultsAPIImpl api;
        EXPECT_EQ(api.Init(dir.Project("bad"), 0, c_solver), 3); // unreadable mesh
    }
    {
        WriteBytes(dir / "grid.msh", c_gridMesh);
        WriteBytes(dir / "grid.toml", "[[slab]]\ntag = 99\nthickness = 1.0\n");
        CAdaptivityResultsAPIImpl api;
        EXPECT_EQ(api.Init(dir.Project("grid"), 0, c_solver), 4); // P.toml does not match
    }
}

TEST(ResultsApiInit, AnyHostErrorCodeIsReturnedAsItIs) {
    ScratchDir dir;
    WriteBytes(dir / "grid.msh", c_gridMesh);
    WriteBytes(dir / "grid.toml", c_gridToml);
    for (int code : {5, -1, 42, -7}) {
        CString asked;
        host::outcome::ScopedInitFaultHook hook([code, &asked](const CString& path) {
            asked = path;
            return code;
        });
        CAdaptivityResultsAPIImpl api;
        EXPECT_EQ(api.Init(dir.Project("grid"), 0, c_solver), code);
        EXPECT_EQ(asked, dir.Project("grid")); // the path was set before the host's Init
    }
    // The same project opens once the host answers 0 again.
    CAdaptivityResultsAPIImpl api;
    EXPECT_EQ(api.Init(dir.Project("grid"), 0, c_solver), 0);
}

TEST(ResultsApiInit, SourceFlagAndSolverTypeReachTheStore) {
    ScratchDir dir;
    WriteBytes(dir / "grid.msh", c_gridMesh);
    WriteBytes(dir / "grid.toml", c_gridToml);
    CAdaptivityResultsAPIImpl api;
    ASSERT_EQ(api.Init(dir.Project("grid"), 3, static_cast<Outcome64Enums::eSolverType>(2)), 0);
    EXPECT_EQ(ApiAccess::Store(api).GetSourceFlag(), 3);
    EXPECT_EQ(static_cast<int>(ApiAccess::Store(api).GetSolverType()), 2);
}

TEST(ResultsApiInit, QueriesBeforeInitComeFromTheHost) {
    CAdaptivityResultsAPIImpl api;
    EXPECT_THROW(api.GetNoOfNodes(), std::logic_error);
    EXPECT_EQ(api.GetNoOfSlabs(), 0u); // no solver link yet
    EXPECT_EQ(api.GetCountOfLoadCases(), 0u);
    EXPECT_EQ(api.GetLoadCaseIndex(101), 0u);
    EXPECT_EQ(api.GetCountOfResults(), 8u);
}

// ---------------------------------------------------------------------------------------------
// Mesh queries and index conversions

TEST_F(GridProject, CountsOfNodesSlabsAndLoadCases) {
    EXPECT_EQ(api.GetNoOfNodes(), 12u);
    EXPECT_EQ(api.GetNoOfSlabs(), 2u);
    EXPECT_EQ(api.GetCountOfLoadCases(), 3u);
}

TEST_F(GridProject, FirstElementOfASlabIsZeroBased) {
    unsigned long count = 0;
    EXPECT_EQ(api.GetElementsOnSlab(0, count), 0u); // the host's slab 1 starts at element 1
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(api.GetElementsOnSlab(1, count), 3u);
    EXPECT_EQ(count, 4u);
}

TEST_F(GridProject, NodesOfAnElementAreZeroBasedInHostOrder) {
    std::vector<unsigned long> nodes = {99, 98};
    api.GetNodesOnElement(5, nodes); // host element 6: nodes 7, 8, 12
    EXPECT_EQ(nodes, (std::vector<unsigned long>{6, 7, 11}));
    api.GetNodesOnElement(0, nodes);
    EXPECT_EQ(nodes, (std::vector<unsigned long>{0, 1, 5, 4}));
}

TEST_F(GridProject, NodeCoordinatesOfZeroBasedNodes) {
    EXPECT_EQ(api.NodeCoords(0), CKQPoint3D(0, 0, 0));
    EXPECT_EQ(api.NodeCoords(6), CKQPoint3D(2, 1, 1));
    EXPECT_EQ(api.NodeCoords(11), CKQPoint3D(3, 2, 1.5));
    EXPECT_THROW(api.NodeCoords(12), std::out_of_range); // the host decides
}

TEST_F(GridProject, ElementPropertiesOfZeroBasedElements) {
    // Element 1 (0,0,0)-(1,0,.5)-(1,1,.5)-(0,1,0): a parallelogram of area sqrt(1.25).
    EXPECT_TRUE(Near(api.GetElementArea(0), std::sqrt(1.25)));
    EXPECT_TRUE(Near(api.GetElementArea(5), 0.5 * std::sqrt(1.25)));
    EXPECT_TRUE(Near(api.GetElementThickness(2), 0.3));
    EXPECT_TRUE(Near(api.GetElementThickness(3), 0.15));
    EXPECT_EQ(api.GetCountOfDefNodes(0), 4u);
    EXPECT_EQ(api.GetCountOfDefNodes(6), 3u);
}

TEST_F(GridProject, ReducedThicknessIsOneForEveryIndex) {
    EXPECT_EQ(api.GetElementThicknessReduced(0), 1.0);
    EXPECT_EQ(api.GetElementThicknessReduced(3), 1.0);
    EXPECT_EQ(api.GetElementThicknessReduced(123456), 1.0);
    EXPECT_EQ(api.GetElementThicknessReduced(std::numeric_limits<unsigned long>::max()), 1.0);
}

// ---------------------------------------------------------------------------------------------
// Load cases

TEST_F(GridProject, LoadCaseIndexOfAValidLoadCase) {
    EXPECT_EQ(api.GetLoadCaseIndex(101), 1u);
    EXPECT_EQ(api.GetLoadCaseIndex(7), 12u); // the host's index, not converted
}

TEST_F(GridProject, LoadCaseIndexIsZeroForUnusableLoadCases) {
    EXPECT_EQ(api.GetLoadCaseIndex(999), 0u); // not in the map
    EXPECT_EQ(api.GetLoadCaseIndex(102), 0u); // invalid results
    CKQ_SolverLinkMock* link = ApiAccess::Store(api).GetSolverLink();
    ASSERT_NE(link, nullptr);
    link->AddLoadCase(104, 0, true);
    link->AddLoadCase(105, -2, true);
    link->AddLoadCase(106, 2147483648L, true); // negative as the host's 32-bit number
    EXPECT_EQ(api.GetLoadCaseIndex(104), 0u);
    EXPECT_EQ(api.GetLoadCaseIndex(105), 0u);
    EXPECT_EQ(api.GetLoadCaseIndex(106), 0u);
    // The id is looked up as a long.
    EXPECT_EQ(api.GetLoadCaseIndex(static_cast<unsigned long>(-1)), 0u);
    link->AddLoadCase(-1, 3, true);
    EXPECT_EQ(api.GetLoadCaseIndex(static_cast<unsigned long>(-1)), 3u);
}

TEST_F(GridProject, SerializeSolverLinkBothWays) {
    CKQ_SolverLinkMock* link = ApiAccess::Store(api).GetSolverLink();
    link->AddLoadCase(555, 4, true);
    EXPECT_TRUE(api.SerializeSolverLink(false)); // loads P.toml's link again
    EXPECT_EQ(api.GetLoadCaseIndex(555), 0u);
    EXPECT_TRUE(api.SerializeSolverLink(true));
    EXPECT_EQ(api.GetLoadCaseIndex(101), 1u);
}

TEST(ResultsApiSolverLink, SerializeWithoutLinkIsFalse) {
    ScratchDir dir;
    WriteBytes(dir / "grid.msh", c_gridMesh);
    CAdaptivityResultsAPIImpl api;
    ASSERT_EQ(api.Init(dir.Project("grid"), 0, c_solver), -1);
    EXPECT_FALSE(api.SerializeSolverLink(false));
    EXPECT_FALSE(api.SerializeSolverLink(true));
    // Without a link there are no slabs, load cases or stored results.
    EXPECT_EQ(api.GetNoOfSlabs(), 0u);
    EXPECT_EQ(api.GetCountOfLoadCases(), 0u);
    EXPECT_TRUE(api.StoreMeshErrorAndRefinementInResults(1, {1}, {1}, {1}, {1}));
    EXPECT_FALSE(std::filesystem::exists(dir / "grid.GAR"));
}

// ---------------------------------------------------------------------------------------------
// Integration-point data through the interface

TEST_F(GridProject, PrepareReadsTheIndexedFilesOfTheProject) {
    const std::string header = slabadapt::test::HeaderLine({"igx", "mx", "kx"});
    std::string text = "t\nt\n" + header + "\nu\n";
    for (int e = 1; e <= 7; ++e)
        for (int p = 1; p <= (e >= 6 ? 3 : 4); ++p)
            text += slabadapt::test::RecordLine(
                        e, p, std::vector<double>{e + 0.1 * p, 10.0 * e, -1.0 * e}) +
                    "\n";
    WriteBytes(dir / "grid.STRINTG0012", text);
    EXPECT_FALSE(api.PrepareAdaptiveMeshData({1}));
    ASSERT_TRUE(api.PrepareAdaptiveMeshData({12, 12}));
    EXPECT_EQ(api.GetCountOfIntegrationPoints(0), 4u);
    EXPECT_EQ(api.GetCountOfIntegrationPoints(6), 3u);
    EXPECT_EQ(static_cast<int>(api.GetElementType(4)), 1);
    EXPECT_EQ(static_cast<int>(api.GetElementType(5)), 0);
    EXPECT_EQ(api.GetIntegrationPointWeight(0, 0), 1.0);
    EXPECT_EQ(api.GetIntegrationPointWeight(6, 2),
              CAdaptiveMeshData::c_dWeightOfIntPointOnTriangle);
    EXPECT_EQ(api.GetIntegrationPointGlobalCoords(2, 1).X(), 3.2);
    EXPECT_EQ(api.GetIntegrationPointLocalCoords(5, 1), CKQPoint3D(2.0 / 3, 1.0 / 6, 1.0 / 6));
    double values[8];
    api.GetIntegrationPointResults(3, 0, c_forces, values);
    EXPECT_TRUE(Near(values[0], 80.0)); // summed twice
    api.GetIntegrationPointResults(3, 0, c_deformations, values);
    EXPECT_TRUE(Near(values[0], -8.0));
    EXPECT_THROW(api.GetIntegrationPointResults(3, 0, c_forces, nullptr), CInvalidArgException);
    api.ClearAdaptiveMeshData();
    EXPECT_THROW(api.GetCountOfIntegrationPoints(0), std::out_of_range);
}

TEST_F(GridProject, CoordinateGettersReturnCopies) {
    WriteBytes(dir / "grid.STRINTG0001",
               slabadapt::test::StrintgText(
                   {"igx", "igy"}, {slabadapt::test::RecordLine(1, 1, std::vector<double>{1, 2})}));
    ASSERT_TRUE(api.PrepareAdaptiveMeshData({1}));
    static_assert(std::is_same_v<decltype(api.GetIntegrationPointGlobalCoords(0, 0)), CKQPoint3D>);
    static_assert(std::is_same_v<decltype(api.GetIntegrationPointLocalCoords(0, 0)), CKQPoint3D>);
    EXPECT_EQ(api.GetIntegrationPointGlobalCoords(0, 0), CKQPoint3D(1, 2, 0));
    EXPECT_EQ(api.GetIntegrationPointLocalCoords(0, 0), CKQPoint3D(1e20, 1e20, 1e20)); // 1 point
}

// ---------------------------------------------------------------------------------------------
// Storing the result and the size field

TEST_F(GridProject, StoredResultReadsBackFromGar) {
    const std::vector<double> global = {12.5, 1, 2, 3, 4, 5, 6};
    const std::vector<double> local = {50, 10, 20, 30, 40, 50, 60};
    const std::vector<double> numerical = {0.5, 0.25, 0.125, 1, 2, 3, 4};
    const std::vector<double> size = {0.8, 0.7, 0.6, 0.5, 0.4, 0.3, 0.2};
    api.DeleteResultFiles();
    EXPECT_FALSE(std::filesystem::exists(dir / "grid.GAR"));
    ASSERT_TRUE(api.StoreMeshErrorAndRefinementInResults(1, global, local, numerical, size));
    ASSERT_TRUE(std::filesystem::exists(dir / "grid.GAR"));

    // A second store over the same project reads P.GAR as the host would.
    CKQ_ResultsAPI reader;
    reader.SetSource(project, 0);
    ASSERT_EQ(reader.Init(c_solver, static_cast<Outcome64Enums::eModelType>(0), true, 0), 0);
    const auto keys = reader.GetStoredResultKeys();
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(keys[0], KeyOf(1, 1));
    EXPECT_EQ(keys[1], KeyOf(2, 1));
    unsigned long element = 0;
    for (int slab = 1; slab <= 2; ++slab) {
        const auto table = reader.LoadStoredResult(KeyOf(slab, 1));
        ASSERT_NE(table, nullptr);
        ASSERT_EQ(table->GetCountOfRows(), slab == 1 ? 3u : 4u);
        for (unsigned long row = 0; row < table->GetCountOfRows(); ++row, ++element) {
            EXPECT_EQ(table->GetElementId(row), element + 1);
            EXPECT_TRUE(Near(table->GetValue(0, row), global[element] / 100))
                << "element " << element;
            EXPECT_TRUE(Near(table->GetValue(1, row), local[element] / 100))
                << "element " << element;
            EXPECT_TRUE(Near(table->GetValue(2, row), numerical[element])) << "element " << element;
            EXPECT_TRUE(Near(table->GetValue(3, row), size[element])) << "element " << element;
        }
    }
    EXPECT_EQ(reader.LoadStoredResult(KeyOf(1, 1))->GetValue(0, 0), 0.125);
    EXPECT_EQ(reader.LoadStoredResult(KeyOf(1, 1))->GetValue(2, 0), 0.5);
    EXPECT_EQ(reader.LoadStoredResult(KeyOf(1, 1))->GetValue(3, 0), 0.8);

    api.DeleteResultFiles();
    EXPECT_FALSE(std::filesystem::exists(dir / "grid.GAR"));
}

TEST_F(GridProject, StoringAgainReplacesTheResult) {
    const std::vector<double> first(7, 12.5);
    const std::vector<double> second(7, 50.0);
    api.DeleteResultFiles();
    ASSERT_TRUE(api.StoreMeshErrorAndRefinementInResults(1, first, first, first, first));
    ASSERT_TRUE(api.StoreMeshErrorAndRefinementInResults(1, second, second, second, second));
    const auto keys = ApiAccess::Store(api).GetStoredResultKeys();
    EXPECT_EQ(keys.size(), 2u);
    const auto table = ApiAccess::Store(api).LoadStoredResult(KeyOf(2, 1));
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->GetValue(0, 3), 0.5);
    EXPECT_EQ(table->GetValue(3, 3), 50.0);
}

TEST_F(GridProject, ResultCaseNumberIsPartOfTheKey) {
    const std::vector<double> v(7, 1.0);
    ASSERT_TRUE(api.StoreMeshErrorAndRefinementInResults(7, v, v, v, v));
    const auto keys = ApiAccess::Store(api).GetStoredResultKeys();
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(keys[0].GetResultCase().GetNumber(), 7);
    EXPECT_EQ(keys[0].GetCoordSystem(), 1);
}

TEST_F(GridProject, ShortVectorThrowsOutOfRange) {
    const std::vector<double> full(7, 1.0);
    const std::vector<double> shorter(6, 1.0);
    EXPECT_THROW(api.StoreMeshErrorAndRefinementInResults(1, full, full, full, shorter),
                 std::out_of_range);
}

TEST_F(GridProject, MeshRefinementWritesTheSizeField) {
    const std::vector<double> sizes = {0.5, 0.4, 0.3, 0.2, 0.5, 0.4, 0.3, 0.2, 0.5, 0.4, 0.3, 0.25};
    ASSERT_TRUE(api.WriteMeshRefinement(sizes));
    const std::string pos = ReadBytes(dir / "grid.refine.pos");
    const auto count = [&](const std::string& pattern) {
        const std::regex re(pattern);
        return std::distance(std::sregex_iterator(pos.begin(), pos.end(), re),
                             std::sregex_iterator());
    };
    EXPECT_EQ(count(R"(SQ\()"), 5);
    EXPECT_EQ(count(R"(ST\()"), 2);
    // The triangle (7, 8, 12) at its node coordinates with its nodal sizes.
    const std::string triangle = "ST(2,1,1,3,1,1.5,3,2,1.5){0.3,0.2,0.25}";
    EXPECT_NE(pos.find(triangle), std::string::npos) << triangle << " not in\n" << pos;
}

TEST_F(GridProject, MeshRefinementOfTheWrongLengthIsRefusedByTheWriter) {
    EXPECT_THROW(api.WriteMeshRefinement(std::vector<double>(11, 0.5)), std::invalid_argument);
}

namespace {

// What the solver-data writer was handed, seen through its test hook instead of the file.
struct WriterCall {
    CString projectPath;
    std::vector<double> refinement;
    std::vector<CKQPoint3D> nodes;
};

class WriterRecorder {
public:
    std::vector<WriterCall> calls;

private:
    host::calclink::ScopedWriteMeshRefinementsHook m_hook{
        [this](const CString& path, const std::vector<double>& refinement,
               const std::vector<CKQPoint3D>& nodes) {
            calls.push_back({path, refinement, nodes});
        }};
};

// Gmsh's empty model (version 4.1 has no $Nodes and $Elements then) and solver data without
// slabs.
const char* c_emptyMesh =
    "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Entities\n0 0 0 0\n$EndEntities\n";
const char* c_emptyToml = "title = \"empty\"\n[[load_case]]\nid = 101\nindex = 1\n";

} // namespace

TEST_F(GridProject, MeshRefinementHandsNodesOneToNInOrder) {
    const std::vector<double> sizes = {0.5, 0.4, 0.3, 0.2, 0.5, 0.4, 0.3, 0.2, 0.5, 0.4, 0.3, 0.25};
    WriterRecorder writer;
    ASSERT_TRUE(api.WriteMeshRefinement(sizes));
    ASSERT_EQ(writer.calls.size(), 1u);
    const WriterCall& call = writer.calls[0];
    EXPECT_EQ(call.projectPath,
              ApiAccess::Store(api).GetProjectNameWithPath(Outcome64Enums::eModelType{}, 0));
    EXPECT_EQ(call.projectPath, project);
    EXPECT_EQ(call.refinement, sizes);
    // Node tag 4 j + i + 1 lies at (i, j, 0.5 i): entry k is node k + 1.
    ASSERT_EQ(call.nodes.size(), 12u);
    for (std::size_t k = 0; k < call.nodes.size(); ++k) {
        const double i = static_cast<double>(k % 4);
        const double j = static_cast<double>(k / 4);
        EXPECT_TRUE(Near(call.nodes[k].x, i)) << "node " << k + 1;
        EXPECT_TRUE(Near(call.nodes[k].y, j)) << "node " << k + 1;
        EXPECT_TRUE(Near(call.nodes[k].z, 0.5 * i)) << "node " << k + 1;
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "grid.refine.pos"));
}

TEST_F(GridProject, MeshRefinementPassesAVectorOfAnyLengthUnchanged) {
    // No size check on the way: the writer gets what the caller gave.
    WriterRecorder writer;
    const std::vector<double> three = {1.5, -2.0, 0.0};
    ASSERT_TRUE(api.WriteMeshRefinement(three));
    ASSERT_EQ(writer.calls.size(), 1u);
    EXPECT_EQ(writer.calls[0].refinement, three);
    EXPECT_EQ(writer.calls[0].nodes.size(), 12u);
}

TEST(ResultsApiEmptyModel, MeshRefinementHandsAnEmptyNodeListAndTheCallersVector) {
    ScratchDir dir;
    WriteBytes(dir / "empty.msh", c_emptyMesh);
    WriteBytes(dir / "empty.toml", c_emptyToml);
    CAdaptivityResultsAPIImpl api;
    ASSERT_EQ(api.Init(dir.Project("empty"), 0, c_solver), 0);
    EXPECT_EQ(api.GetNoOfNodes(), 0u);
    EXPECT_EQ(api.GetNoOfSlabs(), 0u);
    EXPECT_EQ(api.GetCountOfLoadCases(), 1u);

    WriterRecorder writer;
    EXPECT_TRUE(api.WriteMeshRefinement({0.5, 0.7}));
    ASSERT_EQ(writer.calls.size(), 1u);
    EXPECT_EQ(writer.calls[0].projectPath, dir.Project("empty"));
    EXPECT_TRUE(writer.calls[0].nodes.empty());
    EXPECT_EQ(writer.calls[0].refinement, (std::vector<double>{0.5, 0.7}));
}

TEST(ResultsApiEmptyModel, TheRealWriterGivesAnEmptyField) {
    ScratchDir dir;
    WriteBytes(dir / "empty.msh", c_emptyMesh);
    WriteBytes(dir / "empty.toml", c_emptyToml);
    CAdaptivityResultsAPIImpl api;
    ASSERT_EQ(api.Init(dir.Project("empty"), 0, c_solver), 0);
    EXPECT_TRUE(api.WriteMeshRefinement({}));
    EXPECT_EQ(ReadBytes(dir / "empty.refine.pos"), "View \"refinement\" {\n};\n");
    // Values without nodes are the writer's to refuse.
    EXPECT_THROW(api.WriteMeshRefinement({0.5, 0.7}), std::invalid_argument);
}

// ---------------------------------------------------------------------------------------------
// A project meshed by Gmsh

class GmshProject : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_dir = new ScratchDir();
        const auto path = s_dir->Path() / "P";
        ASSERT_TRUE(slabadapt::test::MeshWithGmsh(path, slabadapt::test::TwoSlabGeo()));
        WriteBytes(s_dir->Path() / "P.toml", slabadapt::test::TwoSlabToml());
        s_project = new host::outcome::Project(host::outcome::LoadProject(path));
        // Load case 1: forces from the position, deformations constant; load case 2: all 1.
        slabadapt::test::WriteProjectStrintg(*s_project, 1, [](int k, const CKQPoint3D& at) {
            return k < 8 ? (k + 1) * at.x + at.y : 1e-4 * (k - 7);
        });
        slabadapt::test::WriteProjectStrintg(*s_project, 2,
                                             [](int, const CKQPoint3D&) { return 1.0; });
    }
    static void TearDownTestSuite() {
        delete s_project;
        delete s_dir;
        s_project = nullptr;
        s_dir = nullptr;
    }

    void SetUp() override {
        ASSERT_NE(s_project, nullptr);
        ASSERT_EQ(api.Init(CString(s_project->path.string()), 0, c_solver), 0);
    }

    static const host::outcome::Mesh& Mesh() { return s_project->mesh; }

    static ScratchDir* s_dir;
    static host::outcome::Project* s_project;
    CAdaptivityResultsAPIImpl api;
};

ScratchDir* GmshProject::s_dir = nullptr;
host::outcome::Project* GmshProject::s_project = nullptr;

TEST_F(GmshProject, CountsAndNumberingMatchTheMesh) {
    ASSERT_GT(Mesh().elements.size(), 40u);
    EXPECT_EQ(api.GetNoOfNodes(), Mesh().nodes.size());
    EXPECT_EQ(api.GetNoOfSlabs(), 2u);
    unsigned long total = 0;
    for (unsigned long slab = 0; slab < 2; ++slab) {
        unsigned long count = 0;
        const unsigned long first = api.GetElementsOnSlab(slab, count);
        EXPECT_EQ(first, total); // contiguous, slab after slab
        EXPECT_EQ(first + 1, Mesh().slabs[slab].firstElement);
        EXPECT_EQ(count, Mesh().slabs[slab].elementCount);
        for (unsigned long e = first; e < first + count; ++e) {
            EXPECT_EQ(api.GetCountOfDefNodes(e), slab == 0 ? 4u : 3u);
            EXPECT_TRUE(Near(api.GetElementThickness(e), slab == 0 ? 0.25 : 0.2));
        }
        total += count;
    }
    EXPECT_EQ(total, Mesh().elements.size());
}

TEST_F(GmshProject, NodesAndCoordinatesMatchTheMesh) {
    double area = 0.0;
    for (unsigned long e = 0; e < Mesh().elements.size(); ++e) {
        std::vector<unsigned long> nodes;
        api.GetNodesOnElement(e, nodes);
        ASSERT_EQ(nodes.size(), Mesh().elements[e].nodes.size());
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            EXPECT_EQ(nodes[i] + 1, Mesh().elements[e].nodes[i]);
            EXPECT_EQ(api.NodeCoords(nodes[i]), Mesh().nodes[nodes[i]].position);
        }
        area += api.GetElementArea(e);
    }
    EXPECT_TRUE(Near(area, 3.0, 1e-12, 1e-9)); // the two slabs cover 2 + 1
    for (unsigned long n = 0; n < Mesh().nodes.size(); ++n)
        EXPECT_EQ(api.NodeCoords(n).Z(), 1.0);
}

TEST_F(GmshProject, IntegrationPointsLieInTheirElementsAndSumOverLoadCases) {
    ASSERT_EQ(api.GetLoadCaseIndex(101), 1u);
    ASSERT_EQ(api.GetLoadCaseIndex(102), 2u);
    EXPECT_EQ(api.GetLoadCaseIndex(103), 0u);
    ASSERT_TRUE(api.PrepareAdaptiveMeshData({1, 2}));
    for (unsigned long e = 0; e < Mesh().elements.size(); ++e) {
        const bool quad = Mesh().elements[e].gmshType == 3;
        ASSERT_EQ(api.GetCountOfIntegrationPoints(e), quad ? 4u : 3u);
        EXPECT_EQ(static_cast<int>(api.GetElementType(e)), quad ? 1 : 0);
        std::vector<CKQPoint3D> corners;
        for (unsigned long node : Mesh().elements[e].nodes)
            corners.push_back(Mesh().nodes[node - 1].position);
        for (unsigned long p = 0; p < api.GetCountOfIntegrationPoints(e); ++p) {
            // The file's coordinates are the point mapped from the natural coordinates the
            // interface gives, to the precision of the file's 9 digits.
            const CKQPoint3D at = api.GetIntegrationPointGlobalCoords(e, p);
            const CKQPoint3D mapped =
                slabadapt::test::MapToElement(corners, api.GetIntegrationPointLocalCoords(e, p));
            EXPECT_TRUE(Near(at.x, mapped.x, 1e-8, 1e-8));
            EXPECT_TRUE(Near(at.y, mapped.y, 1e-8, 1e-8));
            EXPECT_TRUE(Near(at.z, mapped.z, 1e-8, 1e-8));
            double forces[8];
            double deformations[8];
            api.GetIntegrationPointResults(e, p, c_forces, forces);
            api.GetIntegrationPointResults(e, p, c_deformations, deformations);
            for (int k = 0; k < 8; ++k) {
                EXPECT_TRUE(Near(forces[k], (k + 1) * at.x + at.y + 1.0, 1e-7, 1e-7));
                EXPECT_TRUE(Near(deformations[k], 1e-4 * (k + 1) + 1.0, 1e-12, 1e-8));
            }
        }
    }
}

TEST_F(GmshProject, StoredResultAndSizeFieldReadBack) {
    const auto m = Mesh().elements.size();
    std::vector<double> global(m), local(m), numerical(m), size(m);
    for (std::size_t e = 0; e < m; ++e) {
        global[e] = 10.0 + static_cast<double>(e);
        local[e] = 0.5 * static_cast<double>(e);
        numerical[e] = 1e-3 * static_cast<double>(e);
        size[e] = 0.1 + 0.001 * static_cast<double>(e);
    }
    api.DeleteResultFiles();
    ASSERT_TRUE(api.StoreMeshErrorAndRefinementInResults(1, global, local, numerical, size));
    host::outcome::GarStore gar(s_project->path.string() + ".GAR", false);
    const auto stored = gar.List();
    ASSERT_EQ(stored.size(), 2u);
    std::size_t rows = 0;
    for (const auto& info : stored) {
        EXPECT_EQ(info.key.GetResultType(), c_resultType);
        EXPECT_EQ(info.columns, 4u);
        const auto table = gar.Load(info.key);
        ASSERT_TRUE(table.has_value());
        for (unsigned long row = 0; row < table->GetCountOfRows(); ++row, ++rows) {
            const unsigned long e = table->GetElementId(row) - 1;
            EXPECT_TRUE(Near(table->GetValue(0, row), global[e] / 100));
            EXPECT_TRUE(Near(table->GetValue(1, row), local[e] / 100));
            EXPECT_TRUE(Near(table->GetValue(2, row), numerical[e]));
            EXPECT_TRUE(Near(table->GetValue(3, row), size[e]));
        }
    }
    EXPECT_EQ(rows, m);

    std::vector<double> nodal(Mesh().nodes.size(), 0.1);
    ASSERT_TRUE(api.WriteMeshRefinement(nodal));
    const std::string pos = ReadBytes(s_project->path.string() + ".refine.pos");
    const std::regex entry(R"((SQ|ST)\()");
    EXPECT_EQ(static_cast<std::size_t>(std::distance(
                  std::sregex_iterator(pos.begin(), pos.end(), entry), std::sregex_iterator())),
              m);

    // Gmsh remeshes with the field: the triangles of slab 2 (sized 0.25 before) get finer.
    const std::string base = s_project->path.string();
    const std::string command = "gmsh '" + base + ".geo' -2 -format msh41 -bgm '" + base +
                                ".refine.pos' -o '" + base + ".next.msh' > '" + base +
                                ".next.log' 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << ReadBytes(base + ".next.log");
    const auto next = host::outcome::ReadMesh(base + ".next.msh");
    ASSERT_EQ(next.slabs.size(), 2u);
    EXPECT_GT(next.slabs[1].elementCount, 3 * Mesh().slabs[1].elementCount);
}

// ---------------------------------------------------------------------------------------------
// Storing through a store that stands in for the host's

namespace {

class RecordingStore : public CKQ_ResultsAPI {
public:
    CKQ_SolverLinkMock link;
    // Rows of every slab's table: element ids (0 = a row without element).
    std::vector<unsigned long> rowElements = {2, 0, 1};
    std::vector<std::shared_ptr<CKQ_Result>> saved;
    std::vector<CKQ_ResultKey> asked;
    bool leaveElementUnset = false;
    bool noTables = false;

    CKQ_SolverLinkMock* GetSolverLink() override { return &link; }
    std::shared_ptr<CKQ_Result> GetResultTable(const CKQ_ResultKey& key) override {
        asked.push_back(key);
        if (noTables)
            return nullptr;
        auto table = std::make_shared<CKQ_Result>(key, rowElements, 4);
        for (unsigned long row = 0; row < rowElements.size(); ++row)
            for (unsigned long c = 0; c < 4; ++c)
                table->SetValue(c, row, -1.0); // what the host had there
        return table;
    }
    int GetFemMeshElementIndex(CKQ_Result& result, unsigned long row, unsigned long& element,
                               unsigned long& extra) const override {
        EXPECT_EQ(element, 0u); // both outputs start at 0
        EXPECT_EQ(extra, 0u);
        if (leaveElementUnset)
            return 0;
        element = result.GetElementId(row);
        extra = 77;
        return element != 0 ? 1 : 0;
    }
    int SaveResult(const std::shared_ptr<CKQ_Result>& result, bool replace) override {
        EXPECT_TRUE(replace);
        saved.push_back(result);
        return 0; // not looked at
    }
};

} // namespace

TEST(StoreMeshErrorAndRefinement, EmptySlabMapStoresNothing) {
    RecordingStore store;
    CAdaptiveMeshData data;
    EXPECT_TRUE(data.StoreMeshErrorAndRefinementInResults(store, 1, {}, {}, {}, {}));
    EXPECT_TRUE(store.asked.empty());
    EXPECT_TRUE(store.saved.empty());
}

TEST(StoreMeshErrorAndRefinement, OneTablePerSlabInMapOrder) {
    RecordingStore store;
    store.link.AddSlab(3, 30);
    store.link.AddSlab(1, 10);
    CAdaptiveMeshData data;
    EXPECT_TRUE(data.StoreMeshErrorAndRefinementInResults(store, 1, {12.5, 4}, {50, 8}, {0.8, 0.1},
                                                          {2, 3}));
    ASSERT_EQ(store.saved.size(), 2u);
    EXPECT_EQ(store.asked[0], KeyOf(1, 1));
    EXPECT_EQ(store.asked[1], KeyOf(3, 1));
    const CKQ_Result& table = *store.saved[0];
    // Row 2 is element 1, row 0 element 2.
    EXPECT_EQ(table.GetValue(0, 2), 0.125);
    EXPECT_EQ(table.GetValue(1, 2), 0.5);
    EXPECT_EQ(table.GetValue(2, 2), 0.8);
    EXPECT_EQ(table.GetValue(3, 2), 2.0);
    EXPECT_EQ(table.GetValue(0, 0), 0.04);
    EXPECT_EQ(table.GetValue(2, 0), 0.1);
    // Row 1 has no element: the host's values stay.
    for (unsigned long c = 0; c < 4; ++c)
        EXPECT_EQ(table.GetValue(c, 1), -1.0);
}

TEST(StoreMeshErrorAndRefinement, RowsWhoseElementStaysZeroAreLeftAlone) {
    RecordingStore store;
    store.link.AddSlab(1, 10);
    store.leaveElementUnset = true;
    CAdaptiveMeshData data;
    EXPECT_TRUE(
        data.StoreMeshErrorAndRefinementInResults(store, 2, {1, 1}, {1, 1}, {1, 1}, {1, 1}));
    ASSERT_EQ(store.saved.size(), 1u);
    for (unsigned long row = 0; row < 3; ++row)
        for (unsigned long c = 0; c < 4; ++c)
            EXPECT_EQ(store.saved[0]->GetValue(c, row), -1.0);
    EXPECT_EQ(store.asked[0].GetResultCase().GetNumber(), 2);
}

// A store that has no table for a slab gives nothing to fill or save for it.
TEST(StoreMeshErrorAndRefinement, SlabWithoutTableIsSkipped) {
    RecordingStore store;
    store.link.AddSlab(1, 10);
    store.link.AddSlab(2, 20);
    store.noTables = true;
    CAdaptiveMeshData data;
    EXPECT_TRUE(data.StoreMeshErrorAndRefinementInResults(store, 1, {1}, {1}, {1}, {1}));
    EXPECT_EQ(store.asked.size(), 2u);
    EXPECT_TRUE(store.saved.empty());
}
