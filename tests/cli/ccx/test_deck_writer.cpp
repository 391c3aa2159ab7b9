// The CalculiX deck written from P.toml: its text for every support and load kind, and what the
// real CalculiX makes of it on a cantilever of two S4 elements (2 x 1, 0.1 thick, clamped at
// x = 0), read back from the displacements it prints.
#include "cli/ccx/DeckWriter.h"
#include "cli/ccx/InpWriter.h"
#include "tests/support/ccx.h"

#include <map>
#include <sstream>
#include <string>

namespace {

using slabadapt::ccx::DeckOptions;
using slabadapt::ccx::ImportError;
using slabadapt::test::Near;

// Nodes 1 2 3 along y = 0, 4 5 6 along y = 1; curve "edge" (x = 0), curve "free" (x = 2),
// points "tip" (node 3) and "corner" (node 6).
const char* kMsh = R"($MeshFormat
2.2 0 8
$EndMeshFormat
$PhysicalNames
5
1 10 "edge"
1 11 "free"
0 12 "tip"
0 13 "corner"
2 1 "slab"
$EndPhysicalNames
$Nodes
6
1 0 0 0
2 1 0 0
3 2 0 0
4 0 1 0
5 1 1 0
6 2 1 0
$EndNodes
$Elements
6
1 1 2 10 1 1 4
2 1 2 11 2 3 6
3 15 2 12 3 3
4 15 2 13 4 6
5 3 2 1 1 1 2 5 4
6 3 2 1 1 2 3 6 5
$EndElements
)";

const char* kSlab = "[[slab]]\ntag = 1\nthickness = 0.1\nyoung = 1000.0\npoisson = 0.3\n"
                    "density = 2.0\n";

class DeckWriterTest : public ::testing::Test {
protected:
    // Writes P.msh and P.toml with `rest` after the slab, and the mesh part P_mesh.inp.
    void Project(const std::string& rest, const std::string& slab = kSlab) {
        ccxtest::WriteText(m_dir / "p.msh", kMsh);
        ccxtest::WriteText(m_dir / "p.toml", slab + rest);
        slabadapt::ccx::ExportInp(m_dir / "p", m_dir / "p_mesh.inp",
                                  slabadapt::ccx::InpFamily::Shell);
    }

    std::string Deck(slabadapt::ccx::InpFamily family = slabadapt::ccx::InpFamily::Shell) {
        DeckOptions options;
        options.family = family;
        options.meshPart = "p_mesh.inp";
        options.printDisplacements = true;
        slabadapt::ccx::WriteDeckFile(m_dir / "p", m_dir / "p.inp", options);
        return ccxtest::ReadText(m_dir / "p.inp");
    }

    // Runs CalculiX on p.inp; per step, the displacement vector of each printed node.
    std::vector<std::map<int, std::array<double, 3>>> Solve() {
        ccxtest::RunCcx(m_dir.path(), "p");
        std::istringstream in(ccxtest::ReadText(m_dir / "p.dat"));
        std::vector<std::map<int, std::array<double, 3>>> steps;
        std::string line;
        bool inBlock = false;
        while (std::getline(in, line)) {
            if (line.find("displacements (vx,vy,vz)") != std::string::npos) {
                steps.emplace_back();
                inBlock = true;
                continue;
            }
            std::istringstream fields(line);
            int node = 0;
            std::array<double, 3> u{};
            if (inBlock && fields >> node >> u[0] >> u[1] >> u[2])
                steps.back()[node] = u;
            else if (inBlock && line.find_first_not_of(' ') != std::string::npos)
                inBlock = false;
        }
        return steps;
    }

    std::string ErrorOf() {
        try {
            Deck();
        } catch (const ImportError& e) {
            return e.what();
        }
        return "no error";
    }

    slabadapt::test::TempDir m_dir{"deck"};
};

TEST(CcxNumber, FitsCalculixFieldsAndReadsBackAsCloseAsTheyAllow) {
    using slabadapt::ccx::CcxNumber;
    EXPECT_EQ(CcxNumber(0.5), "0.5");
    EXPECT_EQ(CcxNumber(-0.0), "0");
    EXPECT_EQ(CcxNumber(0.1 + 0.2), "0.30000000000000004"); // fits: read back exactly
    for (double v : {-1.2345678901234567e-05, -1.2345678901234567e-105, 1.0 / 3.0 * 1e300,
                     -2.007886275685694e-01, 123456789.12345678}) {
        const std::string text = CcxNumber(v);
        EXPECT_LE(text.size(), 20u) << text;
        EXPECT_TRUE(Near(v, std::strtod(text.c_str(), nullptr), 0.0, 1e-12)) << text;
    }
}

TEST_F(DeckWriterTest, WritesMaterialSectionSupportsAndOneStepPerLoadCaseInIndexOrder) {
    Project("[[support]]\ngroup = \"edge\"\nfix = [\"fixed\"]\n"
            "[[load_case]]\nid = 7\nindex = 2\nname = \"second\"\n"
            "pressure = [{ slab = 1, value = 3.0 }]\n"
            "[[load_case]]\nid = 5\nindex = 1\nself_weight = true\ng = 10.0\n");
    const std::string deck = Deck();
    EXPECT_NE(deck.find("*INCLUDE, INPUT=p_mesh.inp\n"), std::string::npos) << deck;
    EXPECT_NE(deck.find("*MATERIAL, NAME=MSLAB1\n*ELASTIC\n1000, 0.3\n*DENSITY\n2\n"
                        "*SHELL SECTION, ELSET=SLAB1, MATERIAL=MSLAB1\n0.1\n"),
              std::string::npos)
        << deck;
    EXPECT_NE(deck.find("*BOUNDARY\n** support of \"edge\"\nEDGE, 1, 6\n"), std::string::npos)
        << deck;
    const auto first = deck.find("** load case 5 (index 1)");
    const auto second = deck.find("** load case 7 (index 2): second");
    ASSERT_NE(first, std::string::npos) << deck;
    ASSERT_NE(second, std::string::npos) << deck;
    EXPECT_LT(first, second);
    EXPECT_NE(deck.find("*DLOAD, OP=NEW\nSLAB1, GRAV, 10, 0., 0., -1.\n"), std::string::npos)
        << deck;
    EXPECT_NE(deck.find("*DLOAD, OP=NEW\nSLAB1, P, -3\n"), std::string::npos) << deck;
    EXPECT_NE(deck.find("*EL PRINT, ELSET=EALL\nS, E, COORD\n"), std::string::npos) << deck;
}

TEST_F(DeckWriterTest, SupportsWriteRunsOfDegreesOfFreedom) {
    Project("[[support]]\ngroup = \"edge\"\nfix = [\"pinned\", \"ry\"]\n"
            "[[support]]\ngroup = \"tip\"\nfix = [\"uz\", \"rx\", \"rz\"]\n");
    const std::string deck = Deck();
    EXPECT_NE(deck.find("EDGE, 1, 3\nEDGE, 5, 5\n"), std::string::npos) << deck;
    EXPECT_NE(deck.find("TIP, 3, 4\nTIP, 6, 6\n"), std::string::npos) << deck;
    // A plane-stress deck keeps only the in-plane translations.
    const std::string plane = Deck(slabadapt::ccx::InpFamily::PlaneStress);
    EXPECT_NE(plane.find("EDGE, 1, 2\n"), std::string::npos) << plane;
    EXPECT_EQ(plane.find("EDGE, 5, 5"), std::string::npos) << plane;
    EXPECT_NE(plane.find("*SOLID SECTION, ELSET=SLAB1, MATERIAL=MSLAB1\n0.1\n"), std::string::npos)
        << plane;
}

TEST_F(DeckWriterTest, LineLoadsAreLumpedHalfToEitherEndOfEachSegment) {
    Project("[[load_case]]\nid = 1\nindex = 1\n"
            "line_load = [{ group = \"free\", value = [0.0, 0.5, -4.0] }]\n"
            "point_load = [{ group = \"tip\", value = [1.0, 0.0, -1.0] }]\n");
    const std::string deck = Deck();
    // Segment 3-6 of length 1: half of [0, 0.5, -4] to each end; the tip's point load adds.
    EXPECT_NE(deck.find("*CLOAD, OP=NEW\n3, 1, 1\n3, 2, 0.25\n3, 3, -3\n6, 2, 0.25\n6, 3, -2\n"),
              std::string::npos)
        << deck;
}

TEST_F(DeckWriterTest, CalculixBendsTheCantileverDownUnderPositivePressure) {
    Project("[[support]]\ngroup = \"edge\"\nfix = [\"fixed\"]\n"
            "[[load_case]]\nid = 1\nindex = 1\npressure = [{ slab = 1, value = 0.002 }]\n"
            "[[load_case]]\nid = 2\nindex = 2\nself_weight = true\ng = 0.01\n");
    Deck();
    const auto steps = Solve();
    ASSERT_EQ(steps.size(), 2u);
    const double pressureTip = steps[0].at(3)[2];
    EXPECT_LT(pressureTip, 0.0) << "a positive pressure acts downwards";
    // Self weight rho g t = 2 * 0.01 * 0.1 = 0.002 per area: the same load as the pressure.
    EXPECT_TRUE(Near(pressureTip, steps[1].at(3)[2], 1e-12, 1e-6));
}

TEST_F(DeckWriterTest, CalculixTakesALineLoadAsTheSamePointLoadsAtItsEnds) {
    Project("[[support]]\ngroup = \"edge\"\nfix = [\"fixed\"]\n"
            "[[load_case]]\nid = 1\nindex = 1\n"
            "line_load = [{ group = \"free\", value = [0.0, 0.0, -0.01] }]\n"
            "[[load_case]]\nid = 2\nindex = 2\n"
            "point_load = [{ group = \"tip\", value = [0.0, 0.0, -0.005] },"
            " { group = \"corner\", value = [0.0, 0.0, -0.005] }]\n");
    Deck();
    const auto steps = Solve();
    ASSERT_EQ(steps.size(), 2u);
    for (int node : {3, 6}) {
        EXPECT_LT(steps[0].at(node)[2], 0.0);
        EXPECT_TRUE(Near(steps[0].at(node)[2], steps[1].at(node)[2], 1e-12, 1e-9))
            << "node " << node;
    }
}

TEST_F(DeckWriterTest, WhatTheDeckCannotBeWrittenWithoutIsNamed) {
    Project("[[load_case]]\nid = 1\nindex = 1\n",
            "[[slab]]\ntag = 1\nthickness = 0.1\nyoung = 1000.0\n");
    EXPECT_NE(ErrorOf().find("p.toml:1: slab 1 has no young and poisson"), std::string::npos)
        << ErrorOf();

    Project("[[load_case]]\nid = 1\nindex = 1\nself_weight = true\n",
            "[[slab]]\ntag = 1\nthickness = 0.1\nyoung = 1000.0\npoisson = 0.3\n");
    EXPECT_NE(ErrorOf().find("slab 1 has no density, which the self weight of load case 1 needs"),
              std::string::npos)
        << ErrorOf();

    Project("[[support]]\ngroup = \"columns\"\nfix = [\"uz\"]\n");
    const std::string unknown = ErrorOf();
    EXPECT_NE(unknown.find("names the group \"columns\", which is no physical curve or point"),
              std::string::npos)
        << unknown;
    EXPECT_NE(unknown.find("(it has \"tip\", \"corner\", \"edge\", \"free\")"), std::string::npos)
        << unknown;

    Project("[[load_case]]\nid = 1\nindex = 1\n"
            "line_load = [{ group = \"tip\", value = [0.0, 0.0, -1.0] }]\n");
    EXPECT_NE(ErrorOf().find("a physical point: a line load needs a curve"), std::string::npos)
        << ErrorOf();

    Project("[[load_case]]\nid = 1\nindex = 1\npressure = [{ slab = 1, value = 1.0 }]\n");
    try {
        Deck(slabadapt::ccx::InpFamily::PlaneStress);
        FAIL() << "a pressure in a plane-stress deck";
    } catch (const ImportError& e) {
        EXPECT_NE(std::string(e.what()).find("needs shell elements"), std::string::npos)
            << e.what();
    }
}

} // namespace
