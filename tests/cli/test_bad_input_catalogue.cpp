// The bad-input catalogue: what a hostile or unlucky user hands the command, one case a row,
// run with the real program on a copy of the floor example that has results from an earlier
// run. Each row says what the command must answer (exit code, a pattern of its message) and
// whether the earlier results must stay as they were. No case may crash, hang or exhaust
// memory; docs/reliability.md lists the rows with the promise each pins.
#include "tests/support/example_project.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <regex>

namespace {

namespace fs = std::filesystem;
using fixture::ReadFile;
using fixture::WriteFile;

struct BadInput {
    const char* name;
    const char* promise; // what the case pins, as docs/reliability.md says it
    std::function<void(const fs::path& project)> prepare;
    std::string args; // after `slabadapt`; {P} is the project, {D} its folder
    int exitCode;
    const char* message; // an ECMAScript pattern the standard error (or output) must contain
    bool resultsKept;    // P.GAR and P.refine.pos must be byte for byte as before
};

void PrintTo(const BadInput& c, std::ostream* os) {
    *os << c.name;
}

std::string P(const fs::path& project, const char* suffix) {
    return project.string() + suffix;
}

// Replaces the lines of a file for which `change` answers something else than the line.
void EditLines(const fs::path& file, const std::function<std::string(const std::string&)>& change) {
    std::vector<std::string> lines = fixture::Lines(ReadFile(file));
    for (std::string& line : lines)
        line = change(line);
    fixture::WriteLines(file, lines);
}

// The first record line of element 1 with its first value field replaced by `field`.
void SetFirstValue(const fs::path& project, const std::string& field) {
    bool done = false;
    EditLines(P(project, ".STRINTG0001"), [&](const std::string& line) {
        if (done || line.size() < 31 || line.rfind("       1       1", 0) != 0)
            return line;
        done = true;
        return line.substr(0, 16) + field + line.substr(31);
    });
}

// Runs SQL on a store with SQLite's own shell.
void Sql(const std::string& gar, const std::string& sql) {
    const auto run = fixture::Shell("sqlite3 " + fixture::Quote(gar) + " " + fixture::Quote(sql));
    ASSERT_EQ(run.code, 0) << sql << "\n" << run.err;
}

void MakeFifo(const fs::path& file) {
    fs::remove(file);
    ASSERT_EQ(::mkfifo(file.c_str(), 0644), 0);
}

void MakeFolder(const fs::path& file) {
    fs::remove(file);
    fs::create_directory(file);
}

const char* kRun = "run {P} --target 0.05 --load-case 101";
const char* kRunNoCheck = "run {P} --target 0.05 --load-case 101 --no-check";

constexpr int kUsage = 64, kData = 65, kNoInput = 66, kCannotWrite = 74;

const std::vector<BadInput>& Catalogue() {
    static const std::vector<BadInput> cases = {
        // ---- the mesh, P.msh
        {"MeshMissing", "a missing mesh is named, nothing is run",
         [](const fs::path& p) { fs::remove(P(p, ".msh")); }, kRun, kData,
         "floor\\.msh: error: .*does not exist", true},
        {"MeshEmpty", "an empty mesh file is refused with its name",
         [](const fs::path& p) { WriteFile(P(p, ".msh"), ""); }, kRun, kData, "floor\\.msh", true},
        {"MeshTruncatedInNodes", "a mesh cut off inside $Nodes names the file",
         [](const fs::path& p) {
             const std::string text = ReadFile(P(p, ".msh"));
             WriteFile(P(p, ".msh"), text.substr(0, text.find("$EndNodes") / 2));
         },
         kRun, kData, "floor\\.msh", true},
        {"Msh22HugeTagCount", "an MSH 2.2 element with a huge tag count is refused, no crash",
         [](const fs::path& p) {
             WriteFile(P(p, ".msh"), "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n3\n1 0 0 0\n"
                                     "2 1 0 0\n3 0 1 0\n$EndNodes\n$Elements\n1\n"
                                     "1 2 2147483647 1 1 2 3\n$EndElements\n");
         },
         kRun, kData, "floor\\.msh:[0-9]+", true},
        {"Msh41HugePhysicalCount", "an MSH 4.1 entity with a huge physical count is refused",
         [](const fs::path& p) {
             WriteFile(P(p, ".msh"), "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Entities\n"
                                     "0 0 1 0\n1 0 0 0 1 1 0 99999999999 1 0\n$EndEntities\n");
         },
         kRun, kData, "floor\\.msh:[0-9]+", true},
        {"MshNodeBlockOf1e12", "a node block announcing 10^12 nodes in 80 bytes is no allocation",
         [](const fs::path& p) {
             WriteFile(P(p, ".msh"), "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Nodes\n"
                                     "1 1000000000000 1 1000000000000\n2 1 0 1000000000000\n");
         },
         kRun, kData, "floor\\.msh", true},
        {"MshUnknownNode", "an element on a node that does not exist is named",
         [](const fs::path& p) {
             WriteFile(P(p, ".msh"), "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n3\n1 0 0 0\n"
                                     "2 1 0 0\n3 0 1 0\n$EndNodes\n$Elements\n1\n"
                                     "1 2 2 1 1 1 2 9\n$EndElements\n");
         },
         kRun, kData, "floor\\.msh.*9", true},
        {"MshBinary", "a binary MSH file is refused with a word on how to write ASCII",
         [](const fs::path& p) {
             WriteFile(P(p, ".msh"), "$MeshFormat\n4.1 1 8\n\x01\0\0\0\n$EndMeshFormat\n");
         },
         kRun, kData, "floor\\.msh.*(binary|ASCII)", true},
        {"MshVersion3", "an MSH version the reader does not know is named",
         [](const fs::path& p) {
             WriteFile(P(p, ".msh"), "$MeshFormat\n3.0 0 8\n$EndMeshFormat\n");
         },
         kRun, kData, "floor\\.msh.*3", true},
        {"MshNanCoordinate", "a coordinate that is not a number is refused",
         [](const fs::path& p) {
             WriteFile(P(p, ".msh"), "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n3\n1 nan 0 0\n"
                                     "2 1 0 0\n3 0 1 0\n$EndNodes\n$Elements\n1\n"
                                     "1 2 2 1 1 1 2 3\n$EndElements\n");
         },
         kRun, kData, "floor\\.msh", true},
        {"MshIsAFolder", "a folder where the mesh belongs is refused",
         [](const fs::path& p) { MakeFolder(P(p, ".msh")); }, kRun, kData, "floor\\.msh.*folder",
         true},
        {"MshIsAFifo", "a FIFO where the mesh belongs is refused at once, no hang",
         [](const fs::path& p) { MakeFifo(P(p, ".msh")); }, kRun, kData,
         "floor\\.msh.*not a regular file", true},
        {"MshDanglingLink", "a link to nothing where the mesh belongs is named",
         [](const fs::path& p) {
             fs::remove(P(p, ".msh"));
             fs::create_symlink(p.parent_path() / "gone.msh", P(p, ".msh"));
         },
         kRun, kData, "floor\\.msh.*does not exist", true},
        {"MshDuplicateNodeTag", "two nodes with one tag are refused",
         [](const fs::path& p) {
             WriteFile(P(p, ".msh"), "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n3\n1 0 0 0\n"
                                     "1 1 0 0\n3 0 1 0\n$EndNodes\n$Elements\n1\n"
                                     "1 2 2 1 1 1 1 3\n$EndElements\n");
         },
         kRun, kData, "floor\\.msh", true},

        // ---- the project data, P.toml
        {"TomlMissing", "a run without P.toml says the slabs' data is missing",
         [](const fs::path& p) { fs::remove(P(p, ".toml")); }, kRun, kData, "floor\\.toml", true},
        {"TomlSyntax", "a TOML syntax error names the file and line",
         [](const fs::path& p) { WriteFile(P(p, ".toml"), "[[slab]]\ntag = = 1\n"); }, kRun, kData,
         "floor\\.toml.*(line )?2", true},
        {"TomlNegativeThickness", "a slab of negative thickness is refused",
         [](const fs::path& p) {
             EditLines(P(p, ".toml"), [](const std::string& l) {
                 return l.rfind("thickness", 0) == 0 ? "thickness = -0.2" : l;
             });
         },
         kRun, kData, "thickness", true},
        {"TomlThicknessAsText", "a thickness that is text is refused",
         [](const fs::path& p) {
             EditLines(P(p, ".toml"), [](const std::string& l) {
                 return l.rfind("thickness", 0) == 0 ? "thickness = \"thick\"" : l;
             });
         },
         kRun, kData, "thickness", true},
        {"TomlUnknownKey", "a key the format does not know is named",
         [](const fs::path& p) {
             WriteFile(P(p, ".toml"), ReadFile(P(p, ".toml")) + "colour = 3\n");
         },
         kRun, kData, "colour", true},
        {"TomlUnknownLoadCase", "a load case P.toml does not have is named", nullptr,
         "run {P} --target 0.05 --load-case 999", kData, "999", true},
        {"TomlIsAFifo", "a FIFO where P.toml belongs is refused, no hang",
         [](const fs::path& p) { MakeFifo(P(p, ".toml")); }, kRun, kData,
         "floor\\.toml.*not a regular file", true},

        // ---- the integration-point results, P.STRINTG<index>
        {"StrintgMissing", "a load case without its STRINTG file is named",
         [](const fs::path& p) { fs::remove(P(p, ".STRINTG0001")); }, kRun, kData, "STRINTG0001",
         true},
        {"StrintgEmpty", "an empty STRINTG file is refused by the check",
         [](const fs::path& p) { WriteFile(P(p, ".STRINTG0001"), ""); }, kRun, kData, "STRINTG0001",
         true},
        {"StrintgNoCoordinates", "a header without the coordinate columns is named",
         [](const fs::path& p) {
             EditLines(P(p, ".STRINTG0001"), [](const std::string& l) {
                 return l.rfind(" ELEMENT", 0) == 0 ? std::string(" ELEMENT   POINT         MX")
                                                    : l;
             });
         },
         kRun, kData, "STRINTG0001:3", true},
        {"StrintgElementBeyondTheMesh", "an element number beyond the mesh is named once, at once",
         [](const fs::path& p) {
             WriteFile(P(p, ".STRINTG0001"),
                       ReadFile(P(p, ".STRINTG0001")) + "99999999       1 0 0 0\n");
         },
         kRun, kData, "99999999", true},
        {"StrintgElementBeyondTheMeshNoCheck",
         "the same run without the check costs no memory for the gap and ends",
         [](const fs::path& p) {
             WriteFile(P(p, ".STRINTG0001"),
                       ReadFile(P(p, ".STRINTG0001")) + "99999999       1 0 0 0\n");
         },
         kRunNoCheck, 0, "result: 0", false},
        {"StrintgDescending", "elements out of order are named with their line",
         [](const fs::path& p) {
             std::vector<std::string> lines = fixture::Lines(ReadFile(P(p, ".STRINTG0001")));
             std::swap(lines[4], lines.back());
             fixture::WriteLines(P(p, ".STRINTG0001"), lines);
         },
         kRun, kData, "STRINTG0001:[0-9]+", true},
        {"StrintgOverflowingValue", "a value whose products overflow a double is named",
         [](const fs::path& p) { SetFirstValue(p, "5.00000000E+307"); }, kRun, kData, "overflow",
         true},
        {"StrintgNotANumber", "a value that is not a number is named",
         [](const fs::path& p) { SetFirstValue(p, "            nan"); }, kRun, kData,
         "STRINTG0001:5", true},
        {"StrintgIsAFifo", "a FIFO where a STRINTG file belongs is refused, no hang",
         [](const fs::path& p) { MakeFifo(P(p, ".STRINTG0001")); }, kRun, kData,
         "STRINTG0001.*(FIFO|not a regular file)", true},
        {"StrintgIsAFolder", "a folder where a STRINTG file belongs is refused",
         [](const fs::path& p) { MakeFolder(P(p, ".STRINTG0001")); }, kRun, kData,
         "STRINTG0001.*folder", true},
        {"StrintgBinaryGarbage", "bytes that are no text are refused by the check",
         [](const fs::path& p) {
             std::string bytes(4096, '\0');
             for (std::size_t i = 0; i < bytes.size(); ++i)
                 bytes[i] = static_cast<char>((i * 2654435761u) >> 13);
             WriteFile(P(p, ".STRINTG0001"), bytes);
         },
         kRun, kData, "STRINTG0001", true},
        {"StrintgMissingNoCheck", "a pass that fails without the check puts the results back",
         [](const fs::path& p) { fs::remove(P(p, ".STRINTG0001")); }, kRunNoCheck, 2,
         "previous results in .*floor\\.GAR were restored", true},
        {"StrintgFewPointsNoCheck",
         "an element with too few points stops the estimator, results back",
         [](const fs::path& p) {
             std::vector<std::string> kept;
             for (const std::string& l : fixture::Lines(ReadFile(P(p, ".STRINTG0001"))))
                 if (l.rfind("       1       3", 0) != 0 && l.rfind("       1       4", 0) != 0)
                     kept.push_back(l);
             fixture::WriteLines(P(p, ".STRINTG0001"), kept);
         },
         kRunNoCheck, 4, "were restored", true},

        // ---- the results, P.GAR
        {"GarMissing", "results without P.GAR say there are none",
         [](const fs::path& p) { fs::remove(P(p, ".GAR")); }, "results {P}", kNoInput,
         "floor\\.GAR", false},
        {"GarGarbage", "a P.GAR that is no database is named",
         [](const fs::path& p) { WriteFile(P(p, ".GAR"), std::string(2048, 'x')); }, "results {P}",
         kNoInput, "floor\\.GAR.*not a (database|result store)", false},
        {"GarOtherDatabase", "an SQLite database of another kind is no result store",
         [](const fs::path& p) {
             fs::remove(P(p, ".GAR"));
             Sql(P(p, ".GAR"), "CREATE TABLE t(x)");
         },
         "results {P}", kNoInput, "not a result store", false},
        {"GarCraftedTableName", "a table name of the file's choosing is refused, never run",
         [](const fs::path& p) {
             Sql(P(p, ".GAR"),
                 "UPDATE gar_results SET table_name = 'x\"\"; DROP TABLE gar_info; --' "
                 "WHERE rowid = (SELECT min(rowid) FROM gar_results)");
         },
         "results {P}", kNoInput, "floor\\.GAR.*table", false},
        {"GarWildColumnCount", "a wild column count is a damaged store, not an allocation",
         [](const fs::path& p) {
             Sql(P(p, ".GAR"), "UPDATE gar_results SET column_count = 4000000000000");
         },
         "results {P}", kNoInput, "floor\\.GAR.*4000000000000 columns.*damaged", false},
        {"GarEmptyFile", "an empty P.GAR holds no results",
         [](const fs::path& p) { WriteFile(P(p, ".GAR"), ""); }, "results {P}", 0,
         "no results|0 adaptivity results", false},
        {"GarReadOnly", "a P.GAR made read-only is not replaced (exit 74)",
         [](const fs::path& p) { fs::permissions(P(p, ".GAR"), fs::perms::owner_read); }, kRun,
         kCannotWrite, "floor\\.GAR is read-only", true},

        // ---- the file system
        {"FolderReadOnly", "a project folder made read-only is named, nothing runs (exit 74)",
         [](const fs::path& p) {
             fs::permissions(p.parent_path(), fs::perms::owner_read | fs::perms::owner_exec |
                                                  fs::perms::group_read | fs::perms::group_exec);
         },
         kRun, kCannotWrite, "not writable", true},
        {"PosIsAFolder", "a folder where P.refine.pos belongs fails the pass, results back",
         [](const fs::path& p) { MakeFolder(P(p, ".refine.pos")); }, kRun, 6,
         "refine\\.pos.*folder", true},
        {"ProjectMissing", "a project that does not exist is named", nullptr,
         "run {D}/nothing --target 0.05 --load-case 101", kData,
         "nothing\\.msh: error: .*does not exist", true},
        {"ProjectPathTooLong", "a path longer than the system takes is named, no crash", nullptr,
         "check {D}/" + std::string(300, 'a') + "/" + std::string(300, 'b'), kData, "aaaa", true},
        {"ExportIntoMissingFolder", "an export into a folder that does not exist is named (74)",
         nullptr, "export {P} --vtu {D}/no/such/folder/out.vtu", kCannotWrite,
         "folder .* does not exist", true},
        {"ExportOverAFolder", "an export over a folder is refused (74)",
         [](const fs::path& p) { fs::create_directory(p.parent_path() / "out.vtu"); },
         "export {P} --vtu {D}/out.vtu", kCannotWrite, "folder", true},

        // ---- the command line
        {"UnknownOption", "an unknown option is named (64)", nullptr,
         "run {P} --target 0.05 --load-case 101 --colour red", kUsage, "colour", true},
        {"TargetZero", "a target of 0 is refused (64)", nullptr,
         "run {P} --target 0 --load-case 101", kUsage, "target", true},
        {"TargetNotANumber", "a target that is not a number is refused (64)", nullptr,
         "run {P} --target nan --load-case 101", kUsage, "target", true},
        {"LoadCaseNotANumber", "a load case that is not a number is refused (64)", nullptr,
         "run {P} --target 0.05 --load-case abc", kUsage, "load-case", true},
        {"NoProject", "a command without its project says so (64)", nullptr, "run", kUsage,
         "project", true},
        {"UnknownCommand", "an unknown command is named (64)", nullptr, "frobnicate {P}", kUsage,
         "frobnicate", true},

        // ---- CalculiX results, JOB.dat
        {"DatMissing", "import-ccx of a .dat that does not exist is named", nullptr,
         "import-ccx {P} {D}/job.dat", kUsage, "does not exist: .*job\\.dat", true},
        {"DatMalformedRow", "a malformed row of a .dat is named with its line",
         [](const fs::path& p) {
             WriteFile(p.parent_path() / "job.dat",
                       " stresses (elem, integ.pnt.,sxx,syy,szz,sxy,sxz,syz) for set EALL and "
                       "time  0.1000000E+01\n\n         7   1  1.0E+00  zwei\n");
         },
         "import-ccx {P} {D}/job.dat", kData, "job\\.dat:3", true},
        {"DatWithoutResults", "a .dat without printed stresses is refused",
         [](const fs::path& p) { WriteFile(p.parent_path() / "job.dat", "nothing here\n"); },
         "import-ccx {P} {D}/job.dat", kData, "job\\.dat", true},
    };
    return cases;
}

class BadInputCatalogue : public ::testing::TestWithParam<BadInput> {
protected:
    // One run of the example, kept for every case to start from.
    static void SetUpTestSuite() {
        s_base = std::make_unique<slabadapt::test::TempDir>("catalogue-base");
        const fs::path project = fixture::CopyExample(s_base->path());
        const auto run = fixture::Shell(fixture::Quote(SLABADAPT_EXECUTABLE) + " run " +
                                        fixture::Quote(project) + " --target 0.05 --load-case 101");
        ASSERT_EQ(run.code, 0) << run.err;
    }
    static void TearDownTestSuite() { s_base.reset(); }

    static std::unique_ptr<slabadapt::test::TempDir> s_base;
};
std::unique_ptr<slabadapt::test::TempDir> BadInputCatalogue::s_base;

std::string Expand(std::string args, const fs::path& project) {
    for (const auto& [key, value] :
         {std::pair<std::string, std::string>{"{P}", fixture::Quote(project)},
          {"{D}", fixture::Quote(project.parent_path())}}) {
        for (std::size_t at; (at = args.find(key)) != std::string::npos;)
            args.replace(at, key.size(), value);
    }
    return args;
}

TEST_P(BadInputCatalogue, AnswersAsPromised) {
    const BadInput& c = GetParam();
    slabadapt::test::TempDir dir(std::string("catalogue-") + c.name);
    for (const auto& entry : fs::directory_iterator(s_base->path()))
        fs::copy(entry.path(), dir / entry.path().filename());
    const fs::path project = dir / "floor";
    const std::string gar = ReadFile(P(project, ".GAR"));
    const std::string pos = ReadFile(P(project, ".refine.pos"));
    ASSERT_FALSE(gar.empty());
    if (c.prepare)
        c.prepare(project);

    // A hang shows as exit 124 after 60 s; a crash as a signal.
    const auto run = fixture::Shell("timeout -k 5 60 " + fixture::Quote(SLABADAPT_EXECUTABLE) +
                                    " " + Expand(c.args, project) + " </dev/null");
    fs::permissions(dir.path(), fs::perms::owner_all, fs::perm_options::add); // for the clean-up
    std::error_code ec;
    fs::permissions(P(project, ".GAR"), fs::perms::owner_write, fs::perm_options::add, ec);

    ASSERT_TRUE(run.exited) << c.name << ": the command crashed\n" << run.err;
    EXPECT_NE(run.code, 124) << c.name << ": the command hung";
    EXPECT_EQ(run.code, c.exitCode) << c.name << "\n" << run.err << run.out;
    EXPECT_TRUE(std::regex_search(run.err + run.out, std::regex(c.message)))
        << c.name << ": expected /" << c.message << "/ in\n"
        << run.err << run.out;
    for (const char* bare : {"std::bad_alloc", "vector::", "basic_string::", "_M_", "stoi", "stod"})
        EXPECT_EQ(run.err.find(bare), std::string::npos) << c.name << ": bare text " << bare;
    if (c.resultsKept) { // (a folder the case put in a file's place stays a folder)
        if (!fs::is_directory(P(project, ".GAR"))) {
            EXPECT_EQ(ReadFile(P(project, ".GAR")), gar) << c.name << ": P.GAR changed";
        }
        if (!fs::is_directory(P(project, ".refine.pos"))) {
            EXPECT_EQ(ReadFile(P(project, ".refine.pos")), pos)
                << c.name << ": P.refine.pos changed";
        }
    }
    for (const char* leftover :
         {"backup_floor.GAR", "floor.refine.pos.backup", "floor.run-pending", "floor.GAR-journal"})
        EXPECT_FALSE(fs::exists(dir / leftover)) << c.name << ": left " << leftover;
    EXPECT_TRUE(slabadapt::test::TemporaryFilesIn(dir.path()).empty()) << c.name;
}

INSTANTIATE_TEST_SUITE_P(Cases, BadInputCatalogue, ::testing::ValuesIn(Catalogue()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(BadInputCatalogueDocs, EveryCaseIsListedWithItsPromise) {
    const std::string docs = ReadFile(fixture::SourceDir() / "docs/reliability.md");
    ASSERT_FALSE(docs.empty());
    EXPECT_GE(Catalogue().size(), 45u);
    for (const BadInput& c : Catalogue()) {
        EXPECT_NE(docs.find(std::string("`") + c.name + "`"), std::string::npos) << c.name;
        EXPECT_NE(docs.find(c.promise), std::string::npos) << c.name << ": " << c.promise;
    }
}

} // namespace
