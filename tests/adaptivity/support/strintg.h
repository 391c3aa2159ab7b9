#pragma once
// Test helpers for the results access layer: a scratch folder, STRINTG files written column by
// column, a reference reader that follows the file format literally through the framework's
// own text reader, and access to CAdaptiveMeshData's private parts.
#include "adaptivity/AdaptiveMeshData.h"

#include "tests/support/near.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

struct CAdaptiveMeshDataTestAccess {
    using Table = CAdaptiveMeshData::IntegrationPointTable;
    static const Table& Results(const CAdaptiveMeshData& data) { return data.m_Results; }
    static bool ReadSTRINTGFile(CAdaptiveMeshData& data, const CString& projectPath,
                                unsigned long loadCase, Table& table) {
        return data.ReadSTRINTGFile(projectPath, loadCase, table);
    }
    static void GetPropertyFlags(const CString& line, long& flags) {
        CAdaptiveMeshData::GetPropertyFlags(line, flags);
    }
    static CAdaptiveMeshData::ePropertyFlag GetPropertyFlagFromName(const CString& name) {
        return CAdaptiveMeshData::GetPropertyFlagFromName(name);
    }
    static void AddToResults(CAdaptiveMeshData& data, const Table& table) {
        data.AddToResults(table);
    }
    static const std::array<CKQPoint3D, 4>& QuadCoords(const CAdaptiveMeshData& d) {
        return d.m_QuadNaturalCoords;
    }
    static const std::array<CKQPoint3D, 3>& TriangleCoords(const CAdaptiveMeshData& d) {
        return d.m_TriangleNaturalCoords;
    }
};

namespace slabadapt::test {

// A fresh folder under the system's temporary folder, removed with everything in it.
class ScratchDir {
public:
    ScratchDir() {
        std::random_device seed;
        std::mt19937_64 rng(seed());
        for (;;) {
            m_path = std::filesystem::temp_directory_path() /
                     ("slabadapt-test-" + std::to_string(rng() % 1000000007ULL));
            if (std::filesystem::create_directory(m_path))
                break;
        }
    }
    ~ScratchDir() {
        std::error_code ec;
        std::filesystem::remove_all(m_path, ec);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    std::filesystem::path operator/(const std::string& name) const { return m_path / name; }
    // A project path (without extension) in this folder, as the host gives it.
    CString Project(const std::string& name = "P") const {
        return CString((m_path / name).string());
    }

private:
    std::filesystem::path m_path;
};

inline void WriteBytes(const std::filesystem::path& file, std::string_view bytes) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(out.good()) << "cannot write " << file;
}

inline std::string ReadBytes(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The file of a load case: P.STRINTG0007 and so on.
inline std::filesystem::path StrintgFile(const ScratchDir& dir, unsigned long loadCase,
                                         const std::string& project = "P") {
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, ".STRINTG%0*lu", 4, loadCase);
    return dir / (project + suffix);
}

// Every column of a full STRINTG file, in file order.
inline const std::vector<std::string>& AllColumns() {
    static const std::vector<std::string> names = {"igx", "igy", "igz", "mx",  "my", "mxy", "qx",
                                                   "qy",  "nx",  "ny",  "nxy", "kx", "ky",  "kxy",
                                                   "gxz", "gyz", "ex",  "ey",  "gxy"};
    return names;
}

// Pads or cuts text to exactly `width` characters, right-aligned.
inline std::string Field(std::string_view text, std::size_t width = 15) {
    if (text.size() >= width)
        return std::string(text.substr(0, width));
    return std::string(width - text.size(), ' ') + std::string(text);
}

// Line 3 of a file: 20 characters of labels, then one 15-character field per column name.
inline std::string HeaderLine(const std::vector<std::string>& names) {
    std::string line = "    ELEM      IP    ";
    for (const auto& name : names)
        line += Field(name);
    return line;
}

inline std::string Number(double value, const char* format = "%15.7E") {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// A record line: element and point number in 8 characters each, then the value fields.
inline std::string RecordLine(int element, int point, const std::vector<std::string>& fields) {
    char head[32];
    std::snprintf(head, sizeof head, "%8d%8d", element, point);
    std::string line = head;
    for (const auto& field : fields)
        line += Field(field);
    return line;
}

inline std::string RecordLine(int element, int point, const std::vector<double>& values,
                              const char* format = "%15.7E") {
    std::vector<std::string> fields;
    for (double v : values)
        fields.push_back(Number(v, format));
    return RecordLine(element, point, fields);
}

// A whole file: two title lines, the header, a line of units, then the records.
inline std::string StrintgText(const std::vector<std::string>& header,
                               const std::vector<std::string>& records,
                               std::string_view lineEnd = "\n") {
    std::string text;
    auto add = [&](std::string_view line) {
        text += line;
        text += lineEnd;
    };
    add("Integration point results");
    add("Load case");
    add(HeaderLine(header));
    add("--------------------------------------------------------------------------------");
    for (const auto& record : records)
        add(record);
    return text;
}

// The table as the file format describes it, read through CStdioFile, CString, _wtoi and
// _wtof with no shortcut: the yardstick of the fast reader.
inline CAdaptiveMeshData::IntegrationPointTable ReferenceRead(const std::filesystem::path& file) {
    CAdaptiveMeshData::IntegrationPointTable table;
    CStdioFile in;
    if (!in.Open(CString(file.string()), CFile::modeRead | CFile::typeText))
        return table;
    const char* previousLocale = std::setlocale(LC_NUMERIC, nullptr);
    std::string saved = previousLocale != nullptr ? previousLocale : "C";
    std::setlocale(LC_NUMERIC, "C");
    long flags = 0;
    int previous = 0;
    CString line;
    for (long number = 1; in.ReadString(line); ++number) {
        if (number == 3)
            CAdaptiveMeshDataTestAccess::GetPropertyFlags(line, flags);
        if (number < 5)
            continue;
        const int element = _wtoi(line.Left(8).GetString());
        if (element < 1)
            continue;
        if (element != previous) {
            table.resize(static_cast<std::size_t>(element));
            previous = element;
        }
        CIntegrationPointData point;
        point.ReadFromLine(line, flags);
        table[static_cast<std::size_t>(element - 1)].push_back(point);
    }
    std::setlocale(LC_NUMERIC, saved.c_str());
    return table;
}

// Bitwise equality that also holds between NaNs of the same bits.
inline bool SameDouble(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

inline ::testing::AssertionResult SamePoint(const CIntegrationPointData& a,
                                            const CIntegrationPointData& b) {
    const double av[] = {a.m_GlobalCoords.x, a.m_GlobalCoords.y, a.m_GlobalCoords.z};
    const double bv[] = {b.m_GlobalCoords.x, b.m_GlobalCoords.y, b.m_GlobalCoords.z};
    for (int i = 0; i < 3; ++i)
        if (!SameDouble(av[i], bv[i]))
            return ::testing::AssertionFailure()
                   << "coordinate " << i << ": " << av[i] << " vs " << bv[i];
    for (int i = 0; i < 8; ++i) {
        if (!SameDouble(a.m_dInternalForces[static_cast<std::size_t>(i)],
                        b.m_dInternalForces[static_cast<std::size_t>(i)]))
            return ::testing::AssertionFailure()
                   << "force " << i << ": " << a.m_dInternalForces[static_cast<std::size_t>(i)]
                   << " vs " << b.m_dInternalForces[static_cast<std::size_t>(i)];
        if (!SameDouble(a.m_dDeformations[static_cast<std::size_t>(i)],
                        b.m_dDeformations[static_cast<std::size_t>(i)]))
            return ::testing::AssertionFailure()
                   << "deformation " << i << ": " << a.m_dDeformations[static_cast<std::size_t>(i)]
                   << " vs " << b.m_dDeformations[static_cast<std::size_t>(i)];
    }
    return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult SameTable(const CAdaptiveMeshData::IntegrationPointTable& a,
                                            const CAdaptiveMeshData::IntegrationPointTable& b) {
    if (a.size() != b.size())
        return ::testing::AssertionFailure() << "element counts " << a.size() << " vs " << b.size();
    for (std::size_t e = 0; e < a.size(); ++e) {
        if (a[e].size() != b[e].size())
            return ::testing::AssertionFailure()
                   << "element " << e << ": point counts " << a[e].size() << " vs " << b[e].size();
        for (std::size_t p = 0; p < a[e].size(); ++p) {
            auto same = SamePoint(a[e][p], b[e][p]);
            if (!same)
                return same << " (element " << e << ", point " << p << ")";
        }
    }
    return ::testing::AssertionSuccess();
}

using slabadapt::test::Near;

} // namespace slabadapt::test
