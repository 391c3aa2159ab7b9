// The project check: every kind of problem it reports, with file and line or element, on a
// project meshed with Gmsh whose STRINTG files are then spoilt one way at a time.
#include "cli/ProjectCheck.h"
#include "tests/support/example_project.h"
#include "tests/support/locale.h"

#include <gtest/gtest.h>

#include <thread>

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string_view>

using namespace fixture;
using slabadapt::cli::CheckProject;
using slabadapt::cli::CheckReport;
using slabadapt::cli::Severity;

namespace {

// The patch project: 16 quadrilaterals (elements 1-16) and 32 triangles (17-48); load case
// id 7 reads patch.STRINTG0003, whose records start on line 5.
class CheckTest : public testing::Test {
protected:
    void SetUp() override { p = MakePatchProject(dir.path()); }

    fs::path Strintg() const { return p.string() + ".STRINTG0003"; }
    std::vector<std::string> Records() const { return Lines(ReadFile(Strintg())); }

    // Whether a finding of that severity, file (by name) and line holds the text.
    static bool Has(const CheckReport& r, Severity s, const std::string& file, std::size_t line,
                    const std::string& text) {
        for (const auto& f : r.findings)
            if (f.severity == s && f.file.filename() == file && f.line == line &&
                f.message.find(text) != std::string::npos)
                return true;
        return false;
    }
    static std::string All(const CheckReport& r) {
        std::ostringstream s;
        slabadapt::cli::PrintFindings(r, s);
        return s.str();
    }

    TempDir dir;
    fs::path p;
};

} // namespace

TEST_F(CheckTest, AProjectMadeWithGmshAndTheGeneratorPasses) {
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(r.findings.empty()) << All(r);
    EXPECT_TRUE(r.Passed());
    ASSERT_EQ(r.loadCases.size(), 1u);
    EXPECT_EQ(r.loadCases[0].index, 3);
    EXPECT_EQ(r.loadCases[0].strintgFile.filename(), "patch.STRINTG0003");
    EXPECT_EQ(slabadapt::cli::SummaryLine(r),
              "48 elements (32 triangles, 16 quadrilaterals) on 2 slabs, 45 nodes, 1 load case: "
              "no problems");
}

TEST_F(CheckTest, WithoutLoadCasesEveryLoadCaseOfTheProjectIsChecked) {
    const CheckReport r = CheckProject(p, {});
    EXPECT_TRUE(r.Passed()) << All(r);
    ASSERT_EQ(r.loadCases.size(), 1u);
    EXPECT_EQ(r.loadCases[0].id, 7);
}

TEST_F(CheckTest, AMissingStrintgFile) {
    fs::remove(Strintg());
    const CheckReport r = CheckProject(p, {7});
    EXPECT_FALSE(r.Passed());
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 0, "cannot be opened")) << All(r);
}

TEST_F(CheckTest, AFileListingFewerElementsThanTheMesh) {
    auto lines = Records();
    lines.resize(lines.size() - 3); // element 48's three points
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(
        Has(r, Severity::Error, "patch.STRINTG0003", 0, "lists 47 elements, the mesh has 48"))
        << All(r);
}

TEST_F(CheckTest, ElementsOutOfOrderAreReportedWithTheLine) {
    auto lines = Records();
    // Element 1 (lines 5-8) after element 2 (lines 9-12).
    std::rotate(lines.begin() + 4, lines.begin() + 8, lines.begin() + 12);
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 9, "element 1 follows element 2"))
        << All(r);
}

TEST_F(CheckTest, ABlankRecordLine) {
    auto lines = Records();
    lines.push_back("");
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", lines.size(), "element number 0"))
        << All(r);
}

TEST_F(CheckTest, AHeaderWithoutACoordinateColumn) {
    auto lines = Records();
    const auto at = lines[2].find("IGY");
    ASSERT_NE(at, std::string::npos);
    lines[2].replace(at, 3, "FOO");
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 3, "no igy column")) << All(r);
    // In front of known columns it shifts every field after it: an error, not a warning.
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 3,
                    "unknown column \"foo\" in front of known ones"))
        << All(r);
}

TEST_F(CheckTest, AnUnknownColumnBehindTheKnownOnesIsAWarning) {
    auto lines = Records();
    lines[2] += std::string(12, ' ') + "FOO";
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(r.Passed()) << All(r);
    EXPECT_TRUE(
        Has(r, Severity::Warning, "patch.STRINTG0003", 3, "unknown column \"foo\" is ignored"))
        << All(r);
}

TEST_F(CheckTest, AHeaderWithItsColumnsInAnotherOrder) {
    auto lines = Records();
    const auto mx = lines[2].find("             MX");
    const auto my = lines[2].find("             MY");
    ASSERT_NE(mx, std::string::npos);
    ASSERT_NE(my, std::string::npos);
    lines[2].replace(mx, 15, "             MY");
    lines[2].replace(my, 15, "             MX");
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 3,
                    "the header names its columns as \"igx igy igz my mx mxy"))
        << All(r);
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 3,
                    "records are read in the order \"igx igy igz mx my mxy"))
        << All(r);
}

TEST_F(CheckTest, ARecordCutShortIsAnError) {
    auto lines = Records();
    // The last line of a file written only in part: its last four fields are gone.
    lines.back().resize(lines.back().size() - 4 * 15);
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_FALSE(r.Passed());
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", lines.size(),
                    "element 48: the record has values for 15 of the header's 19 columns; gyz, "
                    "ex, ey, gxy would read as 0"))
        << All(r);
}

TEST_F(CheckTest, ARecordCutInItsLastFieldIsAWarning) {
    auto lines = Records();
    lines.back().resize(lines.back().size() - 5);
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(Has(r, Severity::Warning, "patch.STRINTG0003", lines.size(),
                    "before the end of its last field"))
        << All(r);
    EXPECT_TRUE(Has(r, Severity::Warning, "patch.STRINTG0003", lines.size(), "gxy value cut short"))
        << All(r);
}

TEST_F(CheckTest, AValueThatIsNotANumberNamesTheLineAndColumn) {
    auto lines = Records();
    // Line 6 (element 1): MX (characters 62-76) garbled, MY (77-91) in Fortran's D notation.
    lines[5].replace(61, 15, "        garbage");
    lines[5].replace(76, 15, "    1.50000D+03");
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 6,
                    "element 1: the mx field (characters 62-76) holds \"garbage\", which is not "
                    "a finite number: the module would read 0"))
        << All(r);
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 6,
                    "the my field (characters 77-91) holds \"1.50000D+03\""))
        << All(r);
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 6, "would read only its beginning"))
        << All(r);
}

TEST_F(CheckTest, AnElementNumberFarBeyondTheMeshIsNamedOnceAndCostsNothing) {
    auto lines = Records();
    std::string record = lines.back();
    record.replace(0, 8, "99999999");
    lines.push_back(record);
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", lines.size(),
                    "element 99999999 is beyond the mesh's 48 elements"))
        << All(r);
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 0, "lists 99999999 elements"))
        << All(r);
    EXPECT_FALSE(Has(r, Severity::Error, "patch.STRINTG0003", 0, "has no integration points"))
        << All(r);
}

TEST_F(CheckTest, AValueWhoseProductsOverflowIsNamed) {
    auto lines = Records();
    lines[5].replace(61, 15, "       5.0E+307");
    lines[6].replace(61, 15, "      -1.0E+150"); // the largest still trusted
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 6,
                    "element 1: the mx value 5.0E+307 is so large that the products of forces "
                    "and deformations the estimator forms would overflow a double"))
        << All(r);
    EXPECT_FALSE(Has(r, Severity::Error, "patch.STRINTG0003", 7, "so large")) << All(r);
}

TEST_F(CheckTest, AHeaderWithoutValueColumnsIsAWarning) {
    auto lines = Records();
    // Drop the last column (GXY) from the header and its field from every record.
    lines[2].resize(lines[2].size() - 15);
    for (std::size_t i = 4; i < lines.size(); ++i)
        lines[i].resize(lines[i].size() - 15);
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(r.Passed()) << All(r);
    EXPECT_TRUE(Has(r, Severity::Warning, "patch.STRINTG0003", 3, "no column for gxy: read as 0"))
        << All(r);
}

TEST_F(CheckTest, AnElementWithFivePoints) {
    auto lines = Records();
    lines.insert(lines.begin() + 5, lines[4]); // element 1 gets a fifth point
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(
        Has(r, Severity::Error, "patch.STRINTG0003", 5, "element 1 has 5 integration points"))
        << All(r);
}

TEST_F(CheckTest, AQuadrilateralWithThreePoints) {
    auto lines = Records();
    lines.erase(lines.begin() + 4); // element 1 (a quadrilateral) loses its first point
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 5,
                    "element 1 has 3 integration points but 4 nodes in the mesh"))
        << All(r);
}

TEST_F(CheckTest, AnElementWithoutPoints) {
    auto lines = Records();
    lines.erase(lines.begin() + 8, lines.begin() + 12); // element 2
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(
        Has(r, Severity::Error, "patch.STRINTG0003", 0, "element 2 has no integration points"))
        << All(r);
}

TEST_F(CheckTest, APointOffItsElement) {
    auto lines = Records();
    lines[6].replace(16, 15, " 1.00000000E+02"); // IGX of element 1's third point
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 7,
                    "element 1: the integration point at (100,"))
        << All(r);
}

// A run checks its STRINTG files on a thread of its own while the module, reading them, sets
// the process's numeric locale: the check's numbers are those of the "C" locale whatever the
// process's is, and it leaves the process's alone.
TEST_F(CheckTest, TheSTRINTGFilesAreCheckedInTheCLocaleWhateverTheProcesssIs) {
    auto lines = Records();
    lines[6].replace(16, 15, " 1.00500000E+02"); // IGX of element 1's third point
    lines[7].replace(16 + 3 * 15, 15, "        1,5e+00");
    WriteLines(Strintg(), lines);
    const char* comma = slabadapt::test::CommaLocaleName();
    ASSERT_NE(comma, nullptr)
        << "no locale with a decimal comma; scripts/install-deps.sh generates de_DE.UTF-8";
    slabadapt::test::ScopedLocale locale(comma);
    ASSERT_TRUE(locale.Ok());
    slabadapt::cli::StagedCheck check(p, {7});
    EXPECT_TRUE(check.Report().Passed()) << All(check.Report()); // P.msh and P.toml only
    std::thread scan([&check] { check.ScanFiles(); });
    scan.join();
    const CheckReport& r = check.Report();
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 7,
                    "element 1: the integration point at (100.5, "))
        << All(r);
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 8, "holds \"1,5e+00\"")) << All(r);
    EXPECT_EQ(std::string_view(std::localeconv()->decimal_point), ",");
}

TEST_F(CheckTest, ASystematicFaultIsListedTenTimesAndCounted) {
    auto lines = Records();
    for (std::size_t i = 4; i < lines.size(); ++i)
        lines[i].replace(16, 15, " 1.00000000E+02");
    WriteLines(Strintg(), lines);
    const CheckReport r = CheckProject(p, {7});
    std::size_t listed = 0;
    for (const auto& f : r.findings)
        listed += f.message.find("outside the element") != std::string::npos;
    EXPECT_EQ(listed, slabadapt::cli::kFindingsPerKind);
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 0,
                    "... and " + std::to_string(16 * 4 + 32 * 3 - 10) + " more"))
        << All(r);
}

TEST_F(CheckTest, LoadCasesThatDifferInPointCount) {
    std::string toml = ReadFile(p.string() + ".toml");
    WriteFile(p.string() + ".toml", toml + "[[load_case]]\nid = 8\nindex = 4\n");
    auto lines = Records();
    lines.insert(lines.begin() + 5, lines[4]);
    WriteLines(p.string() + ".STRINTG0004", lines);
    const CheckReport r = CheckProject(p, {7, 8});
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0004", 5,
                    "element 1 has 5 integration points here and 4 in patch.STRINTG0003 (line 5)"))
        << All(r);
}

TEST_F(CheckTest, AnUnknownLoadCaseId) {
    const CheckReport r = CheckProject(p, {7, 99});
    EXPECT_TRUE(
        Has(r, Severity::Error, "patch.toml", 0, "load case 99 is not defined (defined: 7)"))
        << All(r);
}

TEST_F(CheckTest, AnInvalidLoadCaseIsAnErrorWhenAskedForAndAWarningOtherwise) {
    std::string toml = ReadFile(p.string() + ".toml");
    toml.replace(toml.find("valid = true"), 12, "valid = false");
    WriteFile(p.string() + ".toml", toml);
    const CheckReport asked = CheckProject(p, {7});
    EXPECT_FALSE(asked.Passed());
    EXPECT_TRUE(Has(asked, Severity::Error, "patch.toml", 8, "load case 7 is marked valid = false"))
        << All(asked);
    const CheckReport all = CheckProject(p, {});
    EXPECT_TRUE(all.Passed()) << All(all);
    EXPECT_TRUE(Has(all, Severity::Warning, "patch.toml", 8, "a run skips it")) << All(all);
}

TEST_F(CheckTest, ALoadCaseAskedForTwiceIsAWarning) {
    const CheckReport r = CheckProject(p, {7, 7});
    EXPECT_TRUE(r.Passed()) << All(r);
    EXPECT_TRUE(Has(r, Severity::Warning, "patch.toml", 0, "asked for 2 times")) << All(r);
}

TEST_F(CheckTest, AMissingTomlFile) {
    fs::remove(p.string() + ".toml");
    const CheckReport r = CheckProject(p, {7});
    EXPECT_TRUE(Has(r, Severity::Error, "patch.toml", 0, "missing")) << All(r);
}

TEST_F(CheckTest, AnUnreadableMeshNamesFileAndLine) {
    auto lines = Lines(ReadFile(p.string() + ".msh"));
    const auto it = std::find(lines.begin(), lines.end(), "$Nodes");
    ASSERT_NE(it, lines.end());
    *(it + 2) = "2 1 0 x"; // a malformed entity block header
    WriteLines(p.string() + ".msh", lines);
    const CheckReport r = CheckProject(p, {7});
    ASSERT_FALSE(r.Passed());
    EXPECT_EQ(r.model, nullptr);
    ASSERT_EQ(r.findings.size(), 1u);
    EXPECT_EQ(r.findings[0].file.filename(), "patch.msh");
    EXPECT_GT(r.findings[0].line, 0u);
}

TEST(Check, ANodeOf70ElementsIsReportedWithItsNumbers) {
    TempDir dir;
    const fs::path p = MakeFanProject(dir.path(), 70);
    const CheckReport r = CheckProject(p, {1});
    ASSERT_FALSE(r.Passed());
    bool found = false;
    for (const auto& f : r.findings)
        found |= f.file.filename() == "fan.msh" &&
                 f.message.find("belongs to 70 elements: the estimator takes at most 64") !=
                     std::string::npos;
    EXPECT_TRUE(found);
    const CheckReport ok = CheckProject(MakeFanProject(dir.path(), 64), {1});
    EXPECT_TRUE(ok.Passed());
}

namespace {

TEST_F(CheckTest, AStrintgFileThatIsAPipeOrAFolderIsAFindingNotAHang) {
    fs::remove(Strintg());
    ASSERT_EQ(::mkfifo(Strintg().c_str(), 0600), 0);
    CheckReport r = CheckProject(p, {7});
    EXPECT_FALSE(r.Passed());
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 0, "is not a regular file")) << All(r);
    fs::remove(Strintg());
    fs::create_directory(Strintg());
    r = CheckProject(p, {7});
    EXPECT_TRUE(Has(r, Severity::Error, "patch.STRINTG0003", 0, "is not a regular file")) << All(r);
}

// Fields the C library reads whole are numbers, the others are not, however they are read
// inside: a plus sign, a hexadecimal value and the forms without digits on one side pass; a
// doubled sign, an exponent without digits and a value beyond the range of a double do not.
TEST_F(CheckTest, AFieldIsANumberExactlyWhenTheCLibraryReadsItWhole) {
    const std::vector<std::pair<std::string, bool>> fields = {
        {"           +1.5", true},  {"         0x1p-3", true},  {"             .5", true},
        {"             5.", true},  {"    -2.5000E+02", true},  {"           +-1.", false},
        {"           1.5e", false}, {"          1e999", false}, {"           -nan", false},
        {"            inf", false}, {"            1-2", false}};
    for (const auto& [field, number] : fields) {
        auto lines = Records();
        lines[5].replace(61, 15, field); // the mx field of element 1
        WriteLines(Strintg(), lines);
        const CheckReport r = CheckProject(p, {7});
        EXPECT_EQ(Has(r, Severity::Error, "patch.STRINTG0003", 6, "the mx field"), !number)
            << "\"" << field << "\"\n"
            << All(r);
    }
}

// Most value fields are decided from their characters alone; that shortcut must never pass a
// field the full test (strtod, finiteness, magnitude) rejects, and must take what a solver
// writes.
TEST(CheckFields, ThePlainFieldTestNeverPassesAFieldTheFullTestRejects) {
    using slabadapt::cli::IsPlainTrustedNumber;
    using slabadapt::cli::IsTrustedValueField;
    const std::vector<std::string> edges = {"1e150",
                                            "9.99e149",
                                            "1.0e150",
                                            "10e149",
                                            "0.00001e155",
                                            "000000001e150",
                                            "1e-400",
                                            "1e",
                                            ".",
                                            "-.",
                                            "1.e5",
                                            "+.5",
                                            "-0",
                                            "1e+0150",
                                            "1e1000",
                                            "99999e146",
                                            "1.5D+03",
                                            "1.5d3",
                                            "0x10",
                                            "1e+",
                                            "e5",
                                            "+-1",
                                            "1..2",
                                            "1.2.3",
                                            "9.999999E+149",
                                            "1.000000E+150",
                                            "-1.797693E+308",
                                            "4.9E-324",
                                            "12345678901234"};
    for (const std::string& field : edges) {
        if (IsPlainTrustedNumber(field)) {
            EXPECT_TRUE(IsTrustedValueField(field)) << "\"" << field << "\"";
        }
    }
    EXPECT_TRUE(IsPlainTrustedNumber("9.999999E+149"));
    EXPECT_FALSE(IsPlainTrustedNumber("1.5D+03"));
    EXPECT_FALSE(IsPlainTrustedNumber("1e"));
    EXPECT_FALSE(IsPlainTrustedNumber("."));
    EXPECT_FALSE(IsPlainTrustedNumber("10e149")); // 1e150: left to the full test
    EXPECT_TRUE(IsTrustedValueField("10e149"));
    EXPECT_FALSE(IsTrustedValueField("10.1e149"));

    // Random strings over the characters numbers are made of.
    const std::string alphabet = "0123456789+-.eEdDx ";
    std::uint64_t state = 2024;
    auto next = [&state](std::uint64_t n) {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        return (state >> 33) % n;
    };
    long plain = 0;
    for (int i = 0; i < 200000; ++i) {
        std::string field;
        const auto length = 1 + next(15);
        for (std::uint64_t c = 0; c < length; ++c)
            field += alphabet[next(alphabet.size())];
        if (IsPlainTrustedNumber(field)) {
            ++plain;
            ASSERT_TRUE(IsTrustedValueField(field)) << "\"" << field << "\"";
        }
    }
    EXPECT_GT(plain, 1000);

    // A random value printed with `format`, its exponent in [lowest, lowest + range).
    auto printed = [&next](const char* format, int lowest, int range) {
        const double mantissa = static_cast<double>(next(2000001)) / 1000.0 - 1000.0;
        const int exponent = static_cast<int>(next(static_cast<std::uint64_t>(range))) + lowest;
        char field[64];
        std::snprintf(field, sizeof field, format, mantissa * std::pow(10.0, exponent));
        return std::string(field);
    };
    auto trimmed = [](std::string_view text) {
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        return text;
    };

    // The solvers' own layouts (eight decimals; seven as imported results are written), and
    // those layouts spoilt one character at a time.
    for (int i = 0; i < 20000; ++i) {
        std::string text = printed(i % 2 ? "%15.8E" : "%15.7e", -90, 180);
        if (text.size() != 15 || (text[11] != 'E' && text[11] != 'e'))
            continue; // an exponent of three digits
        ASSERT_TRUE(slabadapt::cli::IsSolverField(text)) << "\"" << text << "\"";
        text[next(15)] = alphabet[next(alphabet.size())];
        if (slabadapt::cli::IsSolverField(text)) {
            ASSERT_TRUE(IsTrustedValueField(trimmed(text))) << "\"" << text << "\"";
        }
    }

    // What a solver writes: 15 characters, six decimals, E and a signed exponent.
    for (int i = 0; i < 20000; ++i) {
        const std::string field = printed("%15.6E", -300, 440);
        ASSERT_EQ(IsPlainTrustedNumber(trimmed(field)), IsTrustedValueField(trimmed(field)))
            << "\"" << field << "\"";
    }
}

// A large STRINTG file is checked in two halves at once. Wherever the file is split, the
// findings must be those of one reading from the start: same findings, same order, same lines,
// the same "... and N more" counts.
TEST_F(CheckTest, AFileCheckedInTwoHalvesGivesTheFindingsOfOneReading) {
    const std::vector<std::string> clean = Records();
    const std::size_t firstRecord = 4; // index of line 5
    std::uint64_t state = 77;
    auto next = [&state](std::size_t n) {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<std::size_t>((state >> 33) % n);
    };
    auto record = [&](const std::vector<std::string>& lines) {
        return firstRecord + next(lines.size() - firstRecord);
    };
    using Spoil = std::function<void(std::vector<std::string>&)>;
    const std::vector<Spoil> spoils = {
        [&](auto& l) { std::swap(l[record(l)], l[record(l)]); },
        [&](auto& l) { l.erase(l.begin() + static_cast<std::ptrdiff_t>(record(l))); },
        [&](auto& l) {
            const std::size_t i = record(l);
            l.insert(l.begin() + static_cast<std::ptrdiff_t>(i), l[i]);
        },
        [&](auto& l) { l[record(l)].replace(0, 8, "       0"); },
        [&](auto& l) { l[record(l)].replace(0, 8, "    9999"); },
        [&](auto& l) { l[record(l)].replace(0, 8, std::to_string(10000000 + next(9))); },
        [&](auto& l) { l[record(l)].replace(0, 8, "      " + std::to_string(10 + next(30))); },
        [&](auto& l) { l[record(l)].replace(61, 15, "            abc"); },
        [&](auto& l) { l[record(l)].replace(76, 15, "        1.5D+03"); },
        [&](auto& l) { l[record(l)].replace(91, 15, "          1e999"); },
        [&](auto& l) { l[record(l)].resize(70); },
        [&](auto& l) {
            l.insert(l.begin() + static_cast<std::ptrdiff_t>(record(l)), std::string());
        },
        [&](auto& l) { // a reversed block: more order findings than are shown
            const std::size_t i = firstRecord + next(l.size() - firstRecord - 30);
            std::reverse(l.begin() + static_cast<std::ptrdiff_t>(i),
                         l.begin() + static_cast<std::ptrdiff_t>(i + 30));
        },
        [&](auto& l) {
            for (std::size_t i = firstRecord; i < l.size(); i += 1 + next(7))
                l[i].replace(61, 15, "            xyz");
        },
        [&](auto& l) {
            for (auto& text : l)
                text += "\r";
        },
    };
    auto print = [](const CheckReport& r) {
        std::ostringstream s;
        for (const auto& f : r.findings)
            s << static_cast<int>(f.severity) << " " << f.file.filename().string() << ":" << f.line
              << " " << f.message << "\n";
        return s.str();
    };
    long split = 0;
    for (int variant = 0; variant < 60; ++variant) {
        std::vector<std::string> lines = clean;
        const std::size_t count = 1 + next(4);
        for (std::size_t k = 0; k < count; ++k)
            spoils[next(spoils.size())](lines);
        WriteLines(Strintg(), lines);
        slabadapt::cli::SplitStrintgScansForTests(std::nullopt);
        const std::string whole = print(CheckProject(p, {7}));
        for (double fraction : {0.02, 0.3, 0.5, 0.61, 0.97}) {
            slabadapt::cli::SplitStrintgScansForTests(fraction);
            const std::string halves = print(CheckProject(p, {7}));
            EXPECT_EQ(halves, whole) << "variant " << variant << ", split at " << fraction;
            ++split;
        }
    }
    slabadapt::cli::SplitStrintgScansForTests(std::nullopt);
    EXPECT_EQ(split, 300);
}

} // namespace
