// Load combinations of P.toml: the derived STRINTG file (the factored sum, point by point, with
// the components' coordinates), when it is made again, and every reason it cannot be made.
#include "host/outcome/combinations.h"
#include "tests/support/host_project_fixture.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <sstream>
#include <thread>

namespace {

namespace fs = std::filesystem;
using host::outcome::ReadProjectData;
using host::outcome::UpdateCombinations;
using slabadapt::test::Near;
using testing::HasSubstr;

// A STRINTG file of `points` points (elements of four points) whose columns hold the values
// base + column + point / 10, in the solver's layout: header line 3, records from line 5.
std::string Strintg(double base, int points = 8, double x0 = 0.0) {
    std::ostringstream out;
    out << "solver\nresults\n";
    std::string header = "element point";
    header.resize(20, ' ');
    for (const char* c : {"igx", "igy", "igz", "mx", "my", "mxy", "qx", "qy", "nx", "ny", "nxy",
                          "kx", "ky", "kxy", "gxz", "gyz", "ex", "ey", "gxy"}) {
        char field[16];
        std::snprintf(field, sizeof field, "%15s", c);
        header += field;
    }
    out << header << "\n----\n";
    for (int p = 0; p < points; ++p) {
        char prefix[32];
        std::snprintf(prefix, sizeof prefix, "%8d%8d", p / 4 + 1, p % 4 + 1);
        out << prefix;
        for (int c = 0; c < 19; ++c) {
            const double v = c < 3 ? x0 + 0.25 * p + c : base + c + p / 10.0;
            char field[16];
            std::snprintf(field, sizeof field, "%15.7E", v);
            out << field;
        }
        out << '\n';
    }
    return out.str();
}

// Field k (0-based column) of record r (0-based) of a STRINTG text.
double Value(const std::string& text, int record, int column) {
    std::istringstream in(text);
    std::string line;
    for (int i = 0; i < 4 + record + 1; ++i)
        std::getline(in, line);
    return std::stod(line.substr(16 + 15 * column, 15));
}

const char* kToml = "[[slab]]\ntag = 1\nthickness = 0.2\n"
                    "[[load_case]]\nid = 101\nindex = 1\n"
                    "[[load_case]]\nid = 102\nindex = 2\n"
                    "[[load_case]]\nid = 201\nindex = 3\ncombination = { 102 = 1.5, 101 = 1.35 }\n";

class CombinationsTest : public hosttest::ProjectFixture {
protected:
    void SetUp() override {
        Write("p.STRINTG0001", Strintg(1.0));
        Write("p.STRINTG0002", Strintg(-2.0));
    }
    std::vector<host::outcome::CombinationProblem> Update(const std::string& toml = kToml) {
        return UpdateCombinations(Project("p"), ReadProjectData(Write("p.toml", toml)));
    }
    std::string Derived() const { return Read(Dir() / "p.STRINTG0003"); }
};

TEST_F(CombinationsTest, TheTomlFormGivesComponentsInAscendingIdWithTheirFactors) {
    const auto data = ReadProjectData(Write("p.toml", kToml));
    const auto& c = data.loadCases[2];
    ASSERT_TRUE(c.IsCombination());
    EXPECT_EQ(c.combination, (std::vector<std::pair<long, double>>{{101, 1.35}, {102, 1.5}}));
    EXPECT_FALSE(data.loadCases[0].IsCombination());
}

TEST_F(CombinationsTest, TheDerivedFileIsTheFactoredSumWithTheComponentsCoordinates) {
    EXPECT_TRUE(Update().empty());
    const std::string text = Derived();
    EXPECT_EQ(text.rfind("slabadapt: combination 201 = 1.35 x 101 + 1.5 x 102 (derived; remade "
                         "when a component changes)\n",
                         0),
              0u)
        << text;
    for (int record : {0, 5})
        for (int column = 0; column < 19; ++column) {
            const double a = 1.0 + column + record / 10.0, b = -2.0 + column + record / 10.0;
            const double expected = column < 3 ? 0.25 * record + column : 1.35 * a + 1.5 * b;
            EXPECT_TRUE(Near(expected, Value(text, record, column), 1e-12, 5e-10))
                << "record " << record << ", column " << column;
        }
}

TEST_F(CombinationsTest, AFreshFileIsLeftAndAChangedComponentOrFactorMakesItAgain) {
    ASSERT_TRUE(Update().empty());
    const auto made = fs::last_write_time(Dir() / "p.STRINTG0003");
    ASSERT_TRUE(Update().empty());
    EXPECT_EQ(fs::last_write_time(Dir() / "p.STRINTG0003"), made);

    // A component written after the combination.
    Write("p.STRINTG0002", Strintg(-3.0));
    fs::last_write_time(Dir() / "p.STRINTG0002", made + std::chrono::seconds(5));
    ASSERT_TRUE(Update().empty());
    EXPECT_TRUE(Near(1.35 * 1.0 + 1.5 * -3.0 + 3 * 2.85, Value(Derived(), 0, 3), 1e-12, 5e-10));

    // Other factors in P.toml.
    std::string toml = kToml;
    toml.replace(toml.find("102 = 1.5"), 9, "102 = 1.0");
    ASSERT_TRUE(Update(toml).empty());
    EXPECT_NE(Derived().find("= 1.35 x 101 + 1 x 102"), std::string::npos);
}

TEST_F(CombinationsTest, ASolversFileAtTheCombinationsIndexIsNeverOverwritten) {
    const std::string solver = Strintg(9.0);
    Write("p.STRINTG0003", solver);
    const auto problems = Update();
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].loadCase, 201);
    EXPECT_THAT(problems[0].message,
                HasSubstr("p.STRINTG0003 is at the combination's index but was not derived by "
                          "slabadapt"));
    EXPECT_EQ(Derived(), solver);
}

TEST_F(CombinationsTest, EveryReasonAComponentCannotBeUsedIsNamed) {
    const std::string base = "[[slab]]\ntag = 1\nthickness = 0.2\n"
                             "[[load_case]]\nid = 101\nindex = 1\n"
                             "[[load_case]]\nid = 102\nindex = 2\n";
    auto only = [&](const std::string& more) {
        const auto problems = Update(base + more);
        return problems.empty() ? std::string("no problem") : problems.front().message;
    };
    EXPECT_THAT(only("[[load_case]]\nid = 201\nindex = 3\ncombination = { 999 = 1.0 }\n"),
                HasSubstr("combination 201: load case 999 is not in P.toml"));
    EXPECT_THAT(only("[[load_case]]\nid = 201\nindex = 3\ncombination = { 101 = 1.0 }\n"
                     "[[load_case]]\nid = 202\nindex = 4\ncombination = { 201 = 2.0 }\n"),
                HasSubstr("combination 202: load case 201 is itself a combination"));
    EXPECT_THAT(only("[[load_case]]\nid = 103\nindex = 5\n"
                     "[[load_case]]\nid = 201\nindex = 3\ncombination = { 101 = 1, 103 = 1 }\n"),
                HasSubstr("load case 103 (index 5) has no file"));
    EXPECT_FALSE(fs::exists(Dir() / "p.STRINTG0004")) << "a combination of combinations was made";
    fs::remove(Dir() / "p.STRINTG0003");
    Write("p.STRINTG0002", Strintg(-2.0, 4));
    EXPECT_THAT(only("[[load_case]]\nid = 201\nindex = 3\ncombination = { 101 = 1, 102 = 1 }\n"),
                HasSubstr("the points of load case 102"));
    Write("p.STRINTG0002", Strintg(-2.0, 8, 0.001));
    EXPECT_THAT(only("[[load_case]]\nid = 201\nindex = 3\ncombination = { 101 = 1, 102 = 1 }\n"),
                HasSubstr("do not agree with those of load case 101"));
    EXPECT_FALSE(fs::exists(Dir() / "p.STRINTG0003")) << "made from points that disagree";
}

TEST_F(CombinationsTest, TheTomlFormIsChecked) {
    const std::string base = "[[load_case]]\nid = 101\nindex = 1\n[[load_case]]\nid = 201\n"
                             "index = 2\n";
    auto error = [&](const std::string& more) {
        try {
            ReadProjectData(Write("p.toml", base + more));
        } catch (const host::outcome::ProjectError& e) {
            return std::string(e.what());
        }
        return std::string("no error");
    };
    EXPECT_THAT(error("combination = {}\n"), HasSubstr("must be a table of load-case ids"));
    EXPECT_THAT(error("combination = { a = 1.0 }\n"),
                HasSubstr("names \"a\", which is not a load-case id"));
    EXPECT_THAT(error("combination = { 101 = \"x\" }\n"), HasSubstr("the factor of 101 must be"));
    EXPECT_THAT(error("self_weight = true\ncombination = { 101 = 1.0 }\n"),
                HasSubstr("is a combination and cannot have loads of its own"));
}

} // namespace
