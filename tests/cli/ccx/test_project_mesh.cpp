// The project's numbering as the importer and the deck writer see it (the host kit's), with
// the node sets of physical curves and points added.

#include "cli/ccx/ProjectMesh.h"
#include "tests/support/ccx.h"

using namespace slabadapt::ccx;
using ccxtest::Close;

namespace {

// Two slabs: physical surface 5 (a quadrilateral, tag 40, and a triangle, tag 12) and
// physical surface 3 (a triangle, tag 30); node tags with gaps and node 70 in no element; a
// physical curve and a physical point.
const char* kMsh22 = R"($MeshFormat
2.2 0 8
$EndMeshFormat
$PhysicalNames
4
0 9 "pin"
1 8 "left edge"
2 3 "wall"
2 5 "floor"
$EndPhysicalNames
$Nodes
7
100 0 0 0
20 1 0 0
30 1 1 0
40 0 1 0
50 2 0 0
60 2 1 0
70 5 5 0
$EndNodes
$Elements
6
40 3 2 5 1 100 20 30 40
12 2 2 5 1 20 50 60
30 2 2 3 2 20 60 30
7 1 2 8 4 100 40
8 15 2 9 1 100
2 1 2 0 4 50 60
$EndElements
)";

} // namespace

TEST(ProjectMesh, NumberingFollowsTagsSlabBySlab) {
    ccxtest::TempDir dir;
    ccxtest::WriteText(dir / "p.msh", kMsh22);
    ccxtest::WriteText(dir / "p.toml", "title = \"t\"\n"
                                       "[[slab]]\ntag = 5\nthickness = 0.2\n"
                                       "[[slab]]\ntag = 3\nname = \"the wall\"\nthickness = 0.1\n"
                                       "[[load_case]]\nid = 102\nindex = 2\n"
                                       "[[load_case]]\nid = 101\nindex = 1\nvalid = false\n");
    const ProjectMesh m = ReadProject(dir / "p");
    EXPECT_EQ(m.title, "t");
    // Nodes in ascending tag: 20, 30, 40, 50, 60, 100; node 70 is in no slab element.
    ASSERT_EQ(m.nodes.size(), 6u);
    EXPECT_EQ(m.nodes[0][0], 1.0);
    EXPECT_EQ(m.nodes[5][0], 0.0);
    EXPECT_EQ(m.nodes[5][1], 0.0);
    // Slab 1 = physical 3 (one triangle), slab 2 = physical 5 (tags 12 then 40).
    ASSERT_EQ(m.slabs.size(), 2u);
    EXPECT_EQ(m.slabs[0].physicalTag, 3);
    EXPECT_EQ(m.slabs[0].name, "the wall");
    EXPECT_EQ(m.slabs[0].thickness, 0.1);
    EXPECT_EQ(m.slabs[1].name, "floor"); // the physical name when P.toml gives none
    EXPECT_EQ(m.slabs[1].firstElement, 1u);
    EXPECT_EQ(m.slabs[1].elementCount, 2u);
    ASSERT_EQ(m.elements.size(), 3u);
    EXPECT_EQ(m.elements[0].gmshTag, 30);
    EXPECT_EQ(m.elements[1].gmshTag, 12);
    EXPECT_EQ(m.elements[2].gmshTag, 40);
    EXPECT_EQ(m.elements[2].nodes, (std::vector<std::size_t>{5, 0, 1, 2}));
    EXPECT_EQ(m.elements[2].slab, 1u);
    EXPECT_EQ(m.Thickness(0), 0.1);
    EXPECT_TRUE(Close(m.ElementArea(2), 1.0, 1e-15, 1e-15));
    EXPECT_TRUE(Close(m.ElementArea(1), 0.5, 1e-15, 1e-15));
    // Load cases by ascending index.
    ASSERT_EQ(m.loadCases.size(), 2u);
    EXPECT_EQ(m.loadCases[0].id, 101);
    EXPECT_FALSE(m.loadCases[0].valid);
    EXPECT_EQ(m.loadCases[1].index, 2);
    // Node groups of the physical curve and point (an unphysical line is ignored).
    ASSERT_EQ(m.nodeGroups.size(), 2u);
    EXPECT_EQ(m.nodeGroups[0].dimension, 0);
    EXPECT_EQ(m.nodeGroups[0].name, "pin");
    EXPECT_EQ(m.nodeGroups[0].nodes, (std::vector<std::size_t>{5}));
    EXPECT_EQ(m.nodeGroups[1].name, "left edge");
    EXPECT_EQ(m.nodeGroups[1].nodes, (std::vector<std::size_t>{2, 5}));
}

TEST(ProjectMesh, Gmsh22And41GiveTheSameNumbering) {
    ccxtest::TempDir dir;
    ccxtest::WriteText(dir / "g.geo",
                       "Point(1) = {0,0,0,0.4}; Point(2) = {2,0,0,0.4}; Point(3) = {2,1,0,0.4};\n"
                       "Point(4) = {0,1,0,0.4}; Point(5) = {1,0,0,0.4}; Point(6) = {1,1,0,0.4};\n"
                       "Line(1) = {1,5}; Line(2) = {5,6}; Line(3) = {6,4}; Line(4) = {4,1};\n"
                       "Line(5) = {5,2}; Line(6) = {2,3}; Line(7) = {3,6};\n"
                       "Curve Loop(1) = {1,2,3,4}; Plane Surface(1) = {1};\n"
                       "Curve Loop(2) = {5,6,7,-2}; Plane Surface(2) = {2};\n"
                       "Recombine Surface{2};\n"
                       "Physical Surface(\"b\", 20) = {1}; Physical Surface(\"a\", 10) = {2};\n"
                       "Physical Curve(\"left\", 30) = {4};\n");
    const std::string cmd = "cd '" + dir.path().string() +
                            "' && gmsh g.geo -2 -format msh22 -o g22.msh > gmsh.log 2>&1"
                            " && gmsh g.geo -2 -format msh41 -o g41.msh >> gmsh.log 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << ccxtest::ReadText(dir / "gmsh.log");
    const ProjectMesh a = ReadProjectMesh(dir / "g22");
    const ProjectMesh b = ReadProjectMesh(dir / "g41");
    ASSERT_EQ(a.slabs.size(), 2u);
    EXPECT_EQ(a.slabs[0].physicalTag, 10);
    EXPECT_EQ(a.slabs[0].name, "a");
    EXPECT_EQ(a.elements.front().nodes.size(), 4u); // the recombined surface comes first
    EXPECT_EQ(a.elements.back().nodes.size(), 3u);
    EXPECT_EQ(a.nodes, b.nodes);
    ASSERT_EQ(a.elements.size(), b.elements.size());
    for (std::size_t e = 0; e < a.elements.size(); ++e) {
        EXPECT_EQ(a.elements[e].nodes, b.elements[e].nodes) << "element " << e + 1;
        EXPECT_EQ(a.elements[e].gmshTag, b.elements[e].gmshTag);
    }
    ASSERT_EQ(a.nodeGroups.size(), 1u);
    EXPECT_EQ(a.nodeGroups[0].nodes, b.nodeGroups[0].nodes);
    double area = 0.0;
    for (std::size_t e = 0; e < a.elements.size(); ++e)
        area += a.ElementArea(e);
    EXPECT_TRUE(Close(area, 2.0, 1e-12, 1e-12));
}

TEST(ProjectMesh, BadProjectsNameTheFileAndWhat) {
    ccxtest::TempDir dir;
    ccxtest::WriteText(dir / "p.msh", kMsh22);
    auto expectError = [&](const std::string& toml, const std::string& part) {
        ccxtest::WriteText(dir / "p.toml", toml);
        try {
            ReadProject(dir / "p");
            ADD_FAILURE() << "no error for: " << toml;
        } catch (const ImportError& e) {
            EXPECT_NE(std::string(e.what()).find(part), std::string::npos) << e.what();
        }
    };
    expectError("[[slab]]\ntag = 5\nthickness = 0.2\n", "physical surface 3");
    expectError("[[slab]]\ntag = 5\nthickness = 0.2\n[[slab]]\ntag = 3\n", "p.toml");
    expectError("[[slab]\n", "p.toml:1");
    std::filesystem::remove(dir / "p.toml");
    EXPECT_NO_THROW(ReadProjectMesh(dir / "p"));
    try {
        ReadProject(dir / "p");
        ADD_FAILURE() << "no error without P.toml";
    } catch (const ImportError& e) {
        EXPECT_NE(std::string(e.what()).find("p.toml: missing"), std::string::npos) << e.what();
    }
    std::string missing = kMsh22;
    missing.replace(missing.find("12 2 2 5 1 20 50 60"), 19, "12 2 2 5 1 20 50 61");
    ccxtest::WriteText(dir / "s.msh", missing);
    EXPECT_THROW(ReadProjectMesh(dir / "s"), ImportError);
}
