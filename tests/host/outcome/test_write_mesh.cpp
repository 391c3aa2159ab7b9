#include "host/outcome/project.h"
#include "tests/support/host_project_fixture.h"

#include <gmock/gmock.h>

namespace {

using host::outcome::Mesh;
using host::outcome::MshVersion;
using host::outcome::ReadMesh;
using host::outcome::WriteMesh;
using hosttest::DataDir;
using hosttest::Near;

class WriteMeshTest : public hosttest::ProjectFixture,
                      public ::testing::WithParamInterface<MshVersion> {};

// The written mesh carries the project's own numbers as its Gmsh tags, so reading it back
// gives the same model with tag i for node i and element i.
void ExpectSameModelInOwnNumbering(const Mesh& original, const Mesh& written) {
    ASSERT_EQ(written.nodes.size(), original.nodes.size());
    ASSERT_EQ(written.elements.size(), original.elements.size());
    ASSERT_EQ(written.slabs.size(), original.slabs.size());
    for (std::size_t i = 0; i < original.nodes.size(); ++i) {
        EXPECT_EQ(written.nodes[i].gmshTag, i + 1);
        EXPECT_EQ(written.nodes[i].position, original.nodes[i].position);
    }
    for (std::size_t i = 0; i < original.elements.size(); ++i) {
        EXPECT_EQ(written.elements[i].gmshTag, i + 1);
        EXPECT_EQ(written.elements[i].gmshType, original.elements[i].gmshType);
        EXPECT_EQ(written.elements[i].nodes, original.elements[i].nodes);
        EXPECT_EQ(written.elements[i].slab, original.elements[i].slab);
    }
    for (std::size_t s = 0; s < original.slabs.size(); ++s) {
        EXPECT_EQ(written.slabs[s].physicalTag, original.slabs[s].physicalTag);
        EXPECT_EQ(written.slabs[s].physicalName, original.slabs[s].physicalName);
        EXPECT_EQ(written.slabs[s].firstElement, original.slabs[s].firstElement);
        EXPECT_EQ(written.slabs[s].elementCount, original.slabs[s].elementCount);
    }
}

TEST_P(WriteMeshTest, ShuffledTagsComeOutInProjectNumbering) {
    Mesh original = ReadMesh(DataDir() / "shuffled41.msh");
    auto out = Dir() / "own.msh";
    WriteMesh(original, out, GetParam());
    Mesh written = ReadMesh(out);
    EXPECT_EQ(written.formatVersion, GetParam() == MshVersion::V41 ? "4.1" : "2.2");
    ExpectSameModelInOwnNumbering(original, written);
}

TEST_P(WriteMeshTest, AGmshMeshRoundTripsAndGmshReadsTheFile) {
    auto made = Dir() / "made.msh";
    MeshGeo("two_slabs.geo", made, "4.1");
    Mesh original = ReadMesh(made);
    auto out = Dir() / "own.msh";
    WriteMesh(original, out, GetParam());
    ExpectSameModelInOwnNumbering(original, ReadMesh(out));

    // Gmsh itself opens the written file and saves it again: the same slabs come back.
    auto resaved = Dir() / "resaved.msh";
    Gmsh("\"" + out.string() + "\" -save -format msh41 -o \"" + resaved.string() + "\"");
    Mesh again = ReadMesh(resaved);
    ASSERT_EQ(again.slabs.size(), original.slabs.size());
    EXPECT_EQ(again.nodes.size(), original.nodes.size());
    for (std::size_t s = 0; s < original.slabs.size(); ++s) {
        EXPECT_EQ(again.slabs[s].physicalTag, original.slabs[s].physicalTag);
        EXPECT_EQ(again.slabs[s].elementCount, original.slabs[s].elementCount);
        double a = 0.0;
        double b = 0.0;
        for (unsigned long i = 0; i < original.slabs[s].elementCount; ++i) {
            a += original.ElementArea(original.slabs[s].firstElement + i);
            b += again.ElementArea(again.slabs[s].firstElement + i);
        }
        EXPECT_TRUE(Near(a, b, 1e-9, 1e-9)) << a << " vs " << b;
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, WriteMeshTest,
                         ::testing::Values(MshVersion::V41, MshVersion::V22), [](const auto& info) {
                             return info.param == MshVersion::V41 ? "V41" : "V22";
                         });

TEST(WriteMeshErrorTest, AnUnwritablePathThrows) {
    Mesh mesh = ReadMesh(DataDir() / "shuffled22.msh");
    EXPECT_THROW(WriteMesh(mesh, "/nonexistent-folder/x.msh", MshVersion::V41), std::runtime_error);
}

} // namespace
