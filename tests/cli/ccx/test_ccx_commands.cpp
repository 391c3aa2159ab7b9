// The command-line side: import-ccx, and --inp on an existing export subcommand (or the
// export-inp fallback), parsed with CLI11 as the slabadapt command does.

#include "cli/ccx/CcxCommands.h"
#include "cli/ccx/StrintgFile.h"
#include "tests/cli/ccx/CcxTestSupport.h"

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

/// Parses argv with a fresh app; returns the exit code the command would end with.
int ParseArgs(CLI::App& app, std::vector<std::string> args) {
    std::vector<char*> argv;
    std::string name = "slabadapt";
    argv.push_back(name.data());
    for (auto& a : args)
        argv.push_back(a.data());
    try {
        app.parse(static_cast<int>(argv.size()), argv.data());
    } catch (const CLI::ParseError& e) {
        return app.exit(e);
    }
    return 0;
}

void WriteProject(const ccxtest::TempDir& dir) {
    ccxtest::WriteText(dir / "p.msh", kMsh);
    ccxtest::WriteText(dir / "p.toml", "[[slab]]\ntag = 1\nthickness = 0.1\n"
                                       "[[load_case]]\nid = 1\nindex = 1\n");
}

} // namespace

TEST(CcxCommands, ExportInpFallbackThenImportRoundTrip) {
    ccxtest::TempDir dir;
    WriteProject(dir);
    CLI::App app("test");
    RegisterCcxCommands(app);
    const std::string part = (dir / "p_mesh.inp").string();
    ASSERT_EQ(ParseArgs(app, {"export-inp", (dir / "p").string(), part}), 0);
    const std::string text = ccxtest::ReadText(part);
    EXPECT_NE(text.find("*ELEMENT, TYPE=S4\n1, 1, 2, 3, 4\n"), std::string::npos) << text;
    EXPECT_NE(text.find("*NSET, NSET=FIXED\n1, 2, 4\n"), std::string::npos) << text;
    EXPECT_NE(text.find("*ELSET, ELSET=SLAB1, GENERATE\n1, 1, 1\n"), std::string::npos) << text;

    ccxtest::WriteText(dir / "p.inp", "*INCLUDE, INPUT=p_mesh.inp\n*MATERIAL, NAME=M\n*ELASTIC\n"
                                      "100, 0.25\n*SHELL SECTION, ELSET=SLAB1, MATERIAL=M\n0.1\n"
                                      "*BOUNDARY\nFIXED, 1, 6\n*STEP\n*STATIC\n*DLOAD\nEALL, P, 1\n"
                                      "*EL PRINT, ELSET=EALL\nS, E, COORD\n*END STEP\n");
    ccxtest::RunCcx(dir.path(), "p");
    CLI::App app2("test");
    RegisterCcxCommands(app2);
    ASSERT_EQ(ParseArgs(app2, {"import-ccx", (dir / "p").string(), (dir / "p.dat").string()}), 0);
    const auto table = slabadapt::ccx::ReadStrintg(dir / "p.STRINTG0001");
    ASSERT_EQ(table.size(), 1u);
    EXPECT_EQ(table[0].size(), 4u);
    EXPECT_NE(table[0][0].forces[0], 0.0);
}

TEST(CcxCommands, InpIsAddedToAnExistingExportSubcommand) {
    ccxtest::TempDir dir;
    WriteProject(dir);
    CLI::App app("test");
    std::string project;
    std::string vtu;
    bool exportCallbackRan = false;
    auto* exp = app.add_subcommand("export", "export");
    exp->add_option("project", project)->required();
    exp->add_option("--vtu", vtu);
    exp->callback([&] { exportCallbackRan = true; });
    RegisterCcxCommands(app);
    EXPECT_THROW(app.get_subcommand("export-inp"), CLI::OptionNotFound);
    const std::string file = (dir / "walls.inp").string();
    ASSERT_EQ(ParseArgs(app, {"export", (dir / "p").string(), "--inp", file, "--inp-type",
                              "plane-stress"}),
              0);
    EXPECT_TRUE(exportCallbackRan);
    EXPECT_NE(ccxtest::ReadText(file).find("*ELEMENT, TYPE=CPS4\n"), std::string::npos);
}

TEST(CcxCommands, FailuresEndWithAnExitCodeAndAMessage) {
    ccxtest::TempDir dir;
    WriteProject(dir);
    ccxtest::WriteText(dir / "empty.dat", "\n");
    CLI::App app("test");
    RegisterCcxCommands(app);
    testing::internal::CaptureStderr();
    const int rc =
        ParseArgs(app, {"import-ccx", (dir / "p").string(), (dir / "empty.dat").string()});
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(rc, 65);
    EXPECT_NE(err.find("slabadapt: "), std::string::npos) << err;
    EXPECT_NE(err.find("no *EL PRINT results"), std::string::npos) << err;

    CLI::App app4("test");
    RegisterCcxCommands(app4);
    testing::internal::CaptureStderr();
    const int wrc = ParseArgs(
        app4, {"export-inp", (dir / "p").string(), (dir / "no" / "such" / "dir.inp").string()});
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(wrc, 74);

    // Usage errors are CLI11's: a missing results file, an unknown family.
    CLI::App app2("test");
    RegisterCcxCommands(app2);
    testing::internal::CaptureStderr();
    EXPECT_NE(ParseArgs(app2, {"import-ccx", (dir / "p").string(), (dir / "missing.dat").string()}),
              0);
    CLI::App app3("test");
    RegisterCcxCommands(app3);
    EXPECT_NE(ParseArgs(app3, {"import-ccx", (dir / "p").string(), (dir / "empty.dat").string(),
                               "--family", "walls"}),
              0);
    const std::string usage = testing::internal::GetCapturedStderr();
    EXPECT_NE(usage.find("missing.dat"), std::string::npos) << usage;
    EXPECT_NE(usage.find("walls"), std::string::npos) << usage;
}
