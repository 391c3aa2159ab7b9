// What P.toml says for a solver deck: the slabs' materials, the supports and the loads of each
// load case, in the forms the user's guide gives, and the errors that name what is wrong.
#include "host/outcome/project.h"
#include "tests/support/host_project_fixture.h"

#include <gmock/gmock.h>

namespace {

using host::outcome::ProjectError;
using host::outcome::ReadProjectData;
using testing::HasSubstr;

const char* kModel = R"(title = "Flat slab"

[[slab]]
tag = 1
name = "floor"
thickness = 0.22
young = 3.0e10
poisson = 0.2
density = 2500.0

[[support]]
group = "columns"
fix = ["ux", "uy", "uz"]

[[support]]
group = "wall"
fix = ["fixed"]

[[support]]
group = "edge"
fix = ["pinned", "rx"]

[[load_case]]
id = 101
index = 1
name = "self weight"
self_weight = true

[[load_case]]
id = 102
index = 2
name = "imposed"
self_weight = false
g = 10
pressure = [{ slab = 1, value = 3000.0 }]
line_load = [{ group = "edge", value = [0.0, 0.0, -5000.0] }]
point_load = [{ group = "P1", value = [0.0, 0.0, -1.0e4] }]
)";

class ProjectModelTest : public hosttest::ProjectFixture {
protected:
    ProjectError ErrorOf(const std::string& text) {
        try {
            ReadProjectData(Write("bad.toml", text));
        } catch (const ProjectError& e) {
            return e;
        }
        ADD_FAILURE() << "no error for:\n" << text;
        return ProjectError("", 0, "");
    }
};

TEST_F(ProjectModelTest, ReadsMaterialsSupportsAndLoads) {
    const auto data = ReadProjectData(Write("p.toml", kModel));
    ASSERT_EQ(data.slabs.size(), 1u);
    EXPECT_EQ(data.slabs[0].young, 3.0e10);
    EXPECT_EQ(data.slabs[0].poisson, 0.2);
    EXPECT_EQ(data.slabs[0].density, 2500.0);
    ASSERT_EQ(data.supports.size(), 3u);
    EXPECT_EQ(data.supports[0].group, "columns");
    EXPECT_EQ(data.supports[0].dofs, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(data.supports[1].dofs, (std::vector<int>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(data.supports[2].dofs, (std::vector<int>{1, 2, 3, 4}));
    ASSERT_EQ(data.loadCases.size(), 2u);
    EXPECT_TRUE(data.loadCases[0].selfWeight);
    EXPECT_EQ(data.loadCases[0].g, 9.81); // the default
    EXPECT_TRUE(data.loadCases[0].HasLoads());
    const auto& imposed = data.loadCases[1];
    EXPECT_FALSE(imposed.selfWeight);
    EXPECT_EQ(imposed.g, 10.0);
    ASSERT_EQ(imposed.pressure.size(), 1u);
    EXPECT_EQ(imposed.pressure[0].slab, 1);
    EXPECT_EQ(imposed.pressure[0].value, 3000.0);
    ASSERT_EQ(imposed.lineLoads.size(), 1u);
    EXPECT_EQ(imposed.lineLoads[0].group, "edge");
    EXPECT_EQ(imposed.lineLoads[0].value, (std::array<double, 3>{0.0, 0.0, -5000.0}));
    ASSERT_EQ(imposed.pointLoads.size(), 1u);
    EXPECT_EQ(imposed.pointLoads[0].value[2], -1.0e4);
}

TEST_F(ProjectModelTest, OldFilesWithoutMaterialsOrLoadsStillRead) {
    const auto data = ReadProjectData(
        Write("p.toml", "[[slab]]\ntag = 1\nthickness = 0.2\n[[load_case]]\nid = 1\nindex = 1\n"));
    EXPECT_FALSE(data.slabs[0].young.has_value());
    EXPECT_TRUE(data.supports.empty());
    EXPECT_FALSE(data.loadCases[0].HasLoads());
}

TEST_F(ProjectModelTest, MaterialValuesOutOfRangeAreRefused) {
    const std::string slab = "[[slab]]\ntag = 1\nthickness = 0.2\n";
    EXPECT_THAT(ErrorOf(slab + "young = -1.0\n").what(),
                HasSubstr(":4: young of slab 1 must be positive"));
    EXPECT_THAT(ErrorOf(slab + "poisson = 0.5\n").what(),
                HasSubstr("poisson of slab 1 must lie between -1 and 0.5"));
    EXPECT_THAT(ErrorOf(slab + "density = -2.0\n").what(),
                HasSubstr("density of slab 1 must not be negative"));
    EXPECT_THAT(ErrorOf(slab + "young = \"stiff\"\n").what(),
                HasSubstr("young of slab 1 must be a number"));
    EXPECT_THAT(ErrorOf(slab + "young = inf\n").what(),
                HasSubstr("young of slab 1 must be a finite number"));
}

TEST_F(ProjectModelTest, SupportsNeedAGroupAndKnownWords) {
    EXPECT_THAT(ErrorOf("[[support]]\nfix = [\"uz\"]\n").what(),
                HasSubstr("the [[support]] at line 1 has no group"));
    EXPECT_THAT(ErrorOf("[[support]]\ngroup = \"a\"\n").what(), HasSubstr("has no fix"));
    EXPECT_THAT(ErrorOf("[[support]]\ngroup = \"a\"\nfix = []\n").what(),
                HasSubstr("must be a list such as"));
    EXPECT_THAT(ErrorOf("[[support]]\ngroup = \"a\"\nfix = [\"uw\"]\n").what(),
                HasSubstr(":3: fix of the [[support]] at line 1 names \"uw\"; expected ux, uy, "
                          "uz, rx, ry, rz, fixed or pinned"));
    EXPECT_THAT(ErrorOf("[[support]]\ngroup = \"a\"\nfix = [\"uz\"]\nfree = [\"ux\"]\n").what(),
                HasSubstr("unknown key \"free\" in [[support]]"));
}

TEST_F(ProjectModelTest, LoadsNameWhatIsWrongWithThem) {
    const std::string slab = "[[slab]]\ntag = 1\nthickness = 0.2\n[[load_case]]\nid = 5\n"
                             "index = 1\n";
    EXPECT_THAT(ErrorOf(slab + "pressure = [{ slab = 2, value = 1.0 }]\n").what(),
                HasSubstr("a pressure of load case 5 is on slab 2, which no [[slab]] has as its "
                          "tag"));
    EXPECT_THAT(ErrorOf(slab + "pressure = [{ slab = 1 }]\n").what(),
                HasSubstr("a pressure of load case 5 has no value"));
    EXPECT_THAT(ErrorOf(slab + "pressure = { slab = 1, value = 1.0 }\n").what(),
                HasSubstr("pressure of load case 5 must be a list of tables"));
    EXPECT_THAT(ErrorOf(slab + "line_load = [{ group = \"e\", value = [0.0, -1.0] }]\n").what(),
                HasSubstr("the value of a line_load of load case 5 must be a vector of three "
                          "numbers"));
    EXPECT_THAT(ErrorOf(slab + "point_load = [{ value = [0.0, 0.0, -1.0] }]\n").what(),
                HasSubstr("a point_load of load case 5 has no group"));
    EXPECT_THAT(ErrorOf(slab + "self_weight = 1\n").what(),
                HasSubstr("self_weight of load case 5 must be true or false"));
    EXPECT_THAT(ErrorOf(slab + "g = 0\n").what(), HasSubstr("g of load case 5 must be positive"));
}

} // namespace
