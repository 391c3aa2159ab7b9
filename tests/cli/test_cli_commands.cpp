// The slabadapt program as a user runs it: help, version, every command on the example project,
// and broken projects, which must end with a clear message and an exit code, never a crash.
#include "cli/Commands.h"
#include "tests/e2e/project_fixture.h"

#include <gtest/gtest.h>

using namespace fixture;

namespace {

Outcome Slabadapt(const std::string& arguments) {
    return Shell(std::string("'") + SLABADAPT_EXECUTABLE + "' " + arguments);
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Whether python's json module reads the text.
bool IsJson(const std::string& text, const fs::path& scratch) {
    WriteFile(scratch, text);
    return Shell(std::string(PYTHON_EXECUTABLE) +
                 " -c 'import json,sys; json.load(open(sys.argv[1]))' " + Quote(scratch))
               .code == 0;
}

} // namespace

// --- the command line ------------------------------------------------------------------------

TEST(Cli, HelpListsTheCommandsWithExamples) {
    const Outcome o = Slabadapt("--help");
    ASSERT_TRUE(o.exited);
    EXPECT_EQ(o.code, 0);
    for (const char* part : {"run", "check", "results", "export",
                             "Examples:", "slabadapt run examples/floor/floor --target 0.05"})
        EXPECT_TRUE(Contains(o.out, part)) << part << "\n" << o.out;
}

TEST(Cli, EveryCommandHasHelpWithAnExample) {
    for (const char* command : {"run", "check", "results", "export"}) {
        const Outcome o = Slabadapt(std::string(command) + " --help");
        EXPECT_EQ(o.code, 0) << command;
        EXPECT_TRUE(Contains(o.out, "Example:")) << command << "\n" << o.out;
        EXPECT_TRUE(Contains(o.out, std::string("slabadapt ") + command)) << command;
    }
}

TEST(Cli, VersionIsTheModulesVersion) {
    const Outcome o = Slabadapt("--version");
    EXPECT_EQ(o.code, 0);
    EXPECT_EQ(o.out, "slabadapt 0.1.0\n");
}

TEST(Cli, UsageErrorsExitWith64) {
    EXPECT_EQ(Slabadapt("").code, slabadapt::cli::kExitUsage);
    EXPECT_EQ(Slabadapt("frobnicate").code, slabadapt::cli::kExitUsage);
    EXPECT_EQ(Slabadapt("run p --load-case 1").code, slabadapt::cli::kExitUsage); // no target
    EXPECT_EQ(Slabadapt("run p --target 0.05").code, slabadapt::cli::kExitUsage); // no load case
    const Outcome percent = Slabadapt("run p --target 5 --load-case 1");
    EXPECT_EQ(percent.code, slabadapt::cli::kExitUsage);
    EXPECT_TRUE(Contains(percent.err, "0.05 means 5 %")) << percent.err;
    EXPECT_EQ(Slabadapt("results p --format xml").code, slabadapt::cli::kExitUsage);
}

// --- the example -------------------------------------------------------------------------------

TEST(Cli, RunOnTheExample) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    const Outcome o =
        Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 101 --load-case 102");
    ASSERT_TRUE(o.exited);
    EXPECT_EQ(o.code, 0) << o.out << o.err;
    for (const std::string& part :
         {std::string("adaptivity run on ") + p.string(),
          std::string("target 5 %, load cases 101, 102"),
          std::string("check: 3531 elements (2888 triangles, 643 quadrilaterals) on 3 slabs"),
          std::string("result: 0 Success"),
          std::string("global relative error: 3.51 % (target 5 %): within the target"),
          std::string("   1  floor             2888"), std::string("   2  wall               530"),
          std::string("   3  balcony            113"), std::string("files written:"),
          p.string() + ".GAR", p.string() + ".refine.pos", std::string("time: ")})
        EXPECT_TRUE(Contains(o.out, part)) << part << "\n" << o.out;
    EXPECT_TRUE(fs::exists(p.string() + ".GAR"));
    EXPECT_TRUE(fs::exists(p.string() + ".refine.pos"));
}

TEST(Cli, RunAsJson) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    const Outcome o =
        Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 101 --load-case 102 --json");
    EXPECT_EQ(o.code, 0) << o.err;
    EXPECT_TRUE(IsJson(o.out, dir / "out.json")) << o.out;
    for (const char* part :
         {"\"result_code\": 0", "\"result\": \"Success\"", "\"within_target\": true",
          "\"name\": \"balcony\"", "\"load_cases\": [101, 102]"})
        EXPECT_TRUE(Contains(o.out, part)) << part << "\n" << o.out;
}

TEST(Cli, CheckResultsAndExportOnTheExample) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    const Outcome check = Slabadapt("check " + Quote(p));
    EXPECT_EQ(check.code, 0);
    EXPECT_TRUE(Contains(check.out, "2 load cases: no problems")) << check.out;
    const Outcome checkJson = Slabadapt("check " + Quote(p) + " --load-case 102 --json");
    EXPECT_EQ(checkJson.code, 0);
    EXPECT_TRUE(IsJson(checkJson.out, dir / "check.json")) << checkJson.out;

    // Before a run there is nothing to print or export.
    const Outcome none = Slabadapt("results " + Quote(p));
    EXPECT_EQ(none.code, slabadapt::cli::kExitNoInput);
    EXPECT_TRUE(Contains(none.err, "slabadapt run")) << none.err;

    ASSERT_EQ(Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 101 --load-case 102").code,
              0);

    const Outcome table = Slabadapt("results " + Quote(p));
    EXPECT_EQ(table.code, 0);
    EXPECT_TRUE(Contains(table.out, "3 adaptivity results, 3531 rows")) << table.out.substr(0, 600);
    EXPECT_TRUE(Contains(table.out, "local error   the element's error over its own norm"));

    const Outcome csv = Slabadapt("results " + Quote(p) + " --format csv");
    EXPECT_EQ(csv.code, 0);
    const auto rows = Lines(csv.out);
    ASSERT_EQ(rows.size(), 3532u);
    EXPECT_EQ(
        rows[0],
        "slab,slab_name,result_case,row,element,global_error,local_error,error_density,new_size");
    EXPECT_EQ(rows[1].rfind("1,floor,1,0,1,", 0), 0u) << rows[1];
    EXPECT_EQ(rows.back().rfind("3,balcony,1,112,3531,", 0), 0u) << rows.back();

    const Outcome json = Slabadapt("results " + Quote(p) + " --format json");
    EXPECT_EQ(json.code, 0);
    EXPECT_TRUE(IsJson(json.out, dir / "results.json"));

    const fs::path vtu = dir / "floor.vtu";
    const Outcome exported = Slabadapt("export " + Quote(p) + " --vtu " + Quote(vtu));
    EXPECT_EQ(exported.code, 0) << exported.err;
    EXPECT_TRUE(Contains(exported.out, "3531 cells, 2206 points")) << exported.out;
    // A reader of XML takes it, and it holds what ParaView needs.
    const Outcome xml =
        Shell(std::string(PYTHON_EXECUTABLE) +
              " -c 'import sys,xml.etree.ElementTree as E; r=E.parse(sys.argv[1]).getroot();"
              " p=r.find(\"UnstructuredGrid/Piece\");"
              " print(p.get(\"NumberOfPoints\"), p.get(\"NumberOfCells\"),"
              " sorted(a.get(\"Name\") for a in p.iter(\"DataArray\") if a.get(\"Name\")))' " +
              Quote(vtu));
    EXPECT_EQ(xml.code, 0) << xml.err;
    EXPECT_EQ(xml.out, "2206 3531 ['connectivity', 'error_density', 'global_error', 'local_error', "
                       "'new_size', 'nodal_size', 'offsets', 'slab', 'types']\n");

    // The nodal sizes exported are the ones the run handed to the mesher.
    const std::string text = ReadFile(vtu);
    const auto begin = text.find('\n', text.find("Name=\"nodal_size\"")) + 1;
    std::istringstream in(text.substr(begin, text.find("</DataArray>", begin) - begin));
    std::vector<double> nodal;
    for (double v; in >> v;)
        nodal.push_back(v);
    ASSERT_EQ(nodal.size(), 2206u);
    const auto pos = ReadPos(p.string() + ".refine.pos");
    const auto connectivity = text.substr(text.find("Name=\"connectivity\""));
    std::istringstream cells(connectivity.substr(connectivity.find('\n') + 1));
    ASSERT_EQ(pos.size(), 3531u);
    for (const PosEntry& e : pos)
        for (double value : e.values) {
            long node = -1;
            cells >> node;
            ASSERT_GE(node, 0);
            EXPECT_TRUE(Near(value, nodal[static_cast<std::size_t>(node)]));
        }

    const Outcome noFormat = Slabadapt("export " + Quote(p));
    EXPECT_EQ(noFormat.code, slabadapt::cli::kExitUsage);
    EXPECT_TRUE(Contains(noFormat.err, "--vtu FILE")) << noFormat.err;
}

// --- broken projects ---------------------------------------------------------------------------

TEST(Cli, AMissingStrintgFileStopsTheRunWithAClearMessage) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    fs::remove(p.string() + ".STRINTG0002");
    const Outcome o =
        Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 101 --load-case 102");
    ASSERT_TRUE(o.exited);
    EXPECT_EQ(o.code, slabadapt::cli::kExitCheckFailed);
    EXPECT_TRUE(Contains(o.err, p.string() + ".STRINTG0002: error: cannot be opened")) << o.err;
    EXPECT_TRUE(Contains(o.err, "nothing was run")) << o.err;
    EXPECT_FALSE(fs::exists(p.string() + ".GAR"));
}

TEST(Cli, AMismatchedElementCountStopsTheRunWithAClearMessage) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    auto lines = Lines(ReadFile(p.string() + ".STRINTG0001"));
    lines.resize(lines.size() - 4); // the last element, a quadrilateral of the balcony
    WriteLines(p.string() + ".STRINTG0001", lines);
    const Outcome o =
        Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 101 --load-case 102");
    ASSERT_TRUE(o.exited);
    EXPECT_EQ(o.code, slabadapt::cli::kExitCheckFailed);
    EXPECT_TRUE(Contains(o.err, "floor.STRINTG0001: error: lists 3530 elements, the mesh has 3531"))
        << o.err;

    // Run anyway: the estimator's Init fails on the missing element once it has copied the
    // nodes, and the estimator then cannot be shut down; the program says so and exits with 70.
    const Outcome forced =
        Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 101 --load-case 102 --no-check");
    ASSERT_TRUE(forced.exited) << "ended by a signal" << forced.err;
    EXPECT_EQ(forced.code, slabadapt::cli::kExitInternal) << forced.out << forced.err;
    EXPECT_TRUE(Contains(forced.err, "slabadapt: the estimator stopped on a model it cannot take "
                                     "and could not be shut down cleanly; run `slabadapt check` "
                                     "on the project\n"))
        << forced.err;
    EXPECT_FALSE(fs::exists(p.string() + ".refine.pos"));
}

TEST(Cli, ANodeOf70ElementsStopsTheRunWithAClearMessage) {
    TempDir dir;
    const fs::path p = MakeFanProject(dir.path(), 70);
    const Outcome o = Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 1");
    ASSERT_TRUE(o.exited);
    EXPECT_EQ(o.code, slabadapt::cli::kExitCheckFailed);
    EXPECT_TRUE(Contains(o.err, "fan.msh: error: node 1 (Gmsh node 1) belongs to 70 elements: the "
                                "estimator takes at most 64"))
        << o.err;

    // Run anyway: the estimator refuses the node after copying the mesh and cannot then be
    // shut down; the program says so in one line and exits with 70, not by a signal.
    for (const char* json : {"", " --json"}) {
        const Outcome forced =
            Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 1" + " --no-check" + json);
        ASSERT_TRUE(forced.exited) << "ended by a signal" << forced.err;
        EXPECT_EQ(forced.code, slabadapt::cli::kExitInternal) << forced.out << forced.err;
        EXPECT_TRUE(Contains(forced.err,
                             "\nslabadapt: the estimator stopped on a model it cannot take and "
                             "could not be shut down cleanly; run `slabadapt check` on the "
                             "project\n"))
            << forced.err;
        EXPECT_FALSE(fs::exists(p.string() + ".refine.pos"));
    }
}

TEST(Cli, AnUnknownLoadCaseStopsTheRun) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    const Outcome o = Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 103 --json");
    EXPECT_EQ(o.code, slabadapt::cli::kExitCheckFailed);
    EXPECT_TRUE(Contains(o.err, "load case 103 is not defined (defined: 101, 102)")) << o.err;
    EXPECT_TRUE(IsJson(o.out, dir / "o.json")) << o.out;
    EXPECT_TRUE(Contains(o.out, "\"result_code\": null")) << o.out;
    // Run anyway: the module skips the unknown load case and has nothing to estimate.
    const Outcome forced =
        Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 103 --no-check");
    EXPECT_EQ(forced.code, 2);
    EXPECT_TRUE(Contains(forced.out, "result: 2 MeshDataPreparationFailed")) << forced.out;
}

TEST(Cli, AProjectWithoutAMeshIsReportedNotRun) {
    TempDir dir;
    const Outcome o = Slabadapt("run " + Quote(dir / "nothing") + " --target 0.05 --load-case 1");
    ASSERT_TRUE(o.exited);
    EXPECT_EQ(o.code, slabadapt::cli::kExitCheckFailed);
    EXPECT_TRUE(Contains(o.err, "nothing.msh")) << o.err;
    const Outcome forced =
        Slabadapt("run " + Quote(dir / "nothing") + " --target 0.05 --load-case 1 --no-check");
    EXPECT_EQ(forced.code, 1);
    EXPECT_TRUE(Contains(forced.out, "result: 1 ResultsAccessInitFailed")) << forced.out;
}

TEST(Cli, PatchProjectRunsWithItsOwnLoadCase) {
    TempDir dir;
    const fs::path p = MakePatchProject(dir.path());
    const Outcome o = Slabadapt("run " + Quote(p) +
                                " --target 0.1 --load-case 7 --solver-type 1 --source-flag 3");
    EXPECT_EQ(o.code, 0) << o.out << o.err;
    EXPECT_TRUE(Contains(o.out, "global relative error: 0.00 % (target 10 %): within the target"))
        << o.out;
}

// --- what users get wrong, and what they are told -------------------------------------------

TEST(Cli, ResultsAndExportBeforeAnyRunSayThatThereIsNoStoreYet) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    for (const std::string& command :
         {"results " + Quote(p), "export " + Quote(p) + " --vtu " + Quote(dir / "f.vtu")}) {
        const Outcome o = Slabadapt(command);
        EXPECT_EQ(o.code, slabadapt::cli::kExitNoInput) << command;
        EXPECT_EQ(o.err, "slabadapt: " + p.string() +
                             ".GAR does not exist: the project has no stored results yet "
                             "(`slabadapt run` writes them)\n")
            << command;
    }
}

TEST(Cli, AProjectNamedByOneOfItsFilesIsTaken) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    for (const char* suffix : {".msh", ".toml", ".STRINTG0002"}) {
        const Outcome o = Slabadapt("check " + Quote(p.string() + suffix));
        EXPECT_EQ(o.code, 0) << suffix << o.err;
        EXPECT_EQ(o.err, "slabadapt: taking the project " + p.string() +
                             " (a project is named by the path of its files without extension)\n");
        EXPECT_TRUE(Contains(o.out, "check of " + p.string() + ": 3531 elements")) << o.out;
    }
    // A folder: the projects in it are named.
    const Outcome folder = Slabadapt("check " + Quote(dir.path()));
    EXPECT_EQ(folder.code, slabadapt::cli::kExitCheckFailed);
    EXPECT_TRUE(Contains(folder.err, "is a folder; a project is named by the path of its files "
                                     "without extension, for example " +
                                         p.string() + "\n"))
        << folder.err;
}

TEST(Cli, ExportSaysWhyItCannotWrite) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    ASSERT_EQ(Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 101").code, 0);
    const fs::path missing = dir / "no such folder" / "f.vtu";
    const Outcome noFolder = Slabadapt("export " + Quote(p) + " --vtu " + Quote(missing));
    EXPECT_EQ(noFolder.code, slabadapt::cli::kExitCannotWrite);
    EXPECT_EQ(noFolder.err, "slabadapt: cannot write " + missing.string() + ": the folder " +
                                missing.parent_path().string() + " does not exist\n");
    const Outcome folder = Slabadapt("export " + Quote(p) + " --vtu " + Quote(dir.path()));
    EXPECT_EQ(folder.code, slabadapt::cli::kExitCannotWrite);
    EXPECT_TRUE(Contains(folder.err, ": it is a folder, not a file\n")) << folder.err;
    const Outcome empty = Slabadapt("export " + Quote(p) + " --vtu ''");
    EXPECT_EQ(empty.code, slabadapt::cli::kExitUsage);
    EXPECT_EQ(empty.err, "slabadapt: --vtu needs the name of the file to write\n");
}

TEST(Cli, ARunThatCannotWriteTheSizeFieldSaysWhyAndDoesNotListIt) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    fs::create_directory(p.string() + ".refine.pos"); // made just before the run
    const Outcome o = Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 101");
    EXPECT_EQ(o.code, 6) << o.out << o.err;
    EXPECT_TRUE(Contains(o.out, "result: 6 WriteMeshRefinementFailed")) << o.out;
    EXPECT_TRUE(Contains(o.out, "files written:\n  " + p.string() + ".GAR  (")) << o.out;
    EXPECT_FALSE(Contains(o.out, ".refine.pos")) << o.out;
    EXPECT_TRUE(Contains(o.err, "slabadapt: the run ended with result 6 "
                                "(WriteMeshRefinementFailed): " +
                                    p.string() + ".refine.pos: it is a folder, not a file\n"))
        << o.err;
}

TEST(Cli, LoadCasesMayBeGivenAsAList) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    const Outcome o = Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 101,102");
    EXPECT_EQ(o.code, 0) << o.err;
    EXPECT_TRUE(Contains(o.out, "target 5 %, load cases 101, 102")) << o.out;
    EXPECT_TRUE(Contains(o.out, "global relative error: 3.51 %")) << o.out;
}

TEST(Cli, UsageErrorsNameTheCommandAndItsHelp) {
    const Outcome o = Slabadapt("run p --target 0.05 --load-case abc");
    EXPECT_EQ(o.code, slabadapt::cli::kExitUsage);
    EXPECT_EQ(o.err, "slabadapt run: Could not convert: --load-case = abc\n"
                     "See `slabadapt run --help`.\n");
    const Outcome top = Slabadapt("frobnicate");
    EXPECT_EQ(top.code, slabadapt::cli::kExitUsage);
    EXPECT_TRUE(Contains(top.err, "slabadapt: ")) << top.err;
    EXPECT_TRUE(Contains(top.err, "See `slabadapt --help`.")) << top.err;
}
