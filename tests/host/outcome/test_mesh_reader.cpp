#include "host/outcome/project.h"
#include "tests/support/host_project_fixture.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

namespace {

using host::outcome::Mesh;
using host::outcome::ProjectError;
using host::outcome::ReadMesh;
using hosttest::DataDir;
using hosttest::Near;
using ::testing::HasSubstr;

class MeshReaderTest : public hosttest::ProjectFixture {
protected:
    // The error of reading `content` as a mesh; the test fails when it reads.
    ProjectError ErrorOf(const std::string& content) {
        auto file = Write("bad.msh", content);
        try {
            ReadMesh(file);
        } catch (const ProjectError& e) {
            return e;
        }
        ADD_FAILURE() << "the mesh was read without an error";
        return ProjectError(file, 0, "");
    }
};

constexpr const char* kHead22 = "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n";
constexpr const char* kNodes22 = "$Nodes\n4\n1 0 0 0\n2 1 0 0\n3 1 1 0\n4 0 1 0\n$EndNodes\n";

void ExpectShuffledModel(const Mesh& mesh) {
    // Slabs by ascending physical tag; elements slab by slab, by ascending element tag; nodes
    // by ascending node tag, the unused node 999 left out.
    ASSERT_EQ(mesh.slabs.size(), 2u);
    EXPECT_EQ(mesh.slabs[0].physicalTag, 3);
    EXPECT_EQ(mesh.slabs[0].firstElement, 1u);
    EXPECT_EQ(mesh.slabs[0].elementCount, 2u);
    EXPECT_EQ(mesh.slabs[1].physicalTag, 7);
    EXPECT_EQ(mesh.slabs[1].firstElement, 3u);
    EXPECT_EQ(mesh.slabs[1].elementCount, 1u);

    ASSERT_EQ(mesh.nodes.size(), 6u);
    const std::uint64_t tags[] = {5, 8, 17, 42, 60, 100};
    for (std::size_t i = 0; i < 6; ++i)
        EXPECT_EQ(mesh.nodes[i].gmshTag, tags[i]);
    EXPECT_EQ(mesh.nodes[2].position, CKQPoint3D(2, 2, 0));
    EXPECT_EQ(mesh.nodes[5].position, CKQPoint3D(0, 2, 0));

    ASSERT_EQ(mesh.elements.size(), 3u);
    EXPECT_EQ(mesh.elements[0].gmshTag, 20u);
    EXPECT_EQ(mesh.elements[0].nodes, (std::vector<unsigned long>{1, 3, 6}));
    EXPECT_EQ(mesh.elements[0].slab, 1u);
    EXPECT_EQ(mesh.elements[1].gmshTag, 50u);
    EXPECT_EQ(mesh.elements[1].nodes, (std::vector<unsigned long>{1, 4, 3}));
    EXPECT_EQ(mesh.elements[2].gmshTag, 10u);
    EXPECT_EQ(mesh.elements[2].gmshType, 3);
    EXPECT_EQ(mesh.elements[2].nodes, (std::vector<unsigned long>{4, 2, 5, 3}));
    EXPECT_EQ(mesh.elements[2].slab, 2u);

    EXPECT_TRUE(Near(mesh.ElementArea(1), 2.0, 1e-12, 1e-12));
    EXPECT_TRUE(Near(mesh.ElementArea(2), 2.0, 1e-12, 1e-12));
    EXPECT_TRUE(Near(mesh.ElementArea(3), 4.0, 1e-12, 1e-12));
}

TEST_F(MeshReaderTest, Version41WithNodesSpreadOverEntityBlocksIsNumberedByTag) {
    Mesh mesh = ReadMesh(DataDir() / "shuffled41.msh");
    EXPECT_EQ(mesh.formatVersion, "4.1");
    ExpectShuffledModel(mesh);
    EXPECT_EQ(mesh.slabs[0].physicalName, "a");
    EXPECT_EQ(mesh.slabs[1].physicalName, "b");
}

TEST_F(MeshReaderTest, Version22GivesTheSameNumbering) {
    Mesh mesh = ReadMesh(DataDir() / "shuffled22.msh");
    EXPECT_EQ(mesh.formatVersion, "2.2");
    ExpectShuffledModel(mesh);
}

TEST_F(MeshReaderTest, QuadrilateralAreaIsHalfTheCrossProductOfItsDiagonals) {
    // A skew, non-planar quadrilateral: the diagonals (2,1,1) and (-1,2,0) give
    // |d1 x d2| = |(-2,-1,5)| = sqrt(30).
    Mesh mesh = ReadMesh(Write(
        "q.msh", std::string(kHead22) + "$Nodes\n4\n1 0 0 0\n2 1 0 0\n3 2 1 1\n4 0 2 0\n$EndNodes\n"
                                        "$Elements\n1\n1 3 2 1 1 1 2 3 4\n$EndElements\n"));
    EXPECT_TRUE(Near(mesh.ElementArea(1), 0.5 * std::sqrt(30.0), 1e-12, 1e-12));
    EXPECT_THROW(mesh.ElementArea(2), std::out_of_range);
    EXPECT_THROW(mesh.ElementArea(0), std::out_of_range);
}

TEST_F(MeshReaderTest, GmshMadeFilesOfBothVersionsGiveTheSameModel) {
    auto v41 = Dir() / "two41.msh";
    auto v22 = Dir() / "two22.msh";
    MeshGeo("two_slabs.geo", v41, "4.1");
    MeshGeo("two_slabs.geo", v22, "2.2");
    Mesh a = ReadMesh(v41);
    Mesh b = ReadMesh(v22);
    ASSERT_EQ(a.slabs.size(), 2u);
    EXPECT_EQ(a.slabs[0].physicalTag, 10);
    EXPECT_EQ(a.slabs[0].physicalName, "floor");
    EXPECT_EQ(a.slabs[1].physicalTag, 20);
    EXPECT_EQ(a.slabs[1].elementCount, 6u); // 2 x 3 transfinite quadrilaterals
    EXPECT_EQ(a.slabs[1].firstElement, a.slabs[0].elementCount + 1);
    double floor = 0.0;
    double balcony = 0.0;
    for (unsigned long id = 1; id <= a.elements.size(); ++id) {
        const auto& e = a.elements[id - 1];
        EXPECT_EQ(e.gmshType, e.slab == 1 ? 2 : 3);
        (e.slab == 1 ? floor : balcony) += a.ElementArea(id);
    }
    EXPECT_TRUE(Near(floor, 12.0, 1e-9, 1e-9));
    EXPECT_TRUE(Near(balcony, 6.0, 1e-9, 1e-9));
    // The lines of the "support" group are not part of any slab.
    ASSERT_EQ(a.nodes.size(), b.nodes.size());
    ASSERT_EQ(a.elements.size(), b.elements.size());
    for (std::size_t i = 0; i < a.nodes.size(); ++i)
        EXPECT_EQ(a.nodes[i].position, b.nodes[i].position) << "node " << i + 1;
    for (std::size_t i = 0; i < a.elements.size(); ++i)
        EXPECT_EQ(a.elements[i].nodes, b.elements[i].nodes) << "element " << i + 1;
}

TEST_F(MeshReaderTest, UnknownVersionIsNamedWithFileAndLine) {
    ProjectError e = ErrorOf("$MeshFormat\n3.0 0 8\n$EndMeshFormat\n");
    EXPECT_EQ(e.line(), 2u);
    EXPECT_EQ(e.file().filename(), "bad.msh");
    EXPECT_THAT(e.what(), HasSubstr("bad.msh:2: unknown MSH version 3.0; expected 4.1 or 2.2"));
}

TEST_F(MeshReaderTest, Version40IsNotAccepted) {
    EXPECT_THAT(ErrorOf("$MeshFormat\n4 0 8\n$EndMeshFormat\n").what(),
                HasSubstr("unknown MSH version 4"));
}

TEST_F(MeshReaderTest, BinaryFilesAreRefused) {
    EXPECT_THAT(ErrorOf("$MeshFormat\n4.1 1 8\n$EndMeshFormat\n").what(),
                HasSubstr("binary MSH files are not supported"));
}

TEST_F(MeshReaderTest, NotAMeshFile) {
    ProjectError e = ErrorOf("hello\n");
    EXPECT_EQ(e.line(), 1u);
    EXPECT_THAT(e.what(), HasSubstr("expected $MeshFormat"));
    EXPECT_THAT(ErrorOf("").what(), HasSubstr("empty"));
}

TEST_F(MeshReaderTest, SecondOrderElementsAreRefused) {
    ProjectError e =
        ErrorOf(std::string(kHead22) +
                "$Nodes\n6\n1 0 0 0\n2 1 0 0\n3 0 1 0\n4 .5 0 0\n5 .5 .5 0\n6 0 .5 0\n$EndNodes\n"
                "$Elements\n1\n1 9 2 1 1 1 2 3 4 5 6\n$EndElements\n");
    EXPECT_EQ(e.line(), 15u);
    EXPECT_THAT(e.what(), HasSubstr("element 1 is a 6-node second-order triangle (Gmsh type 9)"));
    EXPECT_THAT(e.what(),
                HasSubstr("3-node triangles (type 2) and 4-node quadrilaterals (type 3) only"));
}

// Version 4.1 says where an element lies: a line in the block of a surface is inside that
// surface's slab.
constexpr const char* kSurface41 =
    "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n"
    "$Entities\n0 0 1 0\n1 0 0 0 1 1 0 1 5 0\n$EndEntities\n"
    "$Nodes\n1 4 1 4\n2 1 0 4\n1\n2\n3\n4\n0 0 0\n1 0 0\n1 1 0\n0 1 0\n$EndNodes\n";

TEST_F(MeshReaderTest, LinesInsideASlabAreRefused) {
    ProjectError e =
        ErrorOf(std::string(kSurface41) +
                "$Elements\n2 2 1 2\n2 1 3 1\n1 1 2 3 4\n2 1 1 1\n2 1 2\n$EndElements\n");
    EXPECT_EQ(e.line(), 25u);
    EXPECT_THAT(e.what(),
                HasSubstr("element 2 is a 2-node line in surface 1 (physical surface 5, a slab)"));
    EXPECT_THAT(e.what(),
                HasSubstr("3-node triangles (type 2) and 4-node quadrilaterals (type 3) only"));
    // A point is no better, nor a line in a surface outside every physical surface.
    EXPECT_THAT(ErrorOf(std::string(kSurface41) +
                        "$Elements\n2 2 1 2\n2 1 3 1\n1 1 2 3 4\n2 1 15 1\n2 3\n$EndElements\n")
                    .what(),
                HasSubstr("element 2 is a 1-node point in surface 1 (physical surface 5, a slab)"));
    EXPECT_THAT(ErrorOf("$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Entities\n0 0 1 0\n1 0 0 0 1 1 0 "
                        "0\n$EndEntities\n"
                        "$Nodes\n1 2 1 2\n2 1 0 2\n1\n2\n0 0 0\n1 0 0\n$EndNodes\n"
                        "$Elements\n1 1 1 1\n2 1 1 1\n1 1 2\n$EndElements\n")
                    .what(),
                HasSubstr("element 1 is a 2-node line in surface 1; slabs take"));
    // A surface element in the block of a curve is as wrong the other way round.
    EXPECT_THAT(
        ErrorOf(std::string(kSurface41) + "$Elements\n1 1 1 1\n1 4 2 1\n1 1 2 3\n$EndElements\n")
            .what(),
        HasSubstr(
            "element 1 is a 3-node triangle (dimension 2) in a block of the dimension-1 entity 4"));
}

TEST_F(MeshReaderTest, Version22LinesWithASlabsTagBelongToAPhysicalCurve) {
    // Version 2.2 writes a tag without its dimension, and Gmsh numbers the groups of each
    // dimension on their own: a line tagged 5 beside a surface tagged 5 is in Physical Curve 5.
    Mesh mesh = ReadMesh(
        Write("ok.msh",
              std::string(kHead22) + kNodes22 +
                  "$Elements\n3\n1 3 2 5 1 1 2 3 4\n2 1 2 5 1 1 2\n3 15 2 5 1 3\n$EndElements\n"));
    ASSERT_EQ(mesh.slabs.size(), 1u);
    EXPECT_EQ(mesh.slabs[0].physicalTag, 5);
    EXPECT_EQ(mesh.elements.size(), 1u);
    EXPECT_EQ(mesh.elements[0].gmshType, 3);
}

TEST_F(MeshReaderTest, GmshMadeFilesWithAPhysicalCurveNumberedLikeTheSlab) {
    auto v41 = Dir() / "same41.msh";
    auto v22 = Dir() / "same22.msh";
    MeshGeo("same_group_numbers.geo", v41, "4.1");
    MeshGeo("same_group_numbers.geo", v22, "2.2");
    Mesh a = ReadMesh(v41);
    Mesh b = ReadMesh(v22);
    ASSERT_EQ(a.slabs.size(), 1u);
    ASSERT_EQ(b.slabs.size(), 1u);
    EXPECT_EQ(a.slabs[0].physicalTag, 1);
    EXPECT_EQ(b.slabs[0].physicalTag, 1);
    ASSERT_EQ(a.elements.size(), b.elements.size());
    double area = 0.0;
    for (unsigned long id = 1; id <= b.elements.size(); ++id) {
        EXPECT_EQ(b.elements[id - 1].gmshType, 2);
        EXPECT_EQ(a.elements[id - 1].nodes, b.elements[id - 1].nodes) << "element " << id;
        area += b.ElementArea(id);
    }
    EXPECT_TRUE(Near(area, 2.0, 1e-9, 1e-9));
}

TEST_F(MeshReaderTest, LinesOfTheirOwnGroupAreLeftOut) {
    Mesh mesh = ReadMesh(Write(
        "ok.msh",
        std::string(kHead22) + "$PhysicalNames\n1\n1 5 \"edge\"\n$EndPhysicalNames\n" + kNodes22 +
            "$Elements\n3\n1 3 2 5 1 1 2 3 4\n2 1 2 5 1 1 2\n3 1 2 9 2 2 3\n$EndElements\n"));
    EXPECT_EQ(mesh.elements.size(), 1u);
    EXPECT_EQ(mesh.slabs.size(), 1u);
}

TEST_F(MeshReaderTest, VolumeElementsAreRefused) {
    EXPECT_THAT(
        ErrorOf(std::string(kHead22) + kNodes22 + "$Elements\n1\n1 4 2 1 1 1 2 3 4\n$EndElements\n")
            .what(),
        HasSubstr("element 1 is a 4-node tetrahedron; a slab model has surface elements only"));
}

TEST_F(MeshReaderTest, AnElementReferencingAMissingNode) {
    ProjectError e = ErrorOf(std::string(kHead22) + kNodes22 +
                             "$Elements\n2\n1 2 2 1 1 1 2 3\n2 2 2 1 1 1 3 17\n$EndElements\n");
    EXPECT_EQ(e.line(), 14u);
    EXPECT_THAT(e.what(), HasSubstr("element 2 references node 17, which $Nodes does not define"));
}

TEST_F(MeshReaderTest, NonFiniteCoordinates) {
    for (const char* bad : {"nan", "inf", "-inf", "1e400"}) {
        ProjectError e =
            ErrorOf(std::string(kHead22) + "$Nodes\n2\n1 0 0 0\n2 1 " + bad + " 0\n$EndNodes\n");
        EXPECT_EQ(e.line(), 7u) << bad;
        EXPECT_THAT(e.what(), HasSubstr("the y coordinate of node 2 is not a finite number"))
            << bad;
    }
}

TEST_F(MeshReaderTest, MalformedNumbers) {
    ProjectError e = ErrorOf(std::string(kHead22) + "$Nodes\n1\n1 0 x 0\n$EndNodes\n");
    EXPECT_EQ(e.line(), 6u);
    EXPECT_THAT(e.what(), HasSubstr("expected the y coordinate of node 1 (a number), found \"x\""));
    EXPECT_THAT(ErrorOf(std::string(kHead22) + "$Nodes\n1\n1 0 0\n$EndNodes\n").what(),
                HasSubstr("expected a node: tag x y z, found \"1 0 0\""));
}

TEST_F(MeshReaderTest, PlusSignedNumbersAreAccepted) {
    Mesh mesh =
        ReadMesh(Write("ok.msh", std::string(kHead22) +
                                     "$Nodes\n3\n1 +0 0 0\n2 +1.5e+0 0 0\n3 0 1 0\n$EndNodes\n" +
                                     "$Elements\n1\n1 2 2 1 1 1 2 3\n$EndElements\n"));
    EXPECT_EQ(mesh.nodes[1].position.x, 1.5);
}

TEST_F(MeshReaderTest, SurfaceElementsOutsideEveryPhysicalSurface) {
    EXPECT_THAT(
        ErrorOf(std::string(kHead22) + kNodes22 + "$Elements\n1\n1 3 2 0 1 1 2 3 4\n$EndElements\n")
            .what(),
        HasSubstr("element 1 (surface 1) is in no physical surface"));
}

TEST_F(MeshReaderTest, ASurfaceInTwoPhysicalGroups) {
    std::string mesh = "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Entities\n0 0 1 0\n1 0 0 0 1 1 0 2 "
                       "3 4 0\n$EndEntities\n"
                       "$Nodes\n1 3 1 3\n2 1 0 3\n1\n2\n3\n0 0 0\n1 0 0\n0 1 0\n$EndNodes\n"
                       "$Elements\n1 1 1 1\n2 1 2 1\n1 1 2 3\n$EndElements\n";
    EXPECT_THAT(ErrorOf(mesh).what(), HasSubstr("is in more than one physical surface"));
}

TEST_F(MeshReaderTest, TruncatedSections) {
    ProjectError e = ErrorOf(std::string(kHead22) + "$Nodes\n4\n1 0 0 0\n2 1 0 0\n");
    EXPECT_THAT(e.what(), HasSubstr("unexpected end of file: expected a node: tag x y z"));
    EXPECT_THAT(ErrorOf(std::string(kHead22) + kNodes22).what(), HasSubstr("no $Elements section"));
    EXPECT_THAT(ErrorOf(std::string(kHead22) + "$Comments\nfree text\n").what(),
                HasSubstr("section $Comments is not closed by $EndComments"));
}

TEST_F(MeshReaderTest, UnknownSectionsAreSkipped) {
    Mesh mesh = ReadMesh(
        Write("ok.msh",
              std::string(kHead22) + "$Comments\n$Nodes in a comment\n$EndComments\n" + kNodes22 +
                  "$Elements\n1\n1 3 2 1 1 1 2 3 4\n$EndElements\n$NodeData\n1\n$EndNodeData\n"));
    EXPECT_EQ(mesh.nodes.size(), 4u);
}

TEST_F(MeshReaderTest, BlockCountsMustAddUp) {
    std::string mesh = "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Entities\n0 0 1 0\n1 0 0 0 1 1 0 1 "
                       "3 0\n$EndEntities\n"
                       "$Nodes\n1 4 1 3\n2 1 0 3\n1\n2\n3\n0 0 0\n1 0 0\n0 1 0\n$EndNodes\n";
    ProjectError e = ErrorOf(mesh);
    EXPECT_EQ(e.line(), 9u);
    EXPECT_THAT(e.what(), HasSubstr("$Nodes announces 4 nodes, its blocks hold 3"));
}

// Node tags far apart (numbered by another program, say) are numbered by ascending tag as
// dense ones are.
TEST_F(MeshReaderTest, SparseNodeTagsAreNumberedByAscendingTag) {
    const auto file =
        Write("sparse.msh", std::string(kHead22) + "$Nodes\n5\n"
                                                   "9000000001 0 0 0\n"
                                                   "5 1 0 0\n"
                                                   "9000000003 1 1 0\n"
                                                   "700000 0 1 0\n"
                                                   "12 5 5 5\n"
                                                   "$EndNodes\n"
                                                   "$Elements\n2\n"
                                                   "20 2 2 1 1 9000000001 5 9000000003\n"
                                                   "10 2 2 1 1 9000000001 9000000003 700000\n"
                                                   "$EndElements\n");
    const Mesh mesh = ReadMesh(file);
    ASSERT_EQ(mesh.nodes.size(), 4u); // node 12 is used by no element
    const std::uint64_t tags[] = {5, 700000, 9000000001, 9000000003};
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(mesh.nodes[i].gmshTag, tags[i]);
    EXPECT_EQ(mesh.nodes[1].position, CKQPoint3D(0, 1, 0));
    ASSERT_EQ(mesh.elements.size(), 2u);
    EXPECT_EQ(mesh.elements[0].gmshTag, 10u);
    EXPECT_EQ(mesh.elements[0].nodes, (std::vector<unsigned long>{3, 4, 2}));
    EXPECT_EQ(mesh.elements[1].gmshTag, 20u);
    EXPECT_EQ(mesh.elements[1].nodes, (std::vector<unsigned long>{3, 1, 4}));
}

// Tags far beyond the nodes read so far go aside; when later nodes fill the range below them,
// they are still found, and still refused a second time.
TEST_F(MeshReaderTest, TagsSetAsideAndTagsInTheirRangeAreOneNumbering) {
    std::string nodes = "5000 9 9 0\n";
    for (int tag = 1; tag <= 1000; ++tag) // enough that 6000 lies within the table's reach
        nodes += std::to_string(tag) + " " + std::to_string(tag) + " 0 0\n";
    nodes += "4999 8 8 0\n6000 7 7 0\n";
    const std::string elements = "$Elements\n2\n"
                                 "1 2 2 1 1 5000 4999 6000\n"
                                 "2 2 2 1 1 1 2 5000\n"
                                 "$EndElements\n";
    const auto file = Write("aside.msh", std::string(kHead22) + "$Nodes\n1003\n" + nodes +
                                             "$EndNodes\n" + elements);
    const Mesh mesh = ReadMesh(file);
    ASSERT_EQ(mesh.nodes.size(), 5u);
    const std::uint64_t tags[] = {1, 2, 4999, 5000, 6000};
    for (std::size_t i = 0; i < 5; ++i)
        EXPECT_EQ(mesh.nodes[i].gmshTag, tags[i]);
    EXPECT_EQ(mesh.nodes[3].position, CKQPoint3D(9, 9, 0));
    EXPECT_EQ(mesh.elements[0].nodes, (std::vector<unsigned long>{4, 3, 5}));
    EXPECT_EQ(mesh.elements[1].nodes, (std::vector<unsigned long>{1, 2, 4}));
    EXPECT_THAT(ErrorOf(std::string(kHead22) + "$Nodes\n1004\n" + nodes +
                        "5000 1 1 1\n$EndNodes\n" + elements)
                    .what(),
                HasSubstr("node 5000 is defined twice"));
}

// Element tags are kept the same way: one far beyond those read so far goes aside, and a
// second element of that tag is refused once the table's reach has grown past it.
TEST_F(MeshReaderTest, ElementTagsSetAsideAreRefusedASecondTime) {
    std::string elements = "6000 2 2 1 1 1 2 3\n";
    for (int tag = 1; tag <= 1200; ++tag) // enough that 6000 lies within the table's reach
        elements += std::to_string(tag) + " 2 2 1 1 1 2 3\n";
    const std::string ok =
        std::string(kHead22) + kNodes22 + "$Elements\n1201\n" + elements + "$EndElements\n";
    EXPECT_EQ(ReadMesh(Write("aside.msh", ok)).elements.size(), 1201u);
    const ProjectError e = ErrorOf(std::string(kHead22) + kNodes22 + "$Elements\n1202\n" +
                                   elements + "6000 2 2 1 1 2 3 4\n$EndElements\n");
    EXPECT_THAT(e.what(), HasSubstr("element 6000 is defined twice"));
    EXPECT_EQ(e.line(), 12u + 1201u + 1u); // behind the header, the nodes and 1201 elements
}

TEST_F(MeshReaderTest, DuplicateTags) {
    EXPECT_THAT(ErrorOf(std::string(kHead22) + "$Nodes\n2\n1 0 0 0\n1 1 0 0\n$EndNodes\n").what(),
                HasSubstr(":7: node 1 is defined twice"));
    EXPECT_THAT(ErrorOf(std::string(kHead22) + kNodes22 +
                        "$Elements\n2\n1 2 2 1 1 1 2 3\n1 2 2 1 1 1 3 4\n$EndElements\n")
                    .what(),
                HasSubstr(":14: element 1 is defined twice"));
}

TEST_F(MeshReaderTest, AnElementUsingOneNodeTwice) {
    EXPECT_THAT(
        ErrorOf(std::string(kHead22) + kNodes22 + "$Elements\n1\n1 2 2 1 1 1 2 1\n$EndElements\n")
            .what(),
        HasSubstr("element 1 uses node 1 twice"));
}

TEST_F(MeshReaderTest, AMeshWithoutPhysicalSurfaces) {
    EXPECT_THAT(ErrorOf(std::string(kHead22) + kNodes22 + "$Elements\n0\n$EndElements\n").what(),
                HasSubstr("no physical surface; define each slab as a Physical Surface"));
}

TEST_F(MeshReaderTest, AMissingFile) {
    try {
        ReadMesh(Dir() / "none.msh");
        FAIL();
    } catch (const ProjectError& e) {
        EXPECT_EQ(e.line(), 0u);
        EXPECT_THAT(e.what(), HasSubstr("none.msh: cannot open the mesh file"));
    }
}

TEST_F(MeshReaderTest, CrLfLineEndsAreRead) {
    std::string text =
        std::string(kHead22) + kNodes22 + "$Elements\n1\n1 3 2 1 1 1 2 3 4\n$EndElements\n";
    std::string crlf;
    for (char c : text)
        crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    EXPECT_EQ(ReadMesh(Write("crlf.msh", crlf)).elements.size(), 1u);
}

} // namespace

// Counts are the file's word: a huge one is refused with a message, never followed by an
// out-of-range read or an allocation of its size.
TEST_F(MeshReaderTest, HugeCountsInTheFileAreRefusedWithAMessage) {
    const std::string head = "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n3\n1 0 0 0\n2 1 0 0\n"
                             "3 0 1 0\n$EndNodes\n$Elements\n1\n";
    EXPECT_THAT(ErrorOf(head + "1 2 18446744073709551615 1 1 1 2 3\n$EndElements\n").what(),
                HasSubstr("element 1 lists fewer tags than its count"));
    EXPECT_THAT(ErrorOf(head + "1 2 18446744073709551613 1 1 1 2 3\n$EndElements\n").what(),
                HasSubstr("element 1 lists fewer tags than its count"));

    const std::string v41 = "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Entities\n0 0 1 0\n";
    EXPECT_THAT(ErrorOf(v41 + "1 0 0 0 1 1 0 18446744073709551615 1\n$EndEntities\n").what(),
                HasSubstr("entity 1 lists fewer physical tags than its count"));
    EXPECT_THAT(ErrorOf(v41 + "1 0 0 0 1 1 0 18446744073709551609 1\n$EndEntities\n").what(),
                HasSubstr("entity 1 lists fewer physical tags than its count"));

    // 10^12 nodes announced in an 80-byte file: the file ends, said with its line.
    const ProjectError nodes =
        ErrorOf(v41 + "1 0 0 0 1 1 0 1 1\n$EndEntities\n$Nodes\n1 1000000000000 1 "
                      "1000000000000\n2 1 0 1000000000000\n1\n");
    EXPECT_THAT(nodes.what(), HasSubstr("a node tag"));
    EXPECT_GT(nodes.line(), 0u);
}

TEST_F(MeshReaderTest, APipeOrAFolderWhereTheMeshBelongsIsRefusedAtOnce) {
    const auto fifo = Dir() / "pipe.msh";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    try {
        ReadMesh(fifo);
        FAIL() << "a FIFO was read";
    } catch (const ProjectError& e) {
        EXPECT_THAT(e.what(), HasSubstr("pipe.msh: is not a regular file"));
    }
    std::filesystem::create_directory(Dir() / "folder.msh");
    try {
        ReadMesh(Dir() / "folder.msh");
        FAIL() << "a folder was read";
    } catch (const ProjectError& e) {
        EXPECT_THAT(e.what(), HasSubstr("folder.msh: is a folder, not a mesh file"));
    }
}
