// The STRINTG writer: file name, the fixed columns the module's reader cuts, and read-back.

#include "cli/ccx/StrintgFile.h"
#include "tests/support/ccx.h"

#include <clocale>
#include <sstream>
#include <vector>

using namespace slabadapt::ccx;
using ccxtest::Close;

namespace {

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream s(text);
    for (std::string line; std::getline(s, line);)
        lines.push_back(line);
    return lines;
}

StrintgPoint Sample(double base) {
    StrintgPoint p;
    p.xyz = {base, base + 0.5, -0.25};
    for (std::size_t i = 0; i < 8; ++i) {
        p.forces[i] = base * 10.0 + static_cast<double>(i);
        p.deformations[i] = -1e-4 * (base + static_cast<double>(i));
    }
    return p;
}

} // namespace

TEST(StrintgFile, NameHasFourDigitsAndWiderIndicesInFull) {
    EXPECT_EQ(StrintgFileName("/x/plate", 7).string(), "/x/plate.STRINTG0007");
    EXPECT_EQ(StrintgFileName("/x/plate", 0).string(), "/x/plate.STRINTG0000");
    EXPECT_EQ(StrintgFileName("/x/plate", 12345).string(), "/x/plate.STRINTG12345");
}

TEST(StrintgFile, HeaderFieldsStartAtTwentyAndValuesAtSixteen) {
    ccxtest::TempDir dir;
    const std::vector<StrintgElement> table = {
        {Sample(1.0), Sample(2.0), Sample(3.0)},
        {Sample(4.0), Sample(5.0), Sample(6.0), Sample(7.0)}};
    const auto file = dir / "p.STRINTG0001";
    WriteStrintg(file, table, "title\nwith a line end", "description");
    const auto lines = Lines(ccxtest::ReadText(file));
    ASSERT_EQ(lines.size(), 4u + 7u);
    EXPECT_EQ(lines[0], "title with a line end");
    EXPECT_EQ(lines[1], "description");

    // Line 3: names in 15-character fields from character 20, in the reader's bit order.
    const char* names[] = {"igx", "igy", "igz", "mx",  "my",  "mxy", "qx", "qy", "nx", "ny",
                           "nxy", "kx",  "ky",  "kxy", "gxz", "gyz", "ex", "ey", "gxy"};
    ASSERT_EQ(lines[2].size(), 20u + 15u * 19u);
    for (std::size_t k = 0; k < 19; ++k) {
        std::string field = lines[2].substr(20 + 15 * k, 15);
        field.erase(0, field.find_first_not_of(' '));
        EXPECT_EQ(field, names[k]) << "field " << k;
    }

    // Records: element in characters 0-7, point in 8-15, values in 15-character fields.
    const std::string& rec = lines[4 + 3 + 2]; // element 2, point 3
    EXPECT_EQ(std::stol(rec.substr(0, 8)), 2);
    EXPECT_EQ(std::stol(rec.substr(8, 8)), 3);
    ASSERT_EQ(rec.size(), 16u + 15u * 19u);
    const StrintgPoint expected = Sample(6.0);
    EXPECT_TRUE(Close(std::stod(rec.substr(16, 15)), expected.xyz[0], 0, 1e-7));
    EXPECT_TRUE(Close(std::stod(rec.substr(16 + 15 * 3, 15)), expected.forces[0], 0, 1e-7));
    EXPECT_TRUE(Close(std::stod(rec.substr(16 + 15 * 18, 15)), expected.deformations[7], 0, 1e-7));
}

TEST(StrintgFile, ReadBackGivesTheValuesToSevenDigits) {
    ccxtest::TempDir dir;
    std::vector<StrintgElement> table = {{Sample(1.5), Sample(-2.0), Sample(1e-9)}};
    table[0][1].forces[3] = -0.0; // written without a minus sign
    const auto file = dir / "p.STRINTG0003";
    WriteStrintg(file, table, "t", "d");
    EXPECT_EQ(ccxtest::ReadText(file).find("-0.0000000E+00"), std::string::npos);
    const auto back = ReadStrintg(file);
    ASSERT_EQ(back.size(), 1u);
    ASSERT_EQ(back[0].size(), 3u);
    for (std::size_t p = 0; p < 3; ++p) {
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_TRUE(Close(back[0][p].xyz[c], table[0][p].xyz[c], 1e-300, 1e-7));
        for (std::size_t i = 0; i < 8; ++i) {
            EXPECT_TRUE(Close(back[0][p].forces[i], table[0][p].forces[i], 1e-300, 1e-7));
            EXPECT_TRUE(
                Close(back[0][p].deformations[i], table[0][p].deformations[i], 1e-300, 1e-7));
        }
    }
}

TEST(StrintgFile, DecimalSeparatorIsAFullStopWhateverTheLocale) {
    ccxtest::TempDir dir;
    const char* previous = std::setlocale(LC_ALL, nullptr);
    const std::string saved = previous ? previous : "C";
    // A locale with a decimal comma; the test machine installs de_DE (scripts/install-deps.sh).
    const bool german = std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr ||
                        std::setlocale(LC_ALL, "de_DE.utf8") != nullptr;
    const auto file = dir / "p.STRINTG0001";
    const std::vector<StrintgElement> table = {{Sample(1.25), Sample(2.0), Sample(3.0)}};
    WriteStrintg(file, table, "t", "d");
    std::setlocale(LC_ALL, saved.c_str());
    ASSERT_TRUE(german) << "the de_DE locale is not installed";
    const auto lines = Lines(ccxtest::ReadText(file));
    EXPECT_NE(lines[4].find("1.2500000E+00"), std::string::npos) << lines[4];
    EXPECT_EQ(lines[4].find(','), std::string::npos) << lines[4];
}
