// A model with no slabs at all: an empty P.msh opens as a model only together with a P.toml
// that lists no slab; every other combination stays refused.
#include "host/outcome/project.h"
#include "host/outcome/results_api.h"
#include "tests/support/host_project_fixture.h"

#include <gmock/gmock.h>

namespace {

using namespace Outcome64Enums;
using host::outcome::EmptyMesh;
using host::outcome::LoadProject;
using host::outcome::ProjectError;
using host::outcome::ReadMesh;
using ::testing::HasSubstr;
using ::testing::Not;

// What Gmsh 4.11 saves for a model without geometry: no $Nodes and no $Elements.
constexpr const char* kEmpty41 =
    "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Entities\n0 0 0 0\n$EndEntities\n";
// Version 2.2 keeps the sections, with counts of 0.
constexpr const char* kEmpty22 =
    "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n0\n$EndNodes\n$Elements\n0\n$EndElements\n";
// Load cases, but no slab.
constexpr const char* kNoSlabToml = "title = \"nothing yet\"\n[[load_case]]\nid = 101\nindex = 1\n";

class EmptyModelTest : public hosttest::ProjectFixture {
protected:
    void MakeProject(const std::string& msh, const std::string* toml) {
        Write("proj.msh", msh);
        if (toml != nullptr)
            Write("proj.toml", *toml);
    }
    void MakeProject(const std::string& msh, const std::string& toml) { MakeProject(msh, &toml); }

    ProjectError LoadError() {
        try {
            LoadProject(Project());
        } catch (const ProjectError& e) {
            return e;
        }
        ADD_FAILURE() << "the project was opened without an error";
        return ProjectError(Project(), 0, "");
    }

    int Open(CKQ_ResultsAPI& store) {
        store.SetSource(CString(Project().string()), 0);
        return store.Init(eST_Default, eMT_Analysis, true, 0);
    }

    static void ExpectEmpty(const host::outcome::Mesh& mesh) {
        EXPECT_TRUE(mesh.nodes.empty());
        EXPECT_TRUE(mesh.elements.empty());
        EXPECT_TRUE(mesh.slabs.empty());
    }
};

TEST_F(EmptyModelTest, AnEmptyMeshWithoutSlabsInTheDataOpens) {
    MakeProject(kEmpty41, kNoSlabToml);
    const auto project = LoadProject(Project());
    ExpectEmpty(project.mesh);
    EXPECT_EQ(project.mesh.formatVersion, "4.1");
    ASSERT_TRUE(project.data.has_value());
    EXPECT_TRUE(project.data->slabs.empty());
    ASSERT_EQ(project.data->loadCases.size(), 1u);
    EXPECT_EQ(project.data->loadCases[0].id, 101);
}

TEST_F(EmptyModelTest, VersionTwoTwoAndAnEmptyDataFileOpenToo) {
    MakeProject(kEmpty22, "");
    const auto project = LoadProject(Project());
    ExpectEmpty(project.mesh);
    EXPECT_EQ(project.mesh.formatVersion, "2.2");
    ASSERT_TRUE(project.data.has_value());
    EXPECT_TRUE(project.data->loadCases.empty());
}

TEST_F(EmptyModelTest, NodesThatNoElementUsesAreLeftOut) {
    MakeProject("$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n2\n1 0 0 0\n2 1 0 "
                "0\n$EndNodes\n$Elements\n0\n"
                "$EndElements\n",
                "");
    ExpectEmpty(LoadProject(Project()).mesh);
}

TEST_F(EmptyModelTest, WhatGmshSavesForAnEmptyGeometryOpens) {
    for (const std::string format : {"msh41", "msh22"}) {
        Write("empty.geo", "// nothing to mesh\n");
        Gmsh("\"" + (Dir() / "empty.geo").string() + "\" -2 -format " + format + " -o \"" +
             (Dir() / "proj.msh").string() + "\"");
        Write("proj.toml", kNoSlabToml);
        ExpectEmpty(LoadProject(Project()).mesh);
    }
}

TEST_F(EmptyModelTest, TheStoreOpensItWithZeroNodesAndNoSlab) {
    MakeProject(kEmpty41, kNoSlabToml);
    CKQ_ResultsAPI store;
    ASSERT_EQ(Open(store), CKQ_FemResultsAPI::eIR_OK) << store.GetLastErrorMessage().ToUtf8();
    EXPECT_TRUE(store.IsOpen());
    EXPECT_EQ(store.GetNoOfNodes(), 0u);
    EXPECT_EQ(store.GetNoOfElements(), 0u);
    ASSERT_NE(store.GetSolverLink(), nullptr);
    EXPECT_EQ(store.GetSolverLink()->GetMaxSlabMacroID(), 0);
    EXPECT_TRUE(store.GetSolverLink()->GetSlabsIDs().empty());
    EXPECT_EQ(store.GetSolverLink()->GetCountOfLoadCases(), 1u);
    EXPECT_THROW(store.NodeCoords(1), std::out_of_range);
}

TEST_F(EmptyModelTest, TheSolverLinkOfAnEmptyModelIsStoredAndLoadedAgain) {
    MakeProject(kEmpty22, kNoSlabToml);
    CKQ_ResultsAPI store;
    ASSERT_EQ(Open(store), CKQ_FemResultsAPI::eIR_OK);
    const std::wstring copy = CString((Dir() / "copy.toml").string()).GetString();
    ASSERT_EQ(store.SerializeSolverLink(1, copy), 1);
    EXPECT_THAT(Read(Dir() / "copy.toml"), Not(HasSubstr("[[slab]]")));
    store.GetSolverLink()->Clear();
    ASSERT_EQ(store.SerializeSolverLink(0, copy), 1);
    EXPECT_EQ(store.GetSolverLink()->GetMaxSlabMacroID(), 0);
    EXPECT_EQ(store.GetSolverLink()->GetLoadCasesIDs().at(101), 1);
}

TEST_F(EmptyModelTest, ASlabInTheDataWithAnEmptyMeshIsRefused) {
    MakeProject(kEmpty41, "[[load_case]]\nid = 1\nindex = 1\n[[slab]]\ntag = 4\nthickness = 0.2\n");
    const ProjectError e = LoadError();
    EXPECT_EQ(e.file().filename(), "proj.toml");
    EXPECT_EQ(e.line(), 4u);
    EXPECT_THAT(e.what(),
                HasSubstr("proj.toml:4: slab with tag 4 has no physical surface 4 in proj.msh"));
    CKQ_ResultsAPI store;
    EXPECT_EQ(Open(store), CKQ_FemResultsAPI::eIR_ProjectDataInvalid);
    EXPECT_FALSE(store.IsOpen());
}

TEST_F(EmptyModelTest, AnEmptyMeshWithoutDataFileIsRefused) {
    MakeProject(kEmpty41, nullptr);
    const ProjectError e = LoadError();
    EXPECT_EQ(e.file().filename(), "proj.msh");
    EXPECT_EQ(e.line(), 0u);
    EXPECT_THAT(
        e.what(),
        HasSubstr(
            "proj.msh: the mesh has no physical surface; define each slab as a Physical Surface"));
    CKQ_ResultsAPI store;
    EXPECT_EQ(Open(store), CKQ_FemResultsAPI::eIR_MeshInvalid);
}

TEST_F(EmptyModelTest, APhysicalSurfaceWithoutElementsIsStillRefused) {
    MakeProject("$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$PhysicalNames\n1\n2 5 "
                "\"floor\"\n$EndPhysicalNames\n"
                "$Nodes\n0\n$EndNodes\n$Elements\n0\n$EndElements\n",
                "");
    EXPECT_THAT(LoadError().what(), HasSubstr("physical surface 5 has no elements"));
}

TEST_F(EmptyModelTest, LinesWithoutAnySurfaceAreStillRefused) {
    MakeProject(
        "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$PhysicalNames\n1\n1 9 \"edge\"\n$EndPhysicalNames\n"
        "$Nodes\n2\n1 0 0 0\n2 1 0 0\n$EndNodes\n$Elements\n1\n1 1 2 9 1 1 2\n$EndElements\n",
        "");
    EXPECT_THAT(LoadError().what(), HasSubstr("the mesh has no physical surface"));
}

TEST_F(EmptyModelTest, SurfaceElementsWithoutPhysicalSurfaceAreStillRefused) {
    MakeProject(
        "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n3\n1 0 0 0\n2 1 0 0\n3 1 1 0\n$EndNodes\n"
        "$Elements\n1\n1 2 0 1 2 3\n$EndElements\n",
        "");
    EXPECT_THAT(LoadError().what(), HasSubstr("element 1 (surface 0) is in no physical surface"));
}

TEST_F(EmptyModelTest, AMissingElementsSectionDoesNotHideAPhysicalSurface) {
    // Without $Elements the mesh has no elements, but the named surface still wants some.
    MakeProject("$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$PhysicalNames\n1\n2 5 "
                "\"floor\"\n$EndPhysicalNames\n"
                "$Nodes\n0\n$EndNodes\n",
                "");
    EXPECT_THAT(LoadError().what(), HasSubstr("physical surface 5 has no elements"));
}

TEST_F(EmptyModelTest, ReadMeshRefusesAnEmptyMeshUnlessAsked) {
    const auto v41 = Write("e41.msh", kEmpty41);
    const auto v22 = Write("e22.msh", kEmpty22);
    EXPECT_THROW(ReadMesh(v41), ProjectError);
    try {
        ReadMesh(v41);
    } catch (const ProjectError& e) {
        EXPECT_THAT(e.what(), HasSubstr("the mesh has no $Nodes section"));
    }
    try {
        ReadMesh(v22, EmptyMesh::Refuse);
        FAIL();
    } catch (const ProjectError& e) {
        EXPECT_THAT(e.what(), HasSubstr("the mesh has no physical surface"));
    }
    ExpectEmpty(ReadMesh(v41, EmptyMesh::Accept));
    ExpectEmpty(ReadMesh(v22, EmptyMesh::Accept));
}

TEST_F(EmptyModelTest, AnEmptyModelIsWrittenAndReadBack) {
    for (auto version : {host::outcome::MshVersion::V41, host::outcome::MshVersion::V22}) {
        const auto file = Dir() / "again.msh";
        host::outcome::WriteMesh(host::outcome::Mesh{}, file, version);
        ExpectEmpty(ReadMesh(file, EmptyMesh::Accept));
    }
}

using SharedProjectTest = EmptyModelTest;

// One parse per process: the same files give the same model; a file written since, another
// project or a removed P.toml give a fresh one.
TEST_F(SharedProjectTest, IsReadOnceAndAgainWhenAFileChanges) {
    MakeProject(kEmpty41, kNoSlabToml);
    const auto first = host::outcome::SharedProject(Project());
    EXPECT_EQ(host::outcome::SharedProject(Project()), first);
    // The same path written differently still finds it.
    EXPECT_EQ(host::outcome::SharedProject(Project().parent_path() / "." / "proj"), first);

    // Another P.toml of the same size: a new file (inode), so a new model.
    std::string changed = kNoSlabToml;
    changed.replace(changed.find("101"), 3, "102");
    Write("proj.toml.new", changed);
    std::filesystem::rename(Dir() / "proj.toml.new", Dir() / "proj.toml");
    const auto second = host::outcome::SharedProject(Project());
    EXPECT_NE(second, first);
    EXPECT_EQ(second->data->loadCases[0].id, 102);
    EXPECT_EQ(first->data->loadCases[0].id, 101); // a holder keeps what it borrowed

    std::filesystem::remove(Dir() / "proj.toml");
    EXPECT_THROW(host::outcome::SharedProject(Project()), ProjectError); // no slab data
}

} // namespace
