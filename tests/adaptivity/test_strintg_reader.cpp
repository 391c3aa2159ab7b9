// The integration-point data: STRINTG files read into one table per element, summed over load
// cases, and the getters the estimator asks.
#include "adaptivity/AdaptiveMeshData.h"
#include "host/framework/stage_clock.h"
#include "host/outcome/strintg_layout.h"
#include "tests/adaptivity/support/strintg.h"
#include "tests/support/locale.h"

#include <gtest/gtest.h>

#include <bit>
#include <clocale>
#include <cstdint>
#include <limits>
#include <stdexcept>

using slabadapt::test::AllColumns;
using slabadapt::test::Near;
using slabadapt::test::RecordLine;
using slabadapt::test::ReferenceRead;
using slabadapt::test::SameTable;
using slabadapt::test::ScratchDir;
using slabadapt::test::StrintgFile;
using slabadapt::test::StrintgText;
using slabadapt::test::WriteBytes;
using Access = CAdaptiveMeshDataTestAccess;

namespace {

constexpr auto c_forces = static_cast<Outcome64Enums::eIntegrationPointDataType>(0);
constexpr auto c_deformations = static_cast<Outcome64Enums::eIntegrationPointDataType>(1);

std::array<double, 8> Forces(const CAdaptiveMeshData& data, unsigned long e, unsigned long p) {
    std::array<double, 8> out{};
    data.GetIntegrationPointResults(e, p, c_forces, out.data());
    return out;
}

std::array<double, 8> Deformations(const CAdaptiveMeshData& data, unsigned long e,
                                   unsigned long p) {
    std::array<double, 8> out{};
    data.GetIntegrationPointResults(e, p, c_deformations, out.data());
    return out;
}

// The 19 values of a full record: coordinates, forces, deformations, distinct per point.
std::vector<double> FullValues(int element, int point) {
    std::vector<double> values;
    for (int k = 0; k < 19; ++k)
        values.push_back(element * 1000.0 + point * 100.0 + k + 0.25);
    return values;
}

// A full file of `elements` elements with `points` points each.
std::string FullFile(int elements, int points, std::string_view lineEnd = "\n") {
    std::vector<std::string> records;
    for (int e = 1; e <= elements; ++e)
        for (int p = 1; p <= points; ++p)
            records.push_back(RecordLine(e, p, FullValues(e, p)));
    return StrintgText(AllColumns(), records, lineEnd);
}

void ExpectFullPoint(const CAdaptiveMeshData& data, int element, int point) {
    const auto v = FullValues(element, point);
    const auto e = static_cast<unsigned long>(element - 1);
    const auto p = static_cast<unsigned long>(point - 1);
    const CKQPoint3D& xyz = data.GetIntegrationPointGlobalCoords(e, p);
    EXPECT_EQ(xyz.X(), v[0]);
    EXPECT_EQ(xyz.Y(), v[1]);
    EXPECT_EQ(xyz.Z(), v[2]);
    const auto forces = Forces(data, e, p);
    const auto deformations = Deformations(data, e, p);
    for (std::size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(forces[i], v[3 + i]) << "force " << i << " of element " << element;
        EXPECT_EQ(deformations[i], v[11 + i]) << "deformation " << i << " of element " << element;
    }
}

using slabadapt::test::CommaLocaleName;
using slabadapt::test::ScopedLocale;

} // namespace

// ---------------------------------------------------------------------------------------------
// CIntegrationPointData

TEST(IntegrationPointData, StartsAtTheOriginWithZeroValues) {
    CIntegrationPointData point;
    EXPECT_EQ(point.m_GlobalCoords, CKQPoint3D(0.0, 0.0, 0.0));
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(point.GetInternalForce(i), 0.0);
        EXPECT_EQ(point.GetDeformation(i), 0.0);
    }
}

TEST(IntegrationPointData, CopiesOutForcesAndDeformations) {
    CIntegrationPointData point;
    for (int i = 0; i < 8; ++i) {
        point.SetInternalForce(i, 1.0 + i);
        point.SetDeformation(i, -1.0 - i);
    }
    double forces[8] = {};
    double deformations[8] = {};
    point.GetInternalForces(forces);
    point.GetDeformations(deformations);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(forces[i], 1.0 + i);
        EXPECT_EQ(deformations[i], -1.0 - i);
    }
}

TEST(IntegrationPointData, NullOutputArrayThrowsInvalidArgument) {
    CIntegrationPointData point;
    EXPECT_THROW(point.GetInternalForces(nullptr), CInvalidArgException);
    EXPECT_THROW(point.GetDeformations(nullptr), CInvalidArgException);
}

TEST(IntegrationPointData, AddSumsValuesAndKeepsCoordinates) {
    CIntegrationPointData a;
    CIntegrationPointData b;
    a.m_GlobalCoords = CKQPoint3D(1.0, 2.0, 3.0);
    b.m_GlobalCoords = CKQPoint3D(7.0, 8.0, 9.0);
    for (int i = 0; i < 8; ++i) {
        a.SetInternalForce(i, i);
        b.SetInternalForce(i, 0.5);
        a.SetDeformation(i, 10.0 * i);
        b.SetDeformation(i, -0.25);
    }
    a += b;
    EXPECT_EQ(a.m_GlobalCoords, CKQPoint3D(1.0, 2.0, 3.0));
    for (int i = 0; i < 8; ++i) {
        EXPECT_TRUE(Near(a.GetInternalForce(i), i + 0.5, 1e-12, 1e-12));
        EXPECT_TRUE(Near(a.GetDeformation(i), 10.0 * i - 0.25, 1e-12, 1e-12));
    }
}

TEST(IntegrationPointData, IndexedAccessIsChecked) {
    CIntegrationPointData point;
    EXPECT_THROW(point.GetInternalForce(8), std::out_of_range);
    EXPECT_THROW(point.SetDeformation(-1, 1.0), std::out_of_range);
}

TEST(IntegrationPointData, ReadsFieldsInAscendingBitOrder) {
    // Columns mx (0x10), igx (0x1) and gxy (0x80000): the fields come as igx, mx, gxy.
    const long flags = 0x10 | 0x1 | 0x80000;
    const std::string line = RecordLine(1, 1, std::vector<std::string>{"1.5", "2.5", "3.5"});
    CIntegrationPointData wide;
    CIntegrationPointData narrow;
    wide.ReadFromLine(CString(line), flags);
    narrow.ReadFromLine(std::string_view(line), flags);
    for (const auto* point : {&wide, &narrow}) {
        EXPECT_EQ(point->m_GlobalCoords.x, 1.5);
        EXPECT_EQ(point->GetInternalForce(0), 2.5);
        EXPECT_EQ(point->GetDeformation(7), 3.5);
        EXPECT_EQ(point->m_GlobalCoords.y, 0.0);
        EXPECT_EQ(point->GetInternalForce(1), 0.0);
    }
}

TEST(IntegrationPointData, BitThreeTakesNoField) {
    const std::string line = RecordLine(1, 1, std::vector<std::string>{"4", "5"});
    CIntegrationPointData point;
    point.ReadFromLine(std::string_view(line), 0x8 | 0x4 | 0x10);
    EXPECT_EQ(point.m_GlobalCoords.z, 4.0);
    EXPECT_EQ(point.GetInternalForce(0), 5.0);
}

// Every field form the runtime's _wtof knows gives the same double from the ASCII fast path
// as from the framework's wide path, bit for bit.
TEST(IntegrationPointData, NarrowPathParsesExactlyAsTheRuntime) {
    const std::vector<std::string> fields = {"",
                                             "   ",
                                             "1",
                                             "-1",
                                             "+1",
                                             "1.5",
                                             "  -2.75E+03",
                                             "1e",
                                             "1e+",
                                             "1.e5",
                                             ".5",
                                             "5.",
                                             "-.5e-1",
                                             "+-5",
                                             "-+5",
                                             ".",
                                             "-.",
                                             ".e5",
                                             "1.5d3",
                                             "abc",
                                             "1,5",
                                             "0x10",
                                             "-0X1p4",
                                             "0x",
                                             "inf",
                                             "-INF",
                                             "Infinity",
                                             "nan",
                                             "-nan",
                                             "NaN(123)",
                                             "1e999",
                                             "-1e999",
                                             "1e-400",
                                             "4.9e-324",
                                             "2.2250738585072011e-308",
                                             "0.1",
                                             "123456789012345",
                                             "9007199254740993",
                                             "  \t+0.000001",
                                             "\v\f7",
                                             "1 2",
                                             "1e5x",
                                             "000000000000001",
                                             "-0",
                                             "-0.0e0",
                                             "1E-2",
                                             "7.0000000000000e-01"};
    for (const auto& text : fields) {
        const std::string line = std::string(16, ' ') + slabadapt::test::Field(text) + "     9";
        CIntegrationPointData wide;
        CIntegrationPointData narrow;
        wide.ReadFromLine(CString(line), 0x10 | 0x20);
        narrow.ReadFromLine(std::string_view(line), 0x10 | 0x20);
        EXPECT_TRUE(slabadapt::test::SamePoint(wide, narrow)) << "field \"" << text << "\"";
        EXPECT_EQ(narrow.GetInternalForce(1), 9.0) << "field \"" << text << "\"";
    }
}

// The forms the fast path leaves to the runtime or stops on early: hexadecimal numbers,
// infinities and NaNs with blanks and signs in front, exponents far outside the range, the
// longest digit runs a field holds, and text that ends a number part-way.
TEST(IntegrationPointData, NarrowPathMatchesTheRuntimeOnUnusualForms) {
    const std::vector<std::string> fields = {"0x1.8p1",
                                             "  -0x.8p-2",
                                             "\t0X1F",
                                             "+0x",
                                             "0xg",
                                             "0x1p-1074",
                                             "0x1p1024",
                                             "00x10",
                                             "-00X1",
                                             "0x1e3",
                                             "0x.p1",
                                             "infinity",
                                             "-infinit",
                                             "INFx",
                                             "+Inf",
                                             "\tinf",
                                             "nan(0x1f)",
                                             "NAN()",
                                             "nan(",
                                             "-nan(abc)",
                                             "in",
                                             "n",
                                             "i",
                                             "-i",
                                             "+n",
                                             " \t-nan",
                                             "ix",
                                             "Nx",
                                             "0e999999",
                                             "-0e-99999",
                                             "1e-99999",
                                             "1e+99999",
                                             "-1e999999999999",
                                             "00000000001e-3",
                                             "0.00000000001e5",
                                             "9999999999999e9",
                                             "999999999999999",
                                             "99999999999999.",
                                             "-.99999999999999",
                                             "1.797693134e308",
                                             "1.797693135e308",
                                             "2.4e-324",
                                             "2.5e-324",
                                             "2.2250738585e-308",
                                             "4.94065645e-324",
                                             "1e-0000000000",
                                             "1e22",
                                             "1e-22",
                                             "123456789e-30",
                                             "1E+",
                                             "e5",
                                             "+e5",
                                             "-.e",
                                             "1.2.3",
                                             "1e5e5",
                                             "1e+-5",
                                             "--1",
                                             " - 1",
                                             "1 ",
                                             "\r1",
                                             "\v-2.5",
                                             "\f.5",
                                             "1\t2",
                                             "+.e1",
                                             "0.",
                                             "-0.",
                                             "0000000000000.0",
                                             "7e0000000000001"};
    for (const auto& text : fields) {
        const std::string line =
            std::string(16, ' ') + slabadapt::test::Field(text) + slabadapt::test::Field("-3.25");
        CIntegrationPointData wide;
        CIntegrationPointData narrow;
        wide.ReadFromLine(CString(line), 0x1 | 0x2);
        narrow.ReadFromLine(std::string_view(line), 0x1 | 0x2);
        EXPECT_TRUE(slabadapt::test::SamePoint(wide, narrow)) << "field \"" << text << "\"";
        EXPECT_EQ(std::signbit(wide.m_GlobalCoords.x), std::signbit(narrow.m_GlobalCoords.x))
            << "field \"" << text << "\"";
        EXPECT_EQ(narrow.m_GlobalCoords.y, -3.25) << "field \"" << text << "\"";
    }
}

// The element number through the fast path and through _wtoi on the framework's line agree,
// whatever the first eight characters hold.
TEST(IntegrationPointData, ElementNumbersReadAsTheRuntimeReadsThem) {
    slabadapt::test::ScratchDir dir;
    const std::vector<std::string> heads = {
        "       3", "      +3", "  \t   4", "\v 5",      "00000006", "0007abc", "+ 8",
        "9.9",      "1e3",      "0x10",     "-0",        "   -2",    "",        "  ",
        "3 4",      "+",        "-",        "-99999999", " 2\r 3"};
    std::vector<std::string> records;
    for (const auto& head : heads)
        records.push_back(slabadapt::test::Field(head, 8) + "       1" +
                          slabadapt::test::Field("1.5"));
    records.push_back("       9       1            2.5");
    WriteBytes(StrintgFile(dir, 1), StrintgText({"mx"}, records));
    CAdaptiveMeshData data;
    CAdaptiveMeshData::IntegrationPointTable table;
    ASSERT_TRUE(Access::ReadSTRINTGFile(data, dir.Project(), 1, table));
    EXPECT_TRUE(SameTable(table, ReferenceRead(StrintgFile(dir, 1))));
    EXPECT_EQ(table.size(), 9u);
}

TEST(IntegrationPointData, NarrowPathMatchesTheRuntimeOnRandomFields) {
    std::mt19937 rng(20240611);
    const std::string alphabet = "0123456789012345678901234567890123456789 .....eeEE+-+-xXinfa\t";
    std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1);
    std::uniform_int_distribution<int> length(0, 17);
    std::uniform_real_distribution<double> real(-1e6, 1e6);
    for (int trial = 0; trial < 20000; ++trial) {
        std::string line(16, ' ');
        for (int f = 0; f < 3; ++f) {
            std::string field;
            if (trial % 3 == 0) {
                field = slabadapt::test::Number(real(rng), trial % 2 ? "%.9g" : "%15.7E");
            } else {
                const int n = length(rng);
                for (int c = 0; c < n; ++c)
                    field += alphabet[pick(rng)];
            }
            line += field.size() >= 15 ? field.substr(0, 15)
                                       : std::string(15 - field.size(), ' ') + field;
        }
        if (trial % 5 == 0)
            line.resize(static_cast<std::size_t>(length(rng)) * 3); // short records too
        CIntegrationPointData wide;
        CIntegrationPointData narrow;
        wide.ReadFromLine(CString(line), 0x1 | 0x800 | 0x10000);
        narrow.ReadFromLine(std::string_view(line), 0x1 | 0x800 | 0x10000);
        ASSERT_TRUE(slabadapt::test::SamePoint(wide, narrow)) << "line \"" << line << "\"";
    }
}

TEST(IntegrationPointData, NarrowPathMatchesTheRuntimeAcrossMagnitudes) {
    // Numbers of every size and digit count a solver may print, including those that leave
    // the exact fast path (more digits, exponents beyond 22, subnormals, overflow).
    std::mt19937_64 rng(42);
    std::uniform_int_distribution<int> exponent(-330, 310);
    std::uniform_real_distribution<double> mantissa(1.0, 10.0);
    const char* formats[] = {"%.8E", "%.6e", "%.14g", "%.9g", "%.3f", "%.12f", "%.0f", "%.16e"};
    for (int trial = 0; trial < 30000; ++trial) {
        const double value =
            (trial % 2 ? -1.0 : 1.0) * mantissa(rng) * std::pow(10.0, exponent(rng));
        std::string field = slabadapt::test::Number(value, formats[trial % 8]);
        if (field.size() > 15)
            field.resize(15);
        const std::string line = std::string(16, ' ') + slabadapt::test::Field(field);
        CIntegrationPointData wide;
        CIntegrationPointData narrow;
        wide.ReadFromLine(CString(line), 0x10);
        narrow.ReadFromLine(std::string_view(line), 0x10);
        ASSERT_TRUE(slabadapt::test::SamePoint(wide, narrow)) << "field \"" << field << "\"";
    }
    for (const char* digits :
         {"123456789012345", "0.0000000000001", "900719925474099", "9007199254740993", "1e22",
          "1e23", "9.999999999e22", "1e-22", "1e-23", "1e+000000000005", "123456789.12345",
          "0.1e-21", "4.9e-324", "1.8e308", "2e308"}) {
        const std::string line = std::string(16, ' ') + slabadapt::test::Field(digits);
        CIntegrationPointData wide;
        CIntegrationPointData narrow;
        wide.ReadFromLine(CString(line), 0x10);
        narrow.ReadFromLine(std::string_view(line), 0x10);
        EXPECT_TRUE(slabadapt::test::SamePoint(wide, narrow)) << "field \"" << digits << "\"";
    }
}

TEST(IntegrationPointData, SolverLayoutFieldsParseAsTheRuntime) {
    // The layouts solvers write (eight decimals, or seven as slabadapt writes imported results)
    // are read by their fixed positions: every exponent they can hold
    // (those beyond the exact powers of ten included), both signs of zero, both letters, and
    // the same fields spoilt one character at a time, against the runtime.
    std::mt19937_64 rng(7);
    std::uniform_int_distribution<int> digit(0, 9);
    std::uniform_int_distribution<int> exponent(0, 99);
    std::uniform_int_distribution<int> position(0, 14);
    const std::string spoilers = "+- .eE0x9\t";
    std::uniform_int_distribution<std::size_t> spoiler(0, spoilers.size() - 1);
    int solverFields = 0;
    for (int trial = 0; trial < 40000; ++trial) {
        const int decimals = trial % 6 < 3 ? 8 : 7;
        std::string field = decimals == 7 ? " " : "";
        field += trial % 2 ? "-" : " ";
        field += static_cast<char>('0' + (trial % 7 == 0 ? 0 : digit(rng)));
        field += '.';
        for (int i = 0; i < decimals; ++i)
            field += static_cast<char>('0' + (trial % 7 == 0 ? 0 : digit(rng)));
        field += trial % 3 ? 'E' : 'e';
        field += trial % 4 < 2 ? '+' : '-';
        const int e = exponent(rng);
        field += static_cast<char>('0' + e / 10);
        field += static_cast<char>('0' + e % 10);
        if (trial % 5 == 4)
            field[static_cast<std::size_t>(position(rng))] = spoilers[spoiler(rng)];
        ASSERT_EQ(field.size(), 15u);
        solverFields += strintg::IsSolverField(field) ? 1 : 0;
        const std::string line = std::string(16, ' ') + field;
        CIntegrationPointData wide;
        CIntegrationPointData narrow;
        wide.ReadFromLine(CString(line), 0x10);
        narrow.ReadFromLine(std::string_view(line), 0x10);
        ASSERT_TRUE(slabadapt::test::SamePoint(wide, narrow)) << "field \"" << field << "\"";
    }
    EXPECT_GT(solverFields, 32000); // the fixed positions were taken, not only the general path
}

// ---------------------------------------------------------------------------------------------
// Header columns

TEST(StrintgHeader, EveryColumnNameHasItsBit) {
    const std::pair<const wchar_t*, long> names[] = {
        {L"igx", 0x1},     {L"igy", 0x2},    {L"igz", 0x4},    {L"mx", 0x10},
        {L"my", 0x20},     {L"mxy", 0x40},   {L"qx", 0x80},    {L"qy", 0x100},
        {L"nx", 0x200},    {L"ny", 0x400},   {L"nxy", 0x800},  {L"kx", 0x1000},
        {L"ky", 0x2000},   {L"kxy", 0x4000}, {L"gxz", 0x8000}, {L"gyz", 0x10000},
        {L"qyz", 0x10000}, {L"ex", 0x20000}, {L"ey", 0x40000}, {L"gxy", 0x80000}};
    for (const auto& [name, flag] : names)
        EXPECT_EQ(Access::GetPropertyFlagFromName(CString(name)), flag) << CString(name);
    EXPECT_EQ(Access::GetPropertyFlagFromName(CString(L"  GxY \t")), 0x80000);
    EXPECT_EQ(Access::GetPropertyFlagFromName(CString(L"m x")), 0);
    EXPECT_EQ(Access::GetPropertyFlagFromName(CString(L"mxx")), 0);
    EXPECT_EQ(Access::GetPropertyFlagFromName(CString(L"")), 0);
    EXPECT_EQ(Access::GetPropertyFlagFromName(CString(L"ELEM")), 0);
}

TEST(StrintgHeader, AllColumnsGiveEveryBitButThree) {
    long flags = 0;
    Access::GetPropertyFlags(CString(slabadapt::test::HeaderLine(AllColumns())), flags);
    EXPECT_EQ(flags, 0xFFFF7L);
}

TEST(StrintgHeader, OnlyMxAndNxInAnyCaseGive0x210) {
    long flags = 0;
    Access::GetPropertyFlags(CString(slabadapt::test::HeaderLine({" MX ", "   Nx"})), flags);
    EXPECT_EQ(flags, 0x210L);
}

TEST(StrintgHeader, ColumnsStartAtCharacter20) {
    long flags = 0;
    // "mx" inside the first 20 characters is a label, not a column; the last field is short.
    Access::GetPropertyFlags(
        CString(L"mx        my        " + std::wstring(13, L' ') + L"ky" + L"  gxy"), flags);
    EXPECT_EQ(flags, 0x2000L | 0x80000L);
    long none = 0;
    Access::GetPropertyFlags(CString(L"  mx  my  mxy"), none);
    EXPECT_EQ(none, 0);
}

// ---------------------------------------------------------------------------------------------
// Reading files

class StrintgReader : public ::testing::Test {
protected:
    ScratchDir dir;
    CAdaptiveMeshData data;

    void Write(unsigned long loadCase, std::string_view text) {
        WriteBytes(StrintgFile(dir, loadCase), text);
    }
    bool Prepare(std::vector<long> loadCases) {
        return data.PrepareResultsOnIntegrationPoints(loadCases, dir.Project());
    }
    const CAdaptiveMeshData::IntegrationPointTable& Table() const { return Access::Results(data); }
};

TEST_F(StrintgReader, LoadCaseSevenReadsTheFileEndingIn0007) {
    Write(7, FullFile(2, 4));
    Write(1, FullFile(3, 4));
    ASSERT_TRUE(Prepare({7}));
    EXPECT_EQ(Table().size(), 2u);
    ExpectFullPoint(data, 2, 4);
}

TEST_F(StrintgReader, LoadCaseZeroReadsTheFileEndingIn0000) {
    Write(0, FullFile(1, 3));
    ASSERT_TRUE(Prepare({0}));
    EXPECT_EQ(data.GetCountOfIntegrationPoints(0), 3);
}

TEST_F(StrintgReader, WideLoadCaseNumbersArePrintedInFull) {
    WriteBytes(dir / "P.STRINTG12345", FullFile(1, 4));
    ASSERT_TRUE(Prepare({12345}));
    EXPECT_EQ(data.GetCountOfIntegrationPoints(0), 4);
    EXPECT_FALSE(Prepare({1234})); // P.STRINTG1234 does not exist
}

TEST_F(StrintgReader, ReadsEveryColumnOfEveryPoint) {
    Write(1, FullFile(3, 4));
    ASSERT_TRUE(Prepare({1}));
    ASSERT_EQ(Table().size(), 3u);
    for (int e = 1; e <= 3; ++e)
        for (int p = 1; p <= 4; ++p)
            ExpectFullPoint(data, e, p);
}

TEST_F(StrintgReader, OnlyMxAndNxColumnsFillMxAndNx) {
    Write(1, StrintgText({"  MX ", " nX"},
                         {RecordLine(1, 1, std::vector<std::string>{"2.5", "-4.0"})}));
    ASSERT_TRUE(Prepare({1}));
    const auto forces = Forces(data, 0, 0);
    const auto deformations = Deformations(data, 0, 0);
    const std::array<double, 8> expectedForces = {2.5, 0, 0, 0, 0, -4.0, 0, 0};
    EXPECT_EQ(forces, expectedForces);
    EXPECT_EQ(deformations, (std::array<double, 8>{}));
    EXPECT_EQ(data.GetIntegrationPointGlobalCoords(0, 0), CKQPoint3D(0, 0, 0));
}

TEST_F(StrintgReader, QyzColumnFillsTheFifthDeformation) {
    Write(1, StrintgText({"kx", "qyz", "gxy"},
                         {RecordLine(1, 1, std::vector<double>{1.0, 2.0, 3.0})}));
    ASSERT_TRUE(Prepare({1}));
    const auto d = Deformations(data, 0, 0);
    EXPECT_EQ(d[0], 1.0);
    EXPECT_EQ(d[4], 2.0);
    EXPECT_EQ(d[7], 3.0);
    EXPECT_EQ(d[3], 0.0);
}

TEST_F(StrintgReader, ColumnsInAnyOrderAndCaseAreReadInBitOrder) {
    // The header order does not matter: fields always follow the bit order of the set.
    std::vector<std::string> shuffled = {"GXY", "Igz", "mX", "gyz", "IGX", "Qy", "ex"};
    const std::vector<double> inBitOrder = {1, 2, 3, 4, 5, 6, 7}; // igx igz mx qy gyz ex gxy
    Write(1, StrintgText(shuffled, {RecordLine(1, 1, inBitOrder)}));
    ASSERT_TRUE(Prepare({1}));
    const auto& xyz = data.GetIntegrationPointGlobalCoords(0, 0);
    EXPECT_EQ(xyz.X(), 1.0);
    EXPECT_EQ(xyz.Y(), 0.0);
    EXPECT_EQ(xyz.Z(), 2.0);
    const auto f = Forces(data, 0, 0);
    EXPECT_EQ(f[0], 3.0);
    EXPECT_EQ(f[4], 4.0);
    const auto d = Deformations(data, 0, 0);
    EXPECT_EQ(d[4], 5.0);
    EXPECT_EQ(d[5], 6.0);
    EXPECT_EQ(d[7], 7.0);
}

TEST_F(StrintgReader, GyzAndQyzTogetherAreOneColumn) {
    // Both names select the same bit, so the set holds it once and takes one field.
    Write(1, StrintgText({"gyz", "qyz", "ex"}, {RecordLine(1, 1, std::vector<double>{8.0, 9.0})}));
    ASSERT_TRUE(Prepare({1}));
    const auto d = Deformations(data, 0, 0);
    EXPECT_EQ(d[4], 8.0);
    EXPECT_EQ(d[5], 9.0);
}

TEST_F(StrintgReader, FixedAndExponentNotationAreReadAlike) {
    Write(1, StrintgText({"mx", "my", "mxy", "qx", "qy"},
                         {RecordLine(1, 1,
                                     std::vector<std::string>{"1234.5678", "1.2345678E+03",
                                                              "-0.000125", "-1.25e-4", "+7"})}));
    ASSERT_TRUE(Prepare({1}));
    const auto f = Forces(data, 0, 0);
    EXPECT_EQ(f[0], 1234.5678);
    EXPECT_EQ(f[1], 1234.5678);
    EXPECT_EQ(f[2], -0.000125);
    EXPECT_EQ(f[3], -1.25e-4);
    EXPECT_EQ(f[4], 7.0);
}

TEST_F(StrintgReader, ShortRecordGivesZerosForMissingValues) {
    std::string record = RecordLine(1, 1, std::vector<double>{1.0, 2.0, 3.0, 4.0});
    record.resize(16 + 15 + 2); // the second field cut in its blanks, the others gone
    Write(1, StrintgText({"mx", "my", "mxy", "qx"}, {record, "       1"}));
    ASSERT_TRUE(Prepare({1}));
    ASSERT_EQ(data.GetCountOfIntegrationPoints(0), 2);
    const auto f = Forces(data, 0, 0);
    EXPECT_EQ(f[0], 1.0);
    EXPECT_EQ(f[1], 0.0); // "  " holds no digit yet
    EXPECT_EQ(f[2], 0.0);
    EXPECT_EQ(f[3], 0.0);
    EXPECT_EQ(Forces(data, 0, 1), (std::array<double, 8>{}));
}

TEST_F(StrintgReader, FieldCutAfterSomeDigitsKeepsThem) {
    std::string record = RecordLine(1, 1, std::vector<std::string>{"   123.456"});
    record.resize(16 + 14); // "        123.45"
    Write(1, StrintgText({"nxy"}, {record}));
    ASSERT_TRUE(Prepare({1}));
    EXPECT_EQ(Forces(data, 0, 0)[7], 123.45);
}

TEST_F(StrintgReader, SkippedElementLeavesAnEmptyEntry) {
    Write(1, StrintgText({"mx"}, {RecordLine(1, 1, std::vector<double>{1}),
                                  RecordLine(2, 1, std::vector<double>{2}),
                                  RecordLine(4, 1, std::vector<double>{4}),
                                  RecordLine(5, 1, std::vector<double>{5})}));
    ASSERT_TRUE(Prepare({1}));
    ASSERT_EQ(Table().size(), 5u);
    EXPECT_EQ(data.GetCountOfIntegrationPoints(2), 0);
    EXPECT_EQ(data.GetCountOfIntegrationPoints(4), 1);
    EXPECT_EQ(Forces(data, 4, 0)[0], 5.0);
    EXPECT_THROW(data.GetCountOfIntegrationPoints(5), std::out_of_range);
}

TEST_F(StrintgReader, ElementNumberGoingBackShrinksTheTable) {
    Write(1, StrintgText({"mx"}, {RecordLine(1, 1, std::vector<double>{1}),
                                  RecordLine(2, 1, std::vector<double>{2}),
                                  RecordLine(3, 1, std::vector<double>{3}),
                                  RecordLine(2, 2, std::vector<double>{22})}));
    ASSERT_TRUE(Prepare({1}));
    ASSERT_EQ(Table().size(), 2u);
    ASSERT_EQ(data.GetCountOfIntegrationPoints(1), 2);
    EXPECT_EQ(Forces(data, 1, 0)[0], 2.0);
    EXPECT_EQ(Forces(data, 1, 1)[0], 22.0);
}

// With the model's element count known, a wild element number costs nothing, and the model's
// elements read exactly as without the limit, resizes up and down included.
TEST_F(StrintgReader, ALimitKeepsTheModelsEntriesAndNothingBeyond) {
    const auto text = StrintgText(
        {"mx"},
        {RecordLine(1, 1, std::vector<double>{1}), RecordLine(2, 1, std::vector<double>{2}),
         RecordLine(100000, 1, std::vector<double>{9}), RecordLine(3, 1, std::vector<double>{3}),
         RecordLine(100000, 2, std::vector<double>{9}), RecordLine(2, 2, std::vector<double>{22}),
         RecordLine(4, 1, std::vector<double>{4}), RecordLine(7, 1, std::vector<double>{7})});
    Write(1, text);
    data.LimitElementNumbers(4);
    ASSERT_TRUE(Prepare({1}));
    EXPECT_EQ(Table().size(), 4u);
    // Without the limit, on a reader of its own: the same first four entries.
    CAdaptiveMeshData unlimited;
    ASSERT_TRUE(unlimited.PrepareResultsOnIntegrationPoints({1}, dir.Project()));
    ASSERT_EQ(Access::Results(unlimited).size(), 7u);
    for (unsigned long e = 0; e < 4; ++e) {
        ASSERT_EQ(data.GetCountOfIntegrationPoints(e), unlimited.GetCountOfIntegrationPoints(e))
            << e;
        for (long p = 0; p < data.GetCountOfIntegrationPoints(e); ++p)
            EXPECT_EQ(Forces(data, e, p)[0], Forces(unlimited, e, p)[0]);
    }
    EXPECT_EQ(data.GetCountOfIntegrationPoints(1), 2); // 2, then 22 after the way back
    EXPECT_EQ(data.GetCountOfIntegrationPoints(2), 0); // emptied by the way back to 2
}

TEST_F(StrintgReader, UnderALimitTheHighestElementNumberIsNoAllocation) {
    std::vector<std::string> records;
    for (int i = 0; i < 2000; ++i) // up and down: each way up would build 10^8 entries
        records.push_back(RecordLine(i % 2 == 0 ? 99999999 : 1, 1, std::vector<double>{1}));
    Write(1, StrintgText({"mx"}, records));
    data.LimitElementNumbers(1);
    ASSERT_TRUE(Prepare({1}));
    EXPECT_EQ(Table().size(), 1u);
    EXPECT_EQ(Table().capacity(), 1u);
    EXPECT_EQ(data.GetCountOfIntegrationPoints(0), 1000); // a way up keeps entry 0
}

TEST_F(StrintgReader, ElementSeparatedRecordsJoinTheirEntry) {
    // 1, 2, 1: the return to 1 drops entry 2 and appends to entry 1.
    Write(1, StrintgText({"mx"}, {RecordLine(1, 1, std::vector<double>{1}),
                                  RecordLine(2, 1, std::vector<double>{2}),
                                  RecordLine(1, 2, std::vector<double>{11})}));
    ASSERT_TRUE(Prepare({1}));
    ASSERT_EQ(Table().size(), 1u);
    ASSERT_EQ(data.GetCountOfIntegrationPoints(0), 2);
    EXPECT_EQ(Forces(data, 0, 1)[0], 11.0);
}

// An element number below 1 is no record: it neither resizes the table nor becomes the
// "previous" element (else the record after it would empty element 2 by resizing to 0 and back).
TEST_F(StrintgReader, LinesWithElementNumberBelowOneAreSkipped) {
    Write(1, StrintgText({"mx"}, {RecordLine(2, 1, std::vector<double>{1}), "",
                                  "   0    1      5.0", RecordLine(-3, 1, std::vector<double>{7}),
                                  "  abc", RecordLine(2, 2, std::vector<double>{2}), ""}));
    ASSERT_TRUE(Prepare({1}));
    ASSERT_EQ(Table().size(), 2u);
    EXPECT_EQ(data.GetCountOfIntegrationPoints(0), 0);
    ASSERT_EQ(data.GetCountOfIntegrationPoints(1), 2);
    EXPECT_EQ(Forces(data, 1, 1)[0], 2.0);
}

TEST_F(StrintgReader, PointNumbersAreIgnoredAndFileOrderKept) {
    Write(1, StrintgText({"mx"}, {RecordLine(1, 3, std::vector<double>{30}),
                                  RecordLine(1, 1, std::vector<double>{10}),
                                  RecordLine(1, 3, std::vector<double>{31})}));
    ASSERT_TRUE(Prepare({1}));
    ASSERT_EQ(data.GetCountOfIntegrationPoints(0), 3);
    EXPECT_EQ(Forces(data, 0, 0)[0], 30.0);
    EXPECT_EQ(Forces(data, 0, 1)[0], 10.0);
    EXPECT_EQ(Forces(data, 0, 2)[0], 31.0);
}

TEST_F(StrintgReader, ElementNumberIsTheFirstEightCharacters) {
    // "000001234" reads as 123; leading blanks and a sign are taken, trailing text is not.
    Write(1, StrintgText({"mx"}, {"      +2x       1      1.0"}));
    Write(2, StrintgText({}, {"000001234"}));
    ASSERT_TRUE(Prepare({1}));
    EXPECT_EQ(Table().size(), 2u);
    CAdaptiveMeshData::IntegrationPointTable table;
    Access::ReadSTRINTGFile(data, dir.Project(), 2, table);
    EXPECT_EQ(table.size(), 123u);
    EXPECT_EQ(table.back().size(), 1u);
}

TEST_F(StrintgReader, LinesOneTwoAndFourAreSkippedWhateverTheyHold) {
    const std::string record = RecordLine(1, 1, std::vector<double>{3.0});
    Write(1, record + "\n" + record + "\n" + slabadapt::test::HeaderLine({"my"}) + "\n" + record +
                 "\n" + record + "\n");
    ASSERT_TRUE(Prepare({1}));
    ASSERT_EQ(data.GetCountOfIntegrationPoints(0), 1);
    EXPECT_EQ(Forces(data, 0, 0)[1], 3.0);
}

TEST_F(StrintgReader, CrLfLineEndsAreReadLikeLf) {
    Write(1, FullFile(3, 3, "\r\n"));
    Write(2, FullFile(3, 3, "\n"));
    CAdaptiveMeshData::IntegrationPointTable crlf;
    CAdaptiveMeshData::IntegrationPointTable lf;
    EXPECT_TRUE(Access::ReadSTRINTGFile(data, dir.Project(), 1, crlf));
    EXPECT_TRUE(Access::ReadSTRINTGFile(data, dir.Project(), 2, lf));
    EXPECT_TRUE(SameTable(crlf, lf));
    ASSERT_TRUE(Prepare({1}));
    ExpectFullPoint(data, 3, 3);
}

TEST_F(StrintgReader, CrLfHeaderWithShortLastColumn) {
    // The header's last field "gxy" is short and followed by "\r": still the gxy column.
    Write(1, "t\r\nt\r\n" + std::string(20, ' ') + "             mx  gxy\r\nu\r\n" +
                 RecordLine(1, 1, std::vector<double>{5.0, 6.0}) + "\r\n");
    ASSERT_TRUE(Prepare({1}));
    EXPECT_EQ(Forces(data, 0, 0)[0], 5.0);
    EXPECT_EQ(Deformations(data, 0, 0)[7], 6.0);
}

TEST_F(StrintgReader, LastLineWithoutLineEndIsARecord) {
    std::string text = FullFile(2, 4);
    text.pop_back();
    Write(1, text);
    ASSERT_TRUE(Prepare({1}));
    ExpectFullPoint(data, 2, 4);
}

TEST_F(StrintgReader, FileWithoutRecordsGivesNoData) {
    Write(1, StrintgText(AllColumns(), {}));
    Write(2, "");
    EXPECT_FALSE(Prepare({1, 2}));
    EXPECT_TRUE(Table().empty());
}

TEST_F(StrintgReader, MissingFileGivesNoDataAndFalse) {
    CAdaptiveMeshData::IntegrationPointTable table(3);
    EXPECT_FALSE(Access::ReadSTRINTGFile(data, dir.Project(), 9, table));
    EXPECT_TRUE(table.empty());
    EXPECT_FALSE(Prepare({9}));
    EXPECT_FALSE(Prepare({}));
}

TEST_F(StrintgReader, FolderInPlaceOfTheFileGivesNoData) {
    std::filesystem::create_directory(StrintgFile(dir, 1));
    EXPECT_FALSE(Prepare({1}));
    EXPECT_TRUE(Table().empty());
}

TEST_F(StrintgReader, RecordsWithNonAsciiTextCountCharactersNotBytes) {
    // "ü" takes two bytes in UTF-8 but is one character, so the fields stay where they are;
    // a byte that is not UTF-8 (Latin-1 "é") is one character as well.
    std::string utf8 = RecordLine(1, 1, std::vector<double>{1.5, 2.5});
    utf8.replace(10, 1, "\xC3\xBC");
    std::string latin1 = RecordLine(1, 2, std::vector<double>{3.5, 4.5});
    latin1.replace(10, 1, "\xE9");
    Write(1, StrintgText({"mx", "my"}, {utf8, latin1}));
    ASSERT_TRUE(Prepare({1}));
    ASSERT_EQ(data.GetCountOfIntegrationPoints(0), 2);
    EXPECT_EQ(Forces(data, 0, 0)[0], 1.5);
    EXPECT_EQ(Forces(data, 0, 0)[1], 2.5);
    EXPECT_EQ(Forces(data, 0, 1)[0], 3.5);
    EXPECT_EQ(Forces(data, 0, 1)[1], 4.5);
}

TEST_F(StrintgReader, NonAsciiHeaderCountsCharacters) {
    Write(1, "a\nb\n" + std::string("\xC3\x9C") + std::string(19, ' ') + "             my\nc\n" +
                 RecordLine(1, 1, std::vector<double>{6.0}) + "\n");
    ASSERT_TRUE(Prepare({1}));
    EXPECT_EQ(Forces(data, 0, 0)[1], 6.0);
}

TEST_F(StrintgReader, LongLinesAndLargeFilesReadAcrossBufferBoundaries) {
    // 60 000 records (about 18 MB) and a title line longer than the read buffer.
    std::vector<std::string> records;
    for (int e = 1; e <= 15000; ++e)
        for (int p = 1; p <= 4; ++p)
            records.push_back(RecordLine(e, p, FullValues(e % 97, p)));
    std::string text = StrintgText(AllColumns(), records);
    text.insert(0, std::string(5'000'000, 'x'));
    Write(1, text);
    ASSERT_TRUE(Prepare({1}));
    EXPECT_TRUE(SameTable(Table(), ReferenceRead(StrintgFile(dir, 1))));
    ASSERT_EQ(Table().size(), 15000u);
}

// A long reading says how far it is (for the progress line), in bytes of the file's size.
TEST_F(StrintgReader, ALongReadingSaysHowFarItIs) {
    std::vector<std::string> records;
    for (int e = 1; e <= 20000; ++e)
        for (int p = 1; p <= 4; ++p)
            records.push_back(RecordLine(e, p, FullValues(e % 97, p)));
    Write(1, StrintgText(AllColumns(), records));
    const auto size = static_cast<std::uint64_t>(std::filesystem::file_size(StrintgFile(dir, 1)));
    host::framework::MarkStage("reading");
    ASSERT_TRUE(Prepare({1}));
    const host::framework::Progress progress = host::framework::CurrentProgress();
    EXPECT_EQ(progress.total, size);
    EXPECT_GT(progress.done, size / 2); // the last word: 65536 lines of 80 004 in
    EXPECT_LE(progress.done, size);
    host::framework::TakeStageMarks();
}

TEST_F(StrintgReader, MatchesTheLiteralReaderOnRandomFiles) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> elementStep(-2, 3);
    std::uniform_int_distribution<int> coin(0, 9);
    std::uniform_real_distribution<double> value(-1e4, 1e4);
    for (int file = 0; file < 40; ++file) {
        std::vector<std::string> header;
        for (const auto& name : AllColumns())
            if (coin(rng) < 6)
                header.push_back(coin(rng) < 5 ? name
                                               : std::string(" ") + char(std::toupper(name[0])) +
                                                     name.substr(1));
        if (coin(rng) < 3)
            header.push_back("qyz");
        std::vector<std::string> records;
        int element = 1;
        for (int r = 0; r < 300; ++r) {
            if (coin(rng) < 3)
                element = std::max(0, element + elementStep(rng));
            std::vector<double> values;
            for (std::size_t k = 0; k < header.size() + 1; ++k)
                values.push_back(value(rng));
            std::string line = RecordLine(element, r, values, coin(rng) < 5 ? "%15.7E" : "%15.4f");
            if (coin(rng) == 0)
                line.resize(static_cast<std::size_t>(coin(rng)) * 9);
            records.push_back(line);
        }
        Write(1, StrintgText(header, records, coin(rng) < 5 ? "\n" : "\r\n"));
        CAdaptiveMeshData::IntegrationPointTable table;
        Access::ReadSTRINTGFile(data, dir.Project(), 1, table);
        ASSERT_TRUE(SameTable(table, ReferenceRead(StrintgFile(dir, 1)))) << "file " << file;
    }
}

// ---------------------------------------------------------------------------------------------
// The numeric locale

TEST_F(StrintgReader, CommaLocaleReadsFullStopsAndIsRestored) {
    const char* comma = CommaLocaleName();
    ASSERT_NE(comma, nullptr)
        << "no locale with a decimal comma; scripts/install-deps.sh generates de_DE.UTF-8";
    ScopedLocale locale(comma);
    ASSERT_TRUE(locale.Ok());
    const std::string before = std::setlocale(LC_ALL, nullptr);
    ASSERT_EQ(std::string_view(std::localeconv()->decimal_point), ",");

    // In this locale the runtime reads "1.5" as 1; the reader must not.
    EXPECT_EQ(_wtof(L"1.5"), 1.0);
    Write(1, StrintgText({"mx", "my", "igx"},
                         {RecordLine(1, 1, std::vector<std::string>{"-2.5", "0.125", "1.5e2"})}));
    ASSERT_TRUE(Prepare({1}));
    EXPECT_EQ(data.GetIntegrationPointGlobalCoords(0, 0).X(), -2.5);
    EXPECT_EQ(Forces(data, 0, 0)[0], 0.125);
    EXPECT_EQ(Forces(data, 0, 0)[1], 150.0);

    EXPECT_EQ(std::string(std::setlocale(LC_ALL, nullptr)), before);
    EXPECT_EQ(std::string_view(std::localeconv()->decimal_point), ",");
}

TEST_F(StrintgReader, CommaLocaleIsRestoredWhenTheFileIsMissing) {
    const char* comma = CommaLocaleName();
    ASSERT_NE(comma, nullptr)
        << "no locale with a decimal comma; scripts/install-deps.sh generates de_DE.UTF-8";
    ScopedLocale locale(comma);
    ASSERT_TRUE(locale.Ok());
    const std::string before = std::setlocale(LC_ALL, nullptr);
    EXPECT_FALSE(Prepare({3}));
    EXPECT_EQ(std::string(std::setlocale(LC_ALL, nullptr)), before);
    EXPECT_EQ(std::string_view(std::localeconv()->decimal_point), ",");
}

TEST_F(StrintgReader, CommaLocaleIsRestoredWhenReadingThrows) {
    const char* comma = CommaLocaleName();
    ASSERT_NE(comma, nullptr)
        << "no locale with a decimal comma; scripts/install-deps.sh generates de_DE.UTF-8";
    ScopedLocale locale(comma);
    ASSERT_TRUE(locale.Ok());
    // The second load case has fewer points in element 1: the sum throws out of the reader.
    Write(1, FullFile(1, 4));
    Write(2, FullFile(1, 3));
    EXPECT_THROW(Prepare({1, 2}), std::out_of_range);
    EXPECT_EQ(std::string_view(std::localeconv()->decimal_point), ",");
}

TEST_F(StrintgReader, CommaInAFieldEndsTheNumber) {
    Write(1, StrintgText({"mx"}, {RecordLine(1, 1, std::vector<std::string>{"2,75"})}));
    ASSERT_TRUE(Prepare({1}));
    EXPECT_EQ(Forces(data, 0, 0)[0], 2.0);
}

// ---------------------------------------------------------------------------------------------
// Summing load cases

TEST_F(StrintgReader, LoadCasesAreSummedPointByPointKeepingFirstCoordinates) {
    Write(1, StrintgText({"igx", "mx", "gxy"},
                         {RecordLine(1, 1, std::vector<double>{1.0, 10.0, 0.5}),
                          RecordLine(2, 1, std::vector<double>{2.0, 20.0, 0.25})}));
    Write(2,
          StrintgText({"igx", "mx", "ky"}, {RecordLine(1, 1, std::vector<double>{9.0, 1.5, 3.0}),
                                            RecordLine(2, 1, std::vector<double>{9.0, 2.5, 4.0})}));
    ASSERT_TRUE(Prepare({1, 2, 1}));
    EXPECT_EQ(data.GetIntegrationPointGlobalCoords(0, 0).X(), 1.0);
    EXPECT_EQ(data.GetIntegrationPointGlobalCoords(1, 0).X(), 2.0);
    EXPECT_TRUE(Near(Forces(data, 0, 0)[0], 21.5, 1e-12, 1e-12));
    EXPECT_TRUE(Near(Forces(data, 1, 0)[0], 42.5, 1e-12, 1e-12));
    EXPECT_TRUE(Near(Deformations(data, 0, 0)[1], 3.0, 1e-12, 1e-12));
    EXPECT_TRUE(Near(Deformations(data, 0, 0)[7], 1.0, 1e-12, 1e-12));
    EXPECT_TRUE(Near(Deformations(data, 1, 0)[7], 0.5, 1e-12, 1e-12));
}

TEST_F(StrintgReader, DifferentElementCountsKeepOnlyTheFirst) {
    Write(1, StrintgText({"mx"}, {RecordLine(1, 1, std::vector<double>{1.0}),
                                  RecordLine(2, 1, std::vector<double>{2.0})}));
    Write(2, StrintgText({"mx"}, {RecordLine(1, 1, std::vector<double>{5.0}),
                                  RecordLine(2, 1, std::vector<double>{6.0}),
                                  RecordLine(3, 1, std::vector<double>{7.0})}));
    ASSERT_TRUE(Prepare({1, 2}));
    ASSERT_EQ(Table().size(), 2u);
    EXPECT_EQ(Forces(data, 0, 0)[0], 1.0);
    EXPECT_EQ(Forces(data, 1, 0)[0], 2.0);
}

TEST_F(StrintgReader, MissingLoadCasesAreSkipped) {
    Write(2, StrintgText({"mx"}, {RecordLine(1, 1, std::vector<double>{4.0})}));
    ASSERT_TRUE(Prepare({1, 2, 3}));
    EXPECT_EQ(Forces(data, 0, 0)[0], 4.0);
}

TEST_F(StrintgReader, FewerPointsInALaterLoadCaseThrowsOutOfRange) {
    Write(1, FullFile(2, 4));
    Write(2, FullFile(2, 3));
    EXPECT_THROW(Prepare({1, 2}), std::out_of_range);
}

TEST_F(StrintgReader, MorePointsInALaterLoadCaseAreIgnored) {
    Write(1, FullFile(1, 3));
    Write(2, FullFile(1, 4));
    ASSERT_TRUE(Prepare({1, 2}));
    EXPECT_EQ(data.GetCountOfIntegrationPoints(0), 3);
    EXPECT_TRUE(Near(Forces(data, 0, 2)[0], 2 * FullValues(1, 3)[3], 1e-12, 1e-12));
}

TEST_F(StrintgReader, PrepareStartsFromEmpty) {
    Write(1, FullFile(3, 4));
    Write(2, FullFile(1, 4));
    ASSERT_TRUE(Prepare({1}));
    ASSERT_TRUE(Prepare({2}));
    EXPECT_EQ(Table().size(), 1u);
    ExpectFullPoint(data, 1, 4);
    EXPECT_FALSE(Prepare({5}));
    EXPECT_TRUE(Table().empty());
}

TEST_F(StrintgReader, ClearEmptiesTheTable) {
    Write(1, FullFile(2, 4));
    ASSERT_TRUE(Prepare({1}));
    data.Clear();
    EXPECT_TRUE(Table().empty());
    EXPECT_THROW(data.GetCountOfIntegrationPoints(0), std::out_of_range);
}

TEST(AdaptiveMeshDataSum, AddToResultsCopiesIntoAnEmptyTableAndIgnoresAnEmptyOne) {
    CAdaptiveMeshData data;
    CAdaptiveMeshData::IntegrationPointTable table(2);
    table[1].emplace_back();
    table[1][0].SetInternalForce(3, 4.5);
    Access::AddToResults(data, {});
    EXPECT_TRUE(Access::Results(data).empty());
    Access::AddToResults(data, table);
    Access::AddToResults(data, table);
    ASSERT_EQ(Access::Results(data).size(), 2u);
    EXPECT_TRUE(Near(Access::Results(data)[1][0].GetInternalForce(3), 9.0, 1e-12, 1e-12));
    Access::AddToResults(data, CAdaptiveMeshData::IntegrationPointTable(3));
    EXPECT_TRUE(Near(Access::Results(data)[1][0].GetInternalForce(3), 9.0, 1e-12, 1e-12));
}

// ---------------------------------------------------------------------------------------------
// Getters

class MeshDataGetters : public StrintgReader {
protected:
    void SetUp() override {
        // Elements of 3, 4 and 6 points.
        std::vector<std::string> records;
        for (int p = 1; p <= 3; ++p)
            records.push_back(RecordLine(1, p, FullValues(1, p)));
        for (int p = 1; p <= 4; ++p)
            records.push_back(RecordLine(2, p, FullValues(2, p)));
        for (int p = 1; p <= 6; ++p)
            records.push_back(RecordLine(3, p, FullValues(3, p)));
        Write(1, StrintgText(AllColumns(), records));
        ASSERT_TRUE(Prepare({1}));
    }
};

TEST_F(MeshDataGetters, ElementTypeByPointCount) {
    EXPECT_EQ(static_cast<int>(data.GetElementType(0)), 0);
    EXPECT_EQ(static_cast<int>(data.GetElementType(1)), 1);
    EXPECT_EQ(static_cast<int>(data.GetElementType(2)), 0);
    EXPECT_EQ(data.GetCountOfIntegrationPoints(0), 3);
    EXPECT_EQ(data.GetCountOfIntegrationPoints(1), 4);
    EXPECT_EQ(data.GetCountOfIntegrationPoints(2), 6);
}

TEST_F(MeshDataGetters, WeightByElementType) {
    EXPECT_EQ(data.GetIntegrationPointWeight(0, 0), 0.3333333333333333);
    EXPECT_EQ(data.GetIntegrationPointWeight(1, 3), 1.0);
    EXPECT_EQ(data.GetIntegrationPointWeight(2, 5), 0.3333333333333333);
    // The point index does not matter.
    EXPECT_EQ(data.GetIntegrationPointWeight(1, 99), 1.0);
}

TEST_F(MeshDataGetters, LocalCoordinatesFromTheNaturalTables) {
    const double a = 1.0 / std::sqrt(3.0);
    EXPECT_EQ(data.GetIntegrationPointLocalCoords(1, 0), CKQPoint3D(-a, -a, 0));
    EXPECT_EQ(data.GetIntegrationPointLocalCoords(1, 1), CKQPoint3D(a, -a, 0));
    EXPECT_EQ(data.GetIntegrationPointLocalCoords(1, 2), CKQPoint3D(a, a, 0));
    EXPECT_EQ(data.GetIntegrationPointLocalCoords(1, 3), CKQPoint3D(-a, a, 0));
    EXPECT_EQ(data.GetIntegrationPointLocalCoords(0, 0), CKQPoint3D(1.0 / 6, 1.0 / 6, 2.0 / 3));
    EXPECT_EQ(data.GetIntegrationPointLocalCoords(0, 1), CKQPoint3D(2.0 / 3, 1.0 / 6, 1.0 / 6));
    EXPECT_EQ(data.GetIntegrationPointLocalCoords(0, 2), CKQPoint3D(1.0 / 6, 2.0 / 3, 1.0 / 6));
}

TEST_F(MeshDataGetters, LocalCoordinatesOfASixPointElementMarkNoPoint) {
    const CKQPoint3D& none = data.GetIntegrationPointLocalCoords(2, 0);
    EXPECT_EQ(none, CKQPoint3D(1e20, 1e20, 1e20));
    EXPECT_EQ(&none, &data.GetIntegrationPointLocalCoords(2, 5)); // one process-wide point
}

TEST_F(MeshDataGetters, LocalCoordinatesPastTheTableThrow) {
    EXPECT_THROW(data.GetIntegrationPointLocalCoords(1, 4), std::out_of_range);
    EXPECT_THROW(data.GetIntegrationPointLocalCoords(0, 3), std::out_of_range);
}

TEST_F(MeshDataGetters, GlobalCoordinatesAreTheRecordsOwn) {
    ExpectFullPoint(data, 3, 6);
    EXPECT_EQ(&data.GetIntegrationPointGlobalCoords(1, 2), &Table()[1][2].m_GlobalCoords);
}

TEST_F(MeshDataGetters, ResultsByType) {
    double out[8];
    std::fill(std::begin(out), std::end(out), -7.0);
    data.GetIntegrationPointResults(1, 0, static_cast<Outcome64Enums::eIntegrationPointDataType>(2),
                                    out);
    for (double v : out)
        EXPECT_EQ(v, -7.0); // another type leaves the array as it was
    EXPECT_THROW(data.GetIntegrationPointResults(1, 0, c_forces, nullptr), CInvalidArgException);
    EXPECT_THROW(data.GetIntegrationPointResults(
                     1, 0, static_cast<Outcome64Enums::eIntegrationPointDataType>(5), nullptr),
                 CInvalidArgException);
    ExpectFullPoint(data, 2, 1);
}

TEST_F(MeshDataGetters, IndicesOutsideTheTableThrowOutOfRange) {
    double out[8];
    EXPECT_THROW(data.GetIntegrationPointResults(3, 0, c_forces, out), std::out_of_range);
    EXPECT_THROW(data.GetIntegrationPointResults(0, 3, c_forces, out), std::out_of_range);
    EXPECT_THROW(data.GetIntegrationPointGlobalCoords(1, 4), std::out_of_range);
    EXPECT_THROW(data.GetElementType(3), std::out_of_range);
    EXPECT_THROW(data.GetIntegrationPointWeight(3, 0), std::out_of_range);
}

TEST(AdaptiveMeshDataConstants, CountOfResultsIsEightWithOrWithoutData) {
    CAdaptiveMeshData data;
    EXPECT_EQ(data.GetCountOfResults(), 8u);
    ScratchDir dir;
    WriteBytes(StrintgFile(dir, 1), FullFile(1, 4));
    ASSERT_TRUE(data.PrepareResultsOnIntegrationPoints({1}, dir.Project()));
    EXPECT_EQ(data.GetCountOfResults(), 8u);
}

TEST(AdaptiveMeshDataConstants, WeightsHaveTheirExactBits) {
    EXPECT_EQ(CAdaptiveMeshData::c_dWeightOfIntPointOnQuad, 1.0);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(CAdaptiveMeshData::c_dWeightOfIntPointOnTriangle),
              0x3FD5555555555555ULL);
}

TEST(AdaptiveMeshDataConstants, NaturalTablesAreMembersInOrder) {
    CAdaptiveMeshData data;
    const double a = 1.0 / std::sqrt(3.0);
    const auto& quad = Access::QuadCoords(data);
    EXPECT_EQ(quad[0], CKQPoint3D(-a, -a, 0));
    EXPECT_EQ(quad[2], CKQPoint3D(a, a, 0));
    const auto& triangle = Access::TriangleCoords(data);
    EXPECT_EQ(triangle[0].Z(), 2.0 / 3.0);
    EXPECT_EQ(triangle[1].X(), 2.0 / 3.0);
    EXPECT_EQ(triangle[2].Y(), 2.0 / 3.0);
    for (const auto& p : triangle)
        EXPECT_TRUE(Near(p.X() + p.Y() + p.Z(), 1.0, 1e-12, 1e-12));
}

TEST(AdaptiveMeshDataConstants, PropertyFlagValues) {
    EXPECT_EQ(CAdaptiveMeshData::ePF_igx, 0x1);
    EXPECT_EQ(CAdaptiveMeshData::ePF_Unused, 0x8);
    EXPECT_EQ(CAdaptiveMeshData::ePF_mx, 0x10);
    EXPECT_EQ(CAdaptiveMeshData::ePF_nxy, 0x800);
    EXPECT_EQ(CAdaptiveMeshData::ePF_kx, 0x1000);
    EXPECT_EQ(CAdaptiveMeshData::ePF_qyz, CAdaptiveMeshData::ePF_gyz);
    EXPECT_EQ(CAdaptiveMeshData::ePF_gxy, 0x80000);
}
