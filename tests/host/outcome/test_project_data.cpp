#include "host/outcome/project.h"
#include "tests/support/host_project_fixture.h"

#include <gmock/gmock.h>

namespace {

using host::outcome::LoadProject;
using host::outcome::ProjectError;
using host::outcome::ReadProjectData;
using hosttest::DataDir;
using ::testing::HasSubstr;

class ProjectDataTest : public hosttest::ProjectFixture {
protected:
    ProjectError ErrorOf(const std::string& toml) {
        auto file = Write("bad.toml", toml);
        try {
            ReadProjectData(file);
        } catch (const ProjectError& e) {
            return e;
        }
        ADD_FAILURE() << "the project data were read without an error";
        return ProjectError(file, 0, "");
    }

    // A project P = Dir()/proj with the shuffled mesh (physical surfaces 3 and 7).
    void WriteShuffledProject(const std::string& toml) {
        std::filesystem::copy_file(DataDir() / "shuffled41.msh", Dir() / "proj.msh");
        Write("proj.toml", toml);
    }
};

constexpr const char* kGood = R"(title = "Floor slab with an opening"

[[slab]]
tag = 7            # physical surface tag in P.msh
name = "floor"
thickness = 0.25

[[slab]]
tag = 3
thickness = 1      # an integer is a number too

[[load_case]]
id = 101
index = 1
valid = true
name = "self weight"

[[load_case]]
id = 205
index = 2
valid = false

[[load_case]]
id = 7
index = 3
)";

TEST_F(ProjectDataTest, ReadsSlabsAndLoadCases) {
    auto data = ReadProjectData(Write("p.toml", kGood));
    EXPECT_EQ(data.title, "Floor slab with an opening");
    ASSERT_EQ(data.slabs.size(), 2u);
    EXPECT_EQ(data.slabs[0].tag, 7);
    EXPECT_EQ(data.slabs[0].name, "floor");
    EXPECT_EQ(data.slabs[0].thickness, 0.25);
    EXPECT_EQ(data.slabs[0].line, 3u);
    EXPECT_EQ(data.slabs[1].thickness, 1.0);
    ASSERT_EQ(data.loadCases.size(), 3u);
    EXPECT_EQ(data.loadCases[0].id, 101);
    EXPECT_EQ(data.loadCases[0].index, 1);
    EXPECT_TRUE(data.loadCases[0].valid);
    EXPECT_EQ(data.loadCases[0].name, "self weight");
    EXPECT_FALSE(data.loadCases[1].valid);
    EXPECT_TRUE(data.loadCases[2].valid); // valid defaults to true
}

TEST_F(ProjectDataTest, MissingThickness) {
    ProjectError e = ErrorOf("[[slab]]\ntag = 1\nname = \"a\"\n");
    EXPECT_EQ(e.line(), 1u);
    EXPECT_THAT(e.what(), HasSubstr("bad.toml:1: the [[slab]] at line 1 (tag 1) has no thickness"));
}

TEST_F(ProjectDataTest, ThicknessMustBePositiveAndFinite) {
    EXPECT_THAT(ErrorOf("[[slab]]\ntag = 1\nthickness = 0.0\n").what(),
                HasSubstr(":3: thickness of slab 1 must be a positive finite number"));
    EXPECT_THAT(ErrorOf("[[slab]]\ntag = 1\nthickness = -0.2\n").what(),
                HasSubstr("positive finite"));
    EXPECT_THAT(ErrorOf("[[slab]]\ntag = 1\nthickness = nan\n").what(),
                HasSubstr("positive finite"));
    EXPECT_THAT(ErrorOf("[[slab]]\ntag = 1\nthickness = inf\n").what(),
                HasSubstr("positive finite"));
    EXPECT_THAT(ErrorOf("[[slab]]\ntag = 1\nthickness = \"thin\"\n").what(),
                HasSubstr("thickness of slab 1 must be a number"));
}

TEST_F(ProjectDataTest, MissingTag) {
    EXPECT_THAT(ErrorOf("[[slab]]\nthickness = 0.2\n").what(),
                HasSubstr("has no tag (an integer)"));
    EXPECT_THAT(ErrorOf("[[slab]]\ntag = 1.5\nthickness = 0.2\n").what(),
                HasSubstr(":2: tag of the [[slab]] at line 1 must be an integer"));
}

TEST_F(ProjectDataTest, NoSlabsAtAll) {
    // The file alone is fine (an empty model has no slabs); beside a mesh with physical
    // surfaces it is refused.
    auto data = ReadProjectData(Write("none.toml", "title = \"x\"\n"));
    EXPECT_TRUE(data.slabs.empty());
    WriteShuffledProject("title = \"x\"\n[[load_case]]\nid = 1\nindex = 1\n");
    try {
        LoadProject(Project());
        FAIL();
    } catch (const ProjectError& e) {
        EXPECT_EQ(e.line(), 1u);
        EXPECT_THAT(
            e.what(),
            HasSubstr(
                "proj.toml:1: no [[slab]] entry; each physical surface of the mesh needs one"));
    }
}

TEST_F(ProjectDataTest, DuplicateSlabTags) {
    ProjectError e =
        ErrorOf("[[slab]]\ntag = 4\nthickness = 0.2\n\n[[slab]]\ntag = 4\nthickness = 0.3\n");
    EXPECT_EQ(e.line(), 5u);
    EXPECT_THAT(e.what(), HasSubstr("slab tag 4 is given twice (first at line 1)"));
}

TEST_F(ProjectDataTest, DuplicateLoadCaseIds) {
    ProjectError e = ErrorOf("[[slab]]\ntag = 1\nthickness = 0.2\n[[load_case]]\nid = 5\nindex = "
                             "1\n[[load_case]]\nid = 5\nindex = 2\n");
    EXPECT_EQ(e.line(), 7u);
    EXPECT_THAT(e.what(), HasSubstr("load case id 5 is given twice (first at line 4)"));
}

TEST_F(ProjectDataTest, DuplicateLoadCaseIndices) {
    ProjectError e = ErrorOf("[[slab]]\ntag = 1\nthickness = 0.2\n[[load_case]]\nid = 5\nindex = "
                             "2\n[[load_case]]\nid = 6\nindex = 2\n");
    EXPECT_EQ(e.line(), 7u);
    EXPECT_THAT(e.what(), HasSubstr("load case index 2 is given twice (first at line 4)"));
}

TEST_F(ProjectDataTest, LoadCaseIndexStartsAtOne) {
    EXPECT_THAT(
        ErrorOf("[[slab]]\ntag = 1\nthickness = 0.2\n[[load_case]]\nid = 5\nindex = 0\n").what(),
        HasSubstr(":6: index of load case 5 must be 1 or more"));
    EXPECT_THAT(ErrorOf("[[slab]]\ntag = 1\nthickness = 0.2\n[[load_case]]\nid = 5\n").what(),
                HasSubstr("has no index"));
    EXPECT_THAT(
        ErrorOf("[[slab]]\ntag = 1\nthickness = 0.2\n[[load_case]]\nid = 5\nindex = 1\nvalid = 1\n")
            .what(),
        HasSubstr(":7: valid of load case 5 must be true or false"));
}

TEST_F(ProjectDataTest, UnknownKeysAreNamed) {
    ProjectError e = ErrorOf("[[slab]]\ntag = 1\nthicknes = 0.2\nthickness = 0.2\n");
    EXPECT_EQ(e.line(), 3u);
    EXPECT_THAT(e.what(),
                HasSubstr("unknown key \"thicknes\" in [[slab]] (expected density, name, poisson, "
                          "tag, thickness, young)"));
    EXPECT_THAT(ErrorOf("slabs = 3\n").what(), HasSubstr("unknown key \"slabs\" in the top level"));
}

TEST_F(ProjectDataTest, SyntaxErrorsCarryTheirLine) {
    ProjectError e = ErrorOf("[[slab]]\ntag = 1\nthickness = = 0.2\n");
    EXPECT_EQ(e.line(), 3u);
    EXPECT_THAT(e.what(), HasSubstr("TOML syntax error"));
}

TEST_F(ProjectDataTest, SlabMustBeAnArrayOfTables) {
    EXPECT_THAT(ErrorOf("[slab]\ntag = 1\n").what(),
                HasSubstr("slab must be an array of tables, written [[slab]]"));
}

TEST_F(ProjectDataTest, ProjectCombinesMeshAndData) {
    WriteShuffledProject(
        "[[slab]]\ntag = 3\nthickness = 0.2\n[[slab]]\ntag = 7\nthickness = 0.3\n");
    auto project = LoadProject(Project());
    ASSERT_TRUE(project.data.has_value());
    EXPECT_EQ(project.SlabThickness(1), 0.2); // slab 1 is physical surface 3
    EXPECT_EQ(project.SlabThickness(2), 0.3);
    EXPECT_THROW(project.SlabThickness(3), std::out_of_range);
}

TEST_F(ProjectDataTest, ASlabWithoutPhysicalSurface) {
    WriteShuffledProject("[[slab]]\ntag = 3\nthickness = 0.2\n[[slab]]\ntag = 7\nthickness = "
                         "0.3\n[[slab]]\ntag = 9\nthickness = 0.3\n");
    try {
        LoadProject(Project());
        FAIL();
    } catch (const ProjectError& e) {
        EXPECT_EQ(e.line(), 7u);
        EXPECT_THAT(
            e.what(),
            HasSubstr("proj.toml:7: slab with tag 9 has no physical surface 9 in proj.msh"));
    }
}

TEST_F(ProjectDataTest, APhysicalSurfaceWithoutSlab) {
    WriteShuffledProject("[[slab]]\ntag = 3\nthickness = 0.2\n");
    try {
        LoadProject(Project());
        FAIL();
    } catch (const ProjectError& e) {
        EXPECT_THAT(
            e.what(),
            HasSubstr("physical surface 7 (\"b\") of proj.msh has no [[slab]] entry with tag = 7"));
    }
}

TEST_F(ProjectDataTest, AProjectWithoutDataFile) {
    std::filesystem::copy_file(DataDir() / "shuffled41.msh", Dir() / "proj.msh");
    auto project = LoadProject(Project());
    EXPECT_FALSE(project.data.has_value());
    EXPECT_EQ(project.SlabDataOf(1), nullptr);
    EXPECT_THROW(project.SlabThickness(1), std::logic_error);
}

} // namespace
