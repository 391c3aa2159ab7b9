// Load combinations and the envelope of passes, on the bundled floor (examples/floor: 3531
// elements, load cases 101 and 102): the invariants that tie them to plain passes, the store's
// layout read back with the real sqlite3, and what results, export and check show.
#include "cli/Commands.h"
#include "cli/Envelope.h"
#include "cli/StoredResults.h"
#include "tests/support/cli_main.h"
#include "tests/support/example_project.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using slabadapt::cli::ElementColumns;
using slabadapt::cli::ReadStoredResults;
using slabadapt::test::Near;

const char* kCombinations = R"(
[[load_case]]
id = 201
index = 3
name = "ULS"
combination = { 101 = 1.35, 102 = 1.5 }

[[load_case]]
id = 202
index = 4
name = "the plain sum"
combination = { 101 = 1.0, 102 = 1.0 }

[[load_case]]
id = 203
index = 5
name = "self weight, scaled"
combination = { 101 = 2.5 }
)";

using Outcome = slabadapt::test::CommandOutcome;

class Envelope : public ::testing::Test {
protected:
    void SetUp() override {
        m_project = fixture::CopyExample(m_dir.path());
        std::ofstream(fs::path(m_project.string() + ".toml"), std::ios::app) << kCombinations;
    }

    Outcome Slabadapt(std::vector<std::string> args) {
        return slabadapt::test::RunSlabadapt(std::move(args));
    }

    // Runs one plain pass; its global error and the stored columns per element.
    std::pair<double, std::vector<std::array<double, 4>>> Pass(const std::string& loadCases) {
        const Outcome o =
            Slabadapt({"run", P(), "--target", "0.05", "--load-case", loadCases, "--json"});
        EXPECT_EQ(o.code, 0) << o.err;
        const auto at = o.out.find("\"global_error\": ");
        const double error = std::stod(o.out.substr(at + 16));
        return {error, Columns()};
    }

    std::vector<std::array<double, 4>> Columns(int resultCase = 1, bool envelope = false) {
        const auto model = host::outcome::LoadProject(m_project);
        return ElementColumns(ReadStoredResults(m_project, &model), model.mesh.elements.size(),
                              resultCase, envelope);
    }

    std::string P() const { return m_project.string(); }
    std::string Read(const std::string& suffix) const {
        return fixture::ReadFile(m_project.string() + suffix);
    }

    slabadapt::test::TempDir m_dir{"envelope"};
    fs::path m_project;
};

// The estimator's patch fits amplify a change in the last digits of its input: the combination's
// file carries about eleven significant digits (its fields are 15 characters wide), and a single
// element's values then move by up to some 1e-8 relative while the global error agrees to 1e-9.
constexpr double kElementTolerance = 1e-7;

// The largest relative difference of the columns `which` over all elements.
double LargestDifference(const std::vector<std::array<double, 4>>& a,
                         const std::vector<std::array<double, 4>>& b,
                         std::initializer_list<std::size_t> which, double scaleOfB = 1.0) {
    double largest = 0.0;
    for (std::size_t e = 0; e < a.size(); ++e)
        for (std::size_t c : which) {
            const double x = a[e][c] * (c == 2 ? scaleOfB : 1.0), y = b[e][c];
            largest = std::max(largest, std::fabs(x - y) / std::max(std::fabs(x), 1e-300));
        }
    return largest;
}

TEST_F(Envelope, ACombinationWithAllFactorsOneIsTheSummedPass) {
    const auto [summed, summedColumns] = Pass("101,102");
    const auto [combined, combinedColumns] = Pass("202");
    EXPECT_TRUE(Near(summed, combined, 1e-12, 1e-9));
    ASSERT_EQ(summedColumns.size(), combinedColumns.size());
    EXPECT_LE(LargestDifference(summedColumns, combinedColumns, {0, 1, 2, 3}), kElementTolerance);
    // The derived file says what it is.
    EXPECT_EQ(Read(".STRINTG0004").rfind("slabadapt: combination 202 = 1 x 101 + 1 x 102", 0), 0u);
}

TEST_F(Envelope, AScaledLoadCaseHasTheSameRelativeErrorsAndSizes) {
    const auto [alone, aloneColumns] = Pass("101");
    const auto [scaled, scaledColumns] = Pass("203");
    EXPECT_TRUE(Near(alone, scaled, 1e-12, 1e-9));
    // Relative errors and sizes are free of the scale; the error density is not (x 2.5^2).
    EXPECT_LE(LargestDifference(aloneColumns, scaledColumns, {0, 1, 3}), kElementTolerance);
    EXPECT_LE(LargestDifference(aloneColumns, scaledColumns, {2}, 6.25), kElementTolerance);
}

TEST_F(Envelope, AnEnvelopeOfOnePassIsThatPass) {
    const auto [alone, aloneColumns] = Pass("101");
    const std::string alonePos = Read(".refine.pos");
    const Outcome o = Slabadapt({"run", P(), "--target", "0.05", "--envelope", "101"});
    ASSERT_EQ(o.code, 0) << o.err;
    EXPECT_NE(o.out.find("envelope: largest global error"), std::string::npos) << o.out;
    const auto pass = Columns(1);
    const auto envelope = Columns(0, true);
    for (std::size_t e = 0; e < aloneColumns.size(); ++e)
        for (std::size_t c = 0; c < 4; ++c) {
            ASSERT_EQ(pass[e][c], aloneColumns[e][c]) << "element " << e + 1;
            ASSERT_EQ(envelope[e][c], aloneColumns[e][c]) << "element " << e + 1;
        }
    EXPECT_EQ(Read(".refine.pos"), alonePos);
}

TEST_F(Envelope, TheEnvelopeAsksForNoLargerSizeAndNoSmallerErrorThanAnyPass) {
    const Outcome o =
        Slabadapt({"run", P(), "--target", "0.05", "--envelope", "101", "102", "201", "--json"});
    ASSERT_EQ(o.code, 0) << o.err;
    EXPECT_NE(o.out.find("\"passes\": [{\"pass\": 1, \"load_case\": 101"), std::string::npos);
    const auto envelope = Columns(0, true);
    const auto model = host::outcome::LoadProject(m_project);
    const auto stored = ReadStoredResults(m_project, &model);
    const auto governing = slabadapt::cli::GoverningPasses(stored, envelope.size());
    std::vector<std::vector<double>> nodal;
    for (int k = 1; k <= 3; ++k) {
        const auto pass = Columns(k);
        nodal.push_back(slabadapt::cli::NodalSizes(model.mesh, pass));
        for (std::size_t e = 0; e < envelope.size(); ++e) {
            ASSERT_LE(envelope[e][3], pass[e][3]) << "element " << e + 1 << ", pass " << k;
            for (std::size_t c = 0; c < 3; ++c)
                ASSERT_GE(envelope[e][c], pass[e][c]) << "element " << e + 1 << ", pass " << k;
            if (governing[e] == k) {
                ASSERT_EQ(envelope[e][3], pass[e][3]) << "element " << e + 1;
            }
        }
    }
    // Per node the field holds the smallest of the passes' sizes.
    const auto merged = slabadapt::cli::MergeNodalSizes(nodal);
    for (std::size_t n = 0; n < merged.size(); ++n)
        for (const auto& pass : nodal)
            ASSERT_LE(merged[n], pass[n]);

    // The store, as sqlite3 reads it.
    const fixture::Outcome rows = fixture::Shell(
        "sqlite3 " + fixture::Quote(P() + ".GAR") +
        " \"SELECT case_number, envelope, count(*), sum(row_count), max(column_count) FROM "
        "gar_results GROUP BY case_number, envelope ORDER BY case_number; SELECT value FROM "
        "gar_info WHERE key = 'envelope_load_cases';\"");
    ASSERT_EQ(rows.code, 0) << rows.err;
    EXPECT_EQ(rows.out, "0|2|3|3531|5\n1|0|3|3531|4\n2|0|3|3531|4\n3|0|3|3531|4\n101,102,201\n");

    // What results and export show of it.
    const Outcome json = Slabadapt({"results", P(), "--format", "json"});
    EXPECT_NE(json.out.find("\"passes\": [{\"result_case\": 1, \"load_case\": 101}"),
              std::string::npos);
    EXPECT_NE(json.out.find("\"envelope\": true"), std::string::npos);
    EXPECT_NE(json.out.find("\"governing_pass\": "), std::string::npos);
    const Outcome csv = Slabadapt({"results", P(), "--format", "csv"});
    EXPECT_EQ(csv.out.substr(0, csv.out.find('\n')),
              "slab,slab_name,result_case,row,element,global_error,local_error,error_density,"
              "new_size,envelope,governing_pass");
    const std::string vtu = (m_dir / "floor.vtu").string();
    ASSERT_EQ(Slabadapt({"export", P(), "--vtu", vtu}).code, 0);
    const std::string grid = fixture::ReadFile(vtu);
    for (const char* array :
         {"Name=\"governing_pass\"", "Name=\"load_case_201_new_size\"", "Name=\"new_size\""})
        EXPECT_NE(grid.find(array), std::string::npos) << array;
}

TEST_F(Envelope, EachIsAnEnvelopeOfEveryValidLoadCase) {
    const Outcome o = Slabadapt({"run", P(), "--target", "0.05", "--each", "--json"});
    ASSERT_EQ(o.code, 0) << o.err;
    for (const char* id : {"101", "102", "201", "202", "203"})
        EXPECT_NE(o.out.find(std::string("\"load_case\": ") + id), std::string::npos) << id;
    EXPECT_EQ(Slabadapt({"run", P(), "--target", "0.05"}).code, slabadapt::cli::kExitUsage);
    EXPECT_EQ(Slabadapt({"run", P(), "--target", "0.05", "--each", "--load-case", "101"}).code,
              slabadapt::cli::kExitUsage);
}

TEST_F(Envelope, TheCheckNamesACombinationThatCannotBeMade) {
    std::ofstream(fs::path(P() + ".toml"), std::ios::app)
        << "\n[[load_case]]\nid = 204\nindex = 6\ncombination = { 101 = 1.0, 999 = 1.0 }\n"
        << "\n[[load_case]]\nid = 205\nindex = 7\ncombination = { 201 = 1.0 }\n";
    const Outcome o = Slabadapt({"check", P(), "--load-case", "204,205,201"});
    EXPECT_EQ(o.code, slabadapt::cli::kExitDataError);
    EXPECT_NE(o.out.find("floor.toml:48: error: combination 204: load case 999 is not in P.toml"),
              std::string::npos)
        << o.out;
    EXPECT_NE(o.out.find("error: combination 205: load case 201 is itself a combination"),
              std::string::npos)
        << o.out;
    EXPECT_EQ(o.out.find("STRINTG0006"), std::string::npos) << "no second finding about its file";
    // A run of the envelope is refused by the same check.
    const Outcome run = Slabadapt({"run", P(), "--target", "0.05", "--envelope", "101", "204"});
    EXPECT_EQ(run.code, slabadapt::cli::kExitDataError);
}

TEST(EnvelopeMerge, LargestErrorsSmallestSizesAndTheGoverningPass) {
    const double nan = std::nan("");
    const auto merged = slabadapt::cli::MergeElementColumns({
        {{0.1, 0.2, 0.3, 2.0}, {nan, nan, nan, nan}, {0.5, 0.1, 0.1, 1.0}},
        {{0.2, 0.1, 0.1, 1.0}, {0.4, 0.4, 0.4, 3.0}, {0.5, 0.1, 0.1, 1.0}},
    });
    EXPECT_EQ(merged.columns[0], (std::array<double, 4>{0.2, 0.2, 0.3, 1.0}));
    EXPECT_EQ(merged.governing[0], 2);
    EXPECT_EQ(merged.columns[1], (std::array<double, 4>{0.4, 0.4, 0.4, 3.0})); // NaN left out
    EXPECT_EQ(merged.governing[1], 2);
    EXPECT_EQ(merged.governing[2], 1); // a tie: the first pass
    EXPECT_EQ(slabadapt::cli::MergeNodalSizes({{1.0, 0.0, 3.0}, {2.0, 5.0, 0.5}}),
              (std::vector<double>{1.0, 5.0, 0.5}));
}

} // namespace
