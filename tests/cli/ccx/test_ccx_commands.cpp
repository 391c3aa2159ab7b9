// The command-line side of the CalculiX commands: import-ccx and export --inp, through the
// whole command line with its streams.

#include "cli/Commands.h"
#include "cli/ccx/StrintgFile.h"
#include "tests/support/ccx.h"
#include "tests/support/cli_main.h"

#include <sstream>
#include <string>
#include <vector>

namespace {

const char* kMsh = R"($MeshFormat
2.2 0 8
$EndMeshFormat
$PhysicalNames
2
1 5 "fixed"
2 1 "slab"
$EndPhysicalNames
$Nodes
4
1 0 0 0
2 1 0 0
3 1 1 0
4 0 1 0
$EndNodes
$Elements
3
1 3 2 1 1 1 2 3 4
2 1 2 5 4 4 1
3 1 2 5 4 1 2
$EndElements
)";

using Outcome = slabadapt::test::CommandOutcome;

Outcome Slabadapt(std::vector<std::string> args) {
    return slabadapt::test::RunSlabadapt(std::move(args));
}

void WriteProject(const ccxtest::TempDir& dir) {
    ccxtest::WriteText(dir / "p.msh", kMsh);
    ccxtest::WriteText(dir / "p.toml", "[[slab]]\ntag = 1\nthickness = 0.1\n"
                                       "[[load_case]]\nid = 1\nindex = 1\n");
}

} // namespace

TEST(CcxCommands, ExportInpThenImportRoundTrip) {
    ccxtest::TempDir dir;
    WriteProject(dir);
    const std::string part = (dir / "p_mesh.inp").string();
    const Outcome exported = Slabadapt({"export", (dir / "p").string(), "--inp", part});
    ASSERT_EQ(exported.code, 0) << exported.err;
    EXPECT_NE(exported.out.find("wrote " + part + " (CalculiX S3/S4 elements"), std::string::npos)
        << exported.out;
    const std::string text = ccxtest::ReadText(part);
    EXPECT_NE(text.find("*ELEMENT, TYPE=S4\n1, 1, 2, 3, 4\n"), std::string::npos) << text;
    EXPECT_NE(text.find("*NSET, NSET=FIXED\n1, 2, 4\n"), std::string::npos) << text;
    EXPECT_NE(text.find("*ELSET, ELSET=SLAB1, GENERATE\n1, 1, 1\n"), std::string::npos) << text;

    ccxtest::WriteText(dir / "p.inp", "*INCLUDE, INPUT=p_mesh.inp\n*MATERIAL, NAME=M\n*ELASTIC\n"
                                      "100, 0.25\n*SHELL SECTION, ELSET=SLAB1, MATERIAL=M\n0.1\n"
                                      "*BOUNDARY\nFIXED, 1, 6\n*STEP\n*STATIC\n*DLOAD\nEALL, P, 1\n"
                                      "*EL PRINT, ELSET=EALL\nS, E, COORD\n*END STEP\n");
    ccxtest::RunCcx(dir.path(), "p");
    const Outcome imported =
        Slabadapt({"import-ccx", (dir / "p").string(), (dir / "p.dat").string()});
    ASSERT_EQ(imported.code, 0) << imported.err;
    EXPECT_NE(imported.out.find("step 1 (time 1) -> load case 1 (index 1): "), std::string::npos)
        << imported.out;
    const auto table = slabadapt::ccx::ReadStrintg(dir / "p.STRINTG0001");
    ASSERT_EQ(table.size(), 1u);
    EXPECT_EQ(table[0].size(), 4u);
    EXPECT_NE(table[0][0].forces[0], 0.0);
}

TEST(CcxCommands, InpIsAnExportFormatBesideVtu) {
    ccxtest::TempDir dir;
    WriteProject(dir);
    const std::string file = (dir / "walls.inp").string();
    const Outcome o =
        Slabadapt({"export", (dir / "p").string(), "--inp", file, "--inp-type", "plane-stress"});
    ASSERT_EQ(o.code, 0) << o.err;
    EXPECT_NE(ccxtest::ReadText(file).find("*ELEMENT, TYPE=CPS4\n"), std::string::npos);
    // There is no command of its own for it.
    EXPECT_EQ(Slabadapt({"export-inp", (dir / "p").string(), file}).code,
              slabadapt::cli::kExitUsage);
    // The help of export names it.
    EXPECT_NE(Slabadapt({"help", "export"}).out.find("--inp-type"), std::string::npos);
}

TEST(CcxCommands, FailuresEndWithAnExitCodeAndAMessage) {
    ccxtest::TempDir dir;
    WriteProject(dir);
    ccxtest::WriteText(dir / "empty.dat", "\n");
    const Outcome empty =
        Slabadapt({"import-ccx", (dir / "p").string(), (dir / "empty.dat").string()});
    EXPECT_EQ(empty.code, slabadapt::cli::kExitDataError);
    EXPECT_NE(empty.err.find("slabadapt: "), std::string::npos) << empty.err;
    EXPECT_NE(empty.err.find("no *EL PRINT results"), std::string::npos) << empty.err;
    EXPECT_EQ(empty.out, "");

    const Outcome unwritable = Slabadapt(
        {"export", (dir / "p").string(), "--inp", (dir / "no" / "such" / "dir.inp").string()});
    EXPECT_EQ(unwritable.code, slabadapt::cli::kExitCannotWrite) << unwritable.err;
    EXPECT_NE(unwritable.err.find("slabadapt: "), std::string::npos) << unwritable.err;

    // Usage errors are CLI11's: a missing results file, an unknown family.
    const Outcome missing =
        Slabadapt({"import-ccx", (dir / "p").string(), (dir / "missing.dat").string()});
    EXPECT_EQ(missing.code, slabadapt::cli::kExitUsage);
    EXPECT_NE(missing.err.find("missing.dat"), std::string::npos) << missing.err;
    const Outcome family = Slabadapt(
        {"import-ccx", (dir / "p").string(), (dir / "empty.dat").string(), "--family", "walls"});
    EXPECT_EQ(family.code, slabadapt::cli::kExitUsage);
    EXPECT_NE(family.err.find("walls"), std::string::npos) << family.err;
}
