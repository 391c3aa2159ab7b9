// The slabadapt program as a user runs it: help, version, every command on the example project,
// and broken projects, which must end with a clear message and an exit code, never a crash.
#include "cli/Commands.h"
#include "cli/VtuExport.h"
#include "host/outcome/gar.h"
#include "tests/support/example_project.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <optional>

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

// The records of RFC 4180 CSV text (line breaks LF or CRLF); nothing when the text breaks its
// rules: a quote inside an unquoted field, anything but a separator after a closing quote, a
// quoted field left open.
std::optional<std::vector<std::vector<std::string>>> ParseCsv(const std::string& text) {
    std::vector<std::vector<std::string>> records;
    std::vector<std::string> record;
    std::string field;
    std::size_t i = 0;
    while (i < text.size()) {
        if (text[i] == '"') {
            ++i;
            while (true) {
                if (i >= text.size())
                    return std::nullopt;
                if (text[i] == '"') {
                    if (i + 1 < text.size() && text[i + 1] == '"') {
                        field += '"';
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                field += text[i++];
            }
        } else {
            while (i < text.size() && text[i] != ',' && text[i] != '\n' && text[i] != '\r') {
                if (text[i] == '"')
                    return std::nullopt;
                field += text[i++];
            }
        }
        record.push_back(std::move(field));
        field.clear();
        if (i >= text.size())
            return std::nullopt; // the last record ends with a line break
        if (text[i] == ',') {
            ++i;
            continue;
        }
        if (text[i] == '\r') {
            if (i + 1 >= text.size() || text[i + 1] != '\n')
                return std::nullopt;
            ++i;
        }
        if (text[i] != '\n')
            return std::nullopt;
        ++i;
        records.push_back(std::move(record));
        record.clear();
    }
    return records;
}

// Strict base64 (RFC 4648, padded); nothing for anything else.
std::optional<std::string> DecodeBase64(const std::string& text) {
    static const std::string digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    if (text.size() % 4 != 0)
        return std::nullopt;
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); i += 4) {
        std::uint32_t group = 0;
        int padding = 0;
        for (std::size_t k = 0; k < 4; ++k) {
            const char c = text[i + k];
            std::size_t value = 0;
            if (c == '=' && i + 4 == text.size() && k >= 2) {
                ++padding;
            } else {
                value = digits.find(c);
                if (value == std::string::npos || padding > 0)
                    return std::nullopt;
            }
            group = (group << 6) | static_cast<std::uint32_t>(value);
        }
        for (int k = 0; k < 3 - padding; ++k)
            bytes += static_cast<char>((group >> (16 - 8 * k)) & 0xFFu);
    }
    return bytes;
}

// A Float64 DataArray of a .vtu file the export wrote, chosen by an attribute it alone has
// (Name="..." or NumberOfComponents="3"), decoded from VTK's inline binary form: base64 of a
// little-endian UInt64 byte count followed by the little-endian values. Fails the test when the
// array is not in that form.
std::vector<double> VtuFloat64Array(const std::string& vtu, const std::string& attribute) {
    const auto at = vtu.find(attribute);
    if (at == std::string::npos) {
        ADD_FAILURE() << "no DataArray with " << attribute;
        return {};
    }
    const auto open = vtu.rfind("<DataArray ", at);
    const auto close = vtu.find('>', at);
    const std::string tag = vtu.substr(open, close - open + 1);
    EXPECT_NE(tag.find("type=\"Float64\""), std::string::npos) << tag;
    EXPECT_NE(tag.find("format=\"binary\""), std::string::npos) << tag;
    const auto end = vtu.find("</DataArray>", close);
    std::string text = vtu.substr(close + 1, end - close - 1);
    std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
    const auto bytes = DecodeBase64(text);
    if (!bytes || bytes->size() < 8) {
        ADD_FAILURE() << "not base64 with a header: " << text.substr(0, 80);
        return {};
    }
    auto word = [&](std::size_t offset) {
        std::uint64_t value = 0;
        for (int k = 7; k >= 0; --k)
            value = (value << 8) | static_cast<unsigned char>((*bytes)[offset + k]);
        return value;
    };
    const std::uint64_t count = word(0);
    EXPECT_EQ(count, bytes->size() - 8) << "the header gives the byte count of the values";
    EXPECT_EQ(count % 8, 0u);
    std::vector<double> values;
    for (std::size_t offset = 8; offset + 8 <= bytes->size(); offset += 8)
        values.push_back(std::bit_cast<double>(word(offset)));
    return values;
}

// Equal, NaN equal to NaN.
testing::AssertionResult SameValue(double expected, double actual) {
    if (std::isnan(expected) && std::isnan(actual))
        return testing::AssertionSuccess();
    if (std::isnan(expected) || std::isnan(actual))
        return testing::AssertionFailure() << "expected " << expected << ", got " << actual;
    return Near(expected, actual);
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

TEST(Cli, HelpIsACommandThatPrintsTheHelp) {
    const Outcome flag = Slabadapt("--help");
    const Outcome help = Slabadapt("help");
    ASSERT_TRUE(help.exited);
    EXPECT_EQ(help.code, 0) << help.err;
    EXPECT_EQ(help.out, flag.out);
    EXPECT_EQ(help.err, "");
    EXPECT_TRUE(Contains(help.out, "Usage: slabadapt [OPTIONS] SUBCOMMAND")) << help.out;
    EXPECT_FALSE(Contains(help.out + help.err, "A subcommand is required"));
    // The help of one command, as `slabadapt COMMAND --help` gives it.
    for (const char* command : {"run", "check", "results", "export", "help"}) {
        const Outcome one = Slabadapt(std::string("help ") + command);
        EXPECT_EQ(one.code, 0) << command << one.err;
        EXPECT_EQ(one.out, Slabadapt(std::string(command) + " --help").out) << command;
        EXPECT_TRUE(Contains(one.out, std::string("Usage: slabadapt ") + command)) << one.out;
    }
    const Outcome unknown = Slabadapt("help frobnicate");
    EXPECT_EQ(unknown.code, slabadapt::cli::kExitUsage);
    EXPECT_EQ(unknown.out, "");
    EXPECT_EQ(unknown.err, "slabadapt help: there is no command frobnicate\n"
                           "See `slabadapt --help`.\n");
}

TEST(Cli, WithoutACommandTheHelpGoesToStandardErrorWith64) {
    const Outcome o = Slabadapt("");
    ASSERT_TRUE(o.exited);
    EXPECT_EQ(o.code, slabadapt::cli::kExitUsage);
    EXPECT_EQ(o.out, "");
    EXPECT_EQ(o.err, Slabadapt("--help").out);
    EXPECT_FALSE(Contains(o.err, "A subcommand is required")) << o.err;
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
    const std::vector<double> nodal = VtuFloat64Array(text, "Name=\"nodal_size\"");
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

    // Per cell the stored columns, as `results` prints them; the points where the mesh has them.
    const auto records = ParseCsv(csv.out);
    ASSERT_TRUE(records.has_value());
    const char* names[] = {"global_error", "local_error", "error_density", "new_size"};
    for (std::size_t c = 0; c < 4; ++c) {
        const std::vector<double> cells =
            VtuFloat64Array(text, std::string("Name=\"") + names[c] + '"');
        ASSERT_EQ(cells.size(), 3531u) << names[c];
        for (std::size_t r = 1; r < records->size(); ++r) {
            const auto& record = (*records)[r];
            const std::size_t element = std::stoul(record[4]);
            ASSERT_TRUE(element >= 1 && element <= cells.size());
            EXPECT_TRUE(Near(std::stod(record[5 + c]), cells[element - 1])) << names[c] << element;
        }
    }
    const auto mesh = host::outcome::ReadMesh(p.string() + ".msh");
    const std::vector<double> points = VtuFloat64Array(text, "NumberOfComponents=\"3\"");
    ASSERT_EQ(points.size(), 3 * mesh.nodes.size());
    for (std::size_t n = 0; n < mesh.nodes.size(); ++n) {
        EXPECT_TRUE(Near(mesh.nodes[n].position.x, points[3 * n]));
        EXPECT_TRUE(Near(mesh.nodes[n].position.y, points[3 * n + 1]));
        EXPECT_TRUE(Near(mesh.nodes[n].position.z, points[3 * n + 2]));
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
    EXPECT_EQ(o.code, slabadapt::cli::kExitDataError);
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
    EXPECT_EQ(o.code, slabadapt::cli::kExitDataError);
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
    EXPECT_EQ(o.code, slabadapt::cli::kExitDataError);
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
    EXPECT_EQ(o.code, slabadapt::cli::kExitDataError);
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
    EXPECT_EQ(o.code, slabadapt::cli::kExitDataError);
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
    EXPECT_EQ(folder.code, slabadapt::cli::kExitDataError);
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

// --- what other programs read ----------------------------------------------------------------

TEST(Cli, CsvQuotesSlabNamesThatHoldCommasQuotesAndLineBreaks) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    std::string toml = ReadFile(p.string() + ".toml");
    for (const auto& [from, to] :
         {std::pair<std::string, std::string>{R"(name = "floor")", R"(name = "floor, \"north\"")"},
          {R"(name = "wall")", R"(name = "wall\nsouth")"},
          {R"(name = "balcony")", R"(name = "bal\r\ncony")"}}) {
        const auto at = toml.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        toml.replace(at, from.size(), to);
    }
    WriteFile(p.string() + ".toml", toml);
    ASSERT_EQ(Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 101").code, 0);

    const Outcome csv = Slabadapt("results " + Quote(p) + " --format csv");
    EXPECT_EQ(csv.code, 0) << csv.err;
    EXPECT_EQ(csv.out.rfind("slab,slab_name,result_case,row,element,global_error,local_error,"
                            "error_density,new_size\n1,\"floor, \"\"north\"\"\",1,0,1,",
                            0),
              0u)
        << csv.out.substr(0, 200);
    const auto records = ParseCsv(csv.out);
    ASSERT_TRUE(records.has_value()) << "not RFC 4180 CSV";
    ASSERT_EQ(records->size(), 3532u);
    std::map<std::string, std::size_t> rowsPerName;
    for (std::size_t r = 1; r < records->size(); ++r) {
        const auto& record = (*records)[r];
        ASSERT_EQ(record.size(), 9u) << r;
        ++rowsPerName[record[1]];
        for (std::size_t c = 5; c < 9; ++c)
            EXPECT_TRUE(std::isfinite(std::stod(record[c]))) << r << ' ' << record[c];
    }
    EXPECT_EQ(rowsPerName,
              (std::map<std::string, std::size_t>{
                  {"floor, \"north\"", 2888}, {"wall\nsouth", 530}, {"bal\r\ncony", 113}}));
    EXPECT_EQ((*records)[2889][0], "2");
    EXPECT_EQ((*records)[2889][4], "2889");

    // Python's csv module, strict, reads the same.
    WriteFile(dir / "r.csv", csv.out);
    const Outcome python = Shell(std::string(PYTHON_EXECUTABLE) +
                                 " -c 'import csv,sys; r=list(csv.reader(open(sys.argv[1], "
                                 "newline=\"\"), strict=True)); print(len(r), repr(r[1][1]), "
                                 "repr(r[2889][1]), repr(r[-1][1]))' " +
                                 Quote(dir / "r.csv"));
    EXPECT_EQ(python.code, 0) << python.err;
    EXPECT_EQ(python.out, "3532 'floor, \"north\"' 'wall\\nsouth' 'bal\\r\\ncony'\n");
}

TEST(Cli, CellsWithoutAStoredValueAreExportedAsNaN) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    ASSERT_EQ(Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 101").code, 0);
    // Take the balcony's result (slab 3) out of the store.
    {
        host::outcome::GarStore store(p.string() + ".GAR", false);
        std::size_t removed = 0;
        for (const auto& info : store.List())
            if (info.key.GetDsObject().GetID() == 3)
                removed += store.Remove(info.key) ? 1 : 0;
        ASSERT_EQ(removed, 1u);
    }
    const Outcome csv = Slabadapt("results " + Quote(p) + " --format csv");
    ASSERT_EQ(csv.code, 0);
    const auto records = ParseCsv(csv.out);
    ASSERT_TRUE(records.has_value());
    ASSERT_EQ(records->size(), 1u + 2888u + 530u);

    const fs::path vtu = dir / "floor.vtu";
    const Outcome exported = Slabadapt("export " + Quote(p) + " --vtu " + Quote(vtu));
    ASSERT_EQ(exported.code, 0) << exported.err;
    const std::string text = ReadFile(vtu);
    EXPECT_EQ(text.find("nan"), std::string::npos);
    const auto mesh = host::outcome::ReadMesh(p.string() + ".msh");
    const char* names[] = {"global_error", "local_error", "error_density", "new_size"};
    std::vector<std::vector<double>> cells;
    for (const char* name : names) {
        cells.push_back(VtuFloat64Array(text, std::string("Name=\"") + name + '"'));
        ASSERT_EQ(cells.back().size(), mesh.elements.size()) << name;
    }
    std::vector<double> expected(4 * mesh.elements.size(),
                                 std::numeric_limits<double>::quiet_NaN());
    for (std::size_t r = 1; r < records->size(); ++r)
        for (std::size_t c = 0; c < 4; ++c)
            expected[4 * (std::stoul((*records)[r][4]) - 1) + c] = std::stod((*records)[r][5 + c]);
    for (std::size_t e = 0; e < mesh.elements.size(); ++e) {
        for (std::size_t c = 0; c < 4; ++c) {
            EXPECT_EQ(std::isnan(cells[c][e]), mesh.elements[e].slab == 3) << names[c] << e;
            EXPECT_TRUE(SameValue(expected[4 * e + c], cells[c][e])) << names[c] << e;
        }
    }
    // A node of balcony elements only has no size; one away from the balcony has the mean.
    const std::vector<double> nodal = VtuFloat64Array(text, "Name=\"nodal_size\"");
    ASSERT_EQ(nodal.size(), mesh.nodes.size());
    std::vector<double> sum(mesh.nodes.size(), 0.0);
    std::vector<int> balcony(mesh.nodes.size(), 0), others(mesh.nodes.size(), 0);
    for (std::size_t e = 0; e < mesh.elements.size(); ++e)
        for (unsigned long n : mesh.elements[e].nodes) {
            (mesh.elements[e].slab == 3 ? balcony : others)[n - 1] += 1;
            if (mesh.elements[e].slab != 3)
                sum[n - 1] += cells[3][e];
        }
    std::size_t onlyBalcony = 0;
    for (std::size_t n = 0; n < mesh.nodes.size(); ++n) {
        if (others[n] == 0 && balcony[n] > 0) {
            ++onlyBalcony;
            EXPECT_TRUE(std::isnan(nodal[n])) << n;
        } else if (balcony[n] == 0 && others[n] > 0) {
            EXPECT_TRUE(Near(sum[n] / others[n], nodal[n])) << n;
        }
    }
    EXPECT_GT(onlyBalcony, 0u);

    // An independent reader (python: XML, base64, struct) finds the same NaN.
    const Outcome python = Shell(
        std::string(PYTHON_EXECUTABLE) +
        " -c 'import sys,base64,struct,math,xml.etree.ElementTree as E; r=E.parse(sys.argv[1])."
        "getroot(); print(r.get(\"header_type\"));\n"
        "for a in r.iter(\"DataArray\"):\n"
        "  if a.get(\"type\") == \"Float64\":\n"
        "    b = base64.b64decode(a.text.strip(), validate=True); n = struct.unpack(\"<Q\", "
        "b[:8])[0]\n"
        "    v = struct.unpack(\"<%dd\" % (n // 8), b[8:]); assert n == len(b) - 8\n"
        "    print(a.get(\"Name\"), a.get(\"format\"), len(v), sum(math.isnan(x) for x in v))' " +
        Quote(vtu));
    EXPECT_EQ(python.code, 0) << python.err;
    const auto lines = Lines(python.out);
    ASSERT_EQ(lines.size(), 7u) << python.out;
    EXPECT_EQ(lines[0], "UInt64");
    EXPECT_EQ(lines[1].rfind("nodal_size binary 2206 ", 0), 0u) << lines[1];
    for (std::size_t c = 0; c < 4; ++c)
        EXPECT_EQ(lines[2 + c], std::string(names[c]) + " binary 3531 113");
    EXPECT_EQ(lines[6], "None binary 6618 0");
}

TEST(Cli, VtuArraysKeepEveryValueExactly) {
    // Array lengths that need no, one and two padding characters in base64, and the empty mesh.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double tiny = std::numeric_limits<double>::denorm_min();
    host::outcome::Mesh twoCells;
    for (const auto& [x, y] : {std::pair{0.0, 0.0}, {1.0, 0.0}, {1.0, 1.0}, {0.0, 1.0}, {2.0, 0.5}})
        twoCells.nodes.push_back({0, CKQPoint3D(x, y, -0.0)});
    twoCells.elements.push_back({1, 3, {1, 2, 3, 4}, 1});
    twoCells.elements.push_back({2, 2, {2, 5, 3}, 2});
    host::outcome::Mesh oneCell;
    for (const auto& [x, y] : {std::pair{0.1, 0.2}, {1e300, -1e-300}, {0.0, 1.0}})
        oneCell.nodes.push_back({0, CKQPoint3D(x, y, 1.0 / 3.0)});
    oneCell.elements.push_back({1, 2, {1, 2, 3}, 1});
    const host::outcome::Mesh empty;

    struct Case {
        const host::outcome::Mesh* mesh;
        std::vector<std::array<double, 4>> columns;
        std::vector<double> nodal;
    };
    for (const Case& k :
         {Case{&twoCells,
               {{0.25, nan, tiny, -0.0}, {nan, 1e-17, 3.5, 0.1}},
               {0.1, nan, 0.2, 0.3, nan}},
          Case{&oneCell, {{nan, nan, nan, nan}}, {nan, 1.0 / 7.0, 2.0}}, Case{&empty, {}, {}}}) {
        TempDir dir;
        const fs::path vtu = dir / "f.vtu";
        slabadapt::cli::WriteVtu(vtu, *k.mesh, k.columns, k.nodal);
        const std::string text = ReadFile(vtu);
        EXPECT_NE(text.find("<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" "
                            "byte_order=\"LittleEndian\" header_type=\"UInt64\">"),
                  std::string::npos);
        const char* names[] = {"global_error", "local_error", "error_density", "new_size"};
        for (std::size_t c = 0; c < 4; ++c) {
            const auto cells = VtuFloat64Array(text, std::string("Name=\"") + names[c] + '"');
            ASSERT_EQ(cells.size(), k.columns.size());
            for (std::size_t e = 0; e < cells.size(); ++e)
                EXPECT_EQ(std::bit_cast<std::uint64_t>(cells[e]),
                          std::bit_cast<std::uint64_t>(k.columns[e][c]))
                    << names[c] << e;
        }
        const auto nodal = VtuFloat64Array(text, "Name=\"nodal_size\"");
        ASSERT_EQ(nodal.size(), k.nodal.size());
        for (std::size_t n = 0; n < nodal.size(); ++n)
            EXPECT_EQ(std::bit_cast<std::uint64_t>(nodal[n]),
                      std::bit_cast<std::uint64_t>(k.nodal[n]));
        const auto points = VtuFloat64Array(text, "NumberOfComponents=\"3\"");
        ASSERT_EQ(points.size(), 3 * k.mesh->nodes.size());
        for (std::size_t n = 0; n < k.mesh->nodes.size(); ++n) {
            const CKQPoint3D& at = k.mesh->nodes[n].position;
            EXPECT_EQ(std::bit_cast<std::uint64_t>(points[3 * n]),
                      std::bit_cast<std::uint64_t>(at.x));
            EXPECT_EQ(std::bit_cast<std::uint64_t>(points[3 * n + 1]),
                      std::bit_cast<std::uint64_t>(at.y));
            EXPECT_EQ(std::bit_cast<std::uint64_t>(points[3 * n + 2]),
                      std::bit_cast<std::uint64_t>(at.z));
        }
        // Still well-formed XML.
        const Outcome xml = Shell(
            std::string(PYTHON_EXECUTABLE) +
            " -c 'import sys,xml.etree.ElementTree as E; E.parse(sys.argv[1])' " + Quote(vtu));
        EXPECT_EQ(xml.code, 0) << xml.err;
    }
}

TEST(Cli, AStoreTheUserMayOnlyReadIsReadWhereItIs) {
    TempDir dir;
    const fs::path p = CopyExample(dir.path());
    ASSERT_EQ(Slabadapt("run " + Quote(p) + " --target 0.05 --load-case 101").code, 0);
    const fs::path gar = p.string() + ".GAR";
    const fs::path out = dir / "out";
    fs::create_directory(out);
    fs::permissions(out, fs::perms::all);
    // A copy of the program that the other user can reach even when the build folder lies
    // under a folder closed to others (a clone in /root, say).
    const fs::path program = dir / "slabadapt";
    fs::copy_file(SLABADAPT_EXECUTABLE, program);
    fs::permissions(program, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                 fs::perms::others_read | fs::perms::others_exec);
    fs::permissions(gar, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    struct Writable { // again at the end, so that the folder can be removed
        fs::path folder;
        ~Writable() {
            std::error_code ec;
            fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, ec);
        }
    } writable{dir.path()};
    fs::permissions(dir.path(), fs::perms::owner_read | fs::perms::owner_exec |
                                    fs::perms::group_read | fs::perms::group_exec |
                                    fs::perms::others_read | fs::perms::others_exec);
    // root may write anything: run as nobody then.
    const std::string as =
        ::geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
    EXPECT_NE(Shell(as + "test -w " + Quote(gar)).code, 0) << "the store is writable after all";
    const auto before = fs::last_write_time(gar);
    std::vector<std::string> entries;
    for (const auto& entry : fs::directory_iterator(dir.path()))
        entries.push_back(entry.path().filename().string());
    std::sort(entries.begin(), entries.end());

    const Outcome csv = Shell(as + Quote(program) + " results " + Quote(p) + " --format csv");
    EXPECT_EQ(csv.code, 0) << csv.err;
    EXPECT_EQ(csv.err, "");
    EXPECT_EQ(Lines(csv.out).size(), 3532u);
    const Outcome exported =
        Shell(as + Quote(program) + " export " + Quote(p) + " --vtu " + Quote(out / "f.vtu"));
    EXPECT_EQ(exported.code, 0) << exported.err;
    EXPECT_EQ(VtuFloat64Array(ReadFile(out / "f.vtu"), "Name=\"new_size\"").size(), 3531u);

    // Nothing was written beside it.
    std::vector<std::string> after;
    for (const auto& entry : fs::directory_iterator(dir.path()))
        after.push_back(entry.path().filename().string());
    std::sort(after.begin(), after.end());
    EXPECT_EQ(after, entries);
    EXPECT_EQ(fs::last_write_time(gar), before);
}
