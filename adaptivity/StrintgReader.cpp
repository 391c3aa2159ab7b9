// Reading the STRINTG files of a project into the integration-point table, and summing the
// tables of several load cases.
#include "adaptivity/AdaptiveMeshData.h"
#include "adaptivity/LineReader.h"
#include "adaptivity/StrintgFormat.h"

#include "host/framework/stage_clock.h"
#include "host/win32/win32.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

#include <sys/stat.h>

using namespace strintg;

namespace {

// Value slots of a record: 0..2 coordinates, 3..10 forces, 11..18 deformations; slot k is
// selected by bit k of the property set, except that bit 3 selects nothing.
constexpr int c_nSlots = 19;
constexpr int c_nBits = 20;

// The property set as the list of slots its fields fill, in field order.
struct FieldLayout {
    std::array<int, c_nSlots> slots{};
    int count = 0;
};

FieldLayout LayoutOf(long flags) {
    FieldLayout layout;
    for (int bit = 0; bit < c_nBits; ++bit) {
        if (bit == 3 || (flags & (1L << bit)) == 0)
            continue;
        layout.slots[static_cast<std::size_t>(layout.count++)] = bit < 3 ? bit : bit - 1;
    }
    return layout;
}

void StoreSlot(CIntegrationPointData& point, int slot, double value) {
    if (slot == 0)
        point.m_GlobalCoords.x = value;
    else if (slot == 1)
        point.m_GlobalCoords.y = value;
    else if (slot == 2)
        point.m_GlobalCoords.z = value;
    else if (slot < 3 + CIntegrationPointData::c_nValuesPerGroup)
        point.m_dInternalForces[static_cast<std::size_t>(slot - 3)] = value;
    else
        point.m_dDeformations[static_cast<std::size_t>(slot - 11)] = value;
}

// Sets the numeric locale to "C" for the lifetime of the object and puts the previous one
// back on every way out, so that a full stop is the decimal separator while a file is read.
class CNumericLocaleC {
public:
    CNumericLocaleC() {
        const char* current = std::setlocale(LC_NUMERIC, nullptr);
        m_saved = current != nullptr ? current : "C";
        std::setlocale(LC_NUMERIC, "C");
    }
    ~CNumericLocaleC() { std::setlocale(LC_NUMERIC, m_saved.c_str()); }
    CNumericLocaleC(const CNumericLocaleC&) = delete;
    CNumericLocaleC& operator=(const CNumericLocaleC&) = delete;

private:
    std::string m_saved;
};

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// Reads the value fields of a record line into a point, one field per slot of the layout.
void ParseRecord(std::string_view line, const FieldLayout& layout, CIntegrationPointData& point) {
    for (int k = 0; k < layout.count; ++k) {
        const std::string_view field =
            FieldAt(line, c_nValuesStart + k * c_nFieldWidth, c_nFieldWidth);
        StoreSlot(point, layout.slots[static_cast<std::size_t>(k)], ParseDouble(field));
    }
}

bool IsAscii(std::string_view line) {
    unsigned char any = 0;
    for (char c : line)
        any |= static_cast<unsigned char>(c);
    return (any & 0x80u) == 0;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// CIntegrationPointData

void CIntegrationPointData::ReadFromLine(const CString& line, long flags) {
    const FieldLayout layout = LayoutOf(flags);
    for (int k = 0; k < layout.count; ++k) {
        const CString field = line.Mid(c_nValuesStart + k * c_nFieldWidth, c_nFieldWidth);
        StoreSlot(*this, layout.slots[static_cast<std::size_t>(k)], _wtof(field.GetString()));
    }
}

void CIntegrationPointData::ReadFromLine(std::string_view line, long flags) {
    ParseRecord(line, LayoutOf(flags), *this);
}

// ---------------------------------------------------------------------------------------------
// CAdaptiveMeshData: reading and summing

bool CAdaptiveMeshData::PrepareResultsOnIntegrationPoints(const std::vector<long>& loadCases,
                                                          CString projectPath) {
    Clear();
    bool result = false;
    for (long loadCase : loadCases) {
        IntegrationPointTable fresh;
        ReadSTRINTGFile(projectPath, static_cast<unsigned long>(loadCase), fresh);
        if (fresh.empty())
            continue;
        if (m_Results.empty())
            m_Results = std::move(fresh); // what AddToResults would copy: spare the copy
        else
            AddToResults(fresh);
        result = true;
    }
    return result;
}

bool CAdaptiveMeshData::ReadSTRINTGFile(const CString& projectPath, unsigned long loadCase,
                                        IntegrationPointTable& table) {
    table.clear();
    CNumericLocaleC numericLocale;

    CString number;
    number.Format(L"%0*lu", 4, loadCase);
    const CString fileName = projectPath + L".STRINTG" + number;
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(fileName.ToPath().c_str(), "rb"));
    if (!file)
        return false;

    // The records of one element are gathered apart and put into the table in one piece when
    // the element changes, so each element's vector is allocated once at its exact size.
    std::vector<CIntegrationPointData> pending;
    int currentElement = 0; // 0: no record yet
    const std::size_t limit =
        m_ElementLimit > 0 ? m_ElementLimit : std::numeric_limits<std::size_t>::max();
    auto flush = [&] {
        if (pending.empty())
            return;
        auto& entry = table[static_cast<std::size_t>(currentElement - 1)];
        if (entry.empty())
            entry.assign(pending.begin(), pending.end());
        else
            entry.insert(entry.end(), pending.begin(), pending.end());
        pending.clear();
    };

    long flags = 0;
    FieldLayout layout = LayoutOf(flags);
    CIntegrationPointData point;
    CLineReader reader(file.get());
    // How far the reading is, for a progress display: the bytes read of the file's size.
    struct stat status {};
    const std::uint64_t size = ::fstat(::fileno(file.get()), &status) == 0
                                   ? static_cast<std::uint64_t>(status.st_size)
                                   : 0;
    std::string_view bytes;
    for (long lineNumber = 1; reader.Next(bytes); ++lineNumber) {
        if ((lineNumber & 0xFFFF) == 0)
            host::framework::MarkProgress(reader.Consumed(), size);
        if (lineNumber == c_nHeaderLine) {
            GetPropertyFlags(CString(host::win32::Utf8ToWide(bytes)), flags);
            layout = LayoutOf(flags);
            continue;
        }
        if (lineNumber < c_nFirstRecordLine)
            continue;

        // Plain ASCII lines are read from their bytes; anything else is decoded as the
        // framework's reader decodes it, as character positions then differ from byte positions.
        // Every record writes each field of the header's columns (a missing one as 0), so one
        // point serves them all: the values of columns the header lacks stay 0 from its start.
        int element = 0;
        if (IsAscii(bytes)) {
            element = ParseInt(FieldAt(bytes, 0, c_nElementNumberWidth));
            if (element < 1)
                continue;
            ParseRecord(bytes, layout, point);
        } else {
            const CString line(host::win32::Utf8ToWide(bytes));
            element = _wtoi(line.Left(c_nElementNumberWidth).GetString());
            if (element < 1)
                continue;
            point.ReadFromLine(line, flags);
        }
        // An element number below 1 (a blank line, say) is no record: it neither sizes the
        // table nor counts as the previous element.
        if (element != currentElement) {
            flush();
            table.resize(std::min(static_cast<std::size_t>(element), limit));
            currentElement = element;
        }
        if (static_cast<std::size_t>(element) <= limit)
            pending.push_back(point);
    }
    if (reader.Failed()) {
        // A file that cannot be read to its end counts as unreadable: no data from it.
        table.clear();
        return false;
    }
    flush();
    table.shrink_to_fit();
    return true;
}

void CAdaptiveMeshData::GetPropertyFlags(const CString& line, long& flags) {
    for (int start = c_nHeaderFieldsStart; start < line.GetLength(); start += c_nFieldWidth)
        flags |= GetPropertyFlagFromName(line.Mid(start, c_nFieldWidth));
}

CAdaptiveMeshData::ePropertyFlag CAdaptiveMeshData::GetPropertyFlagFromName(const CString& name) {
    struct Entry {
        const wchar_t* name;
        ePropertyFlag flag;
    };
    static constexpr Entry c_names[] = {
        {L"igx", ePF_igx}, {L"igy", ePF_igy}, {L"igz", ePF_igz}, {L"mx", ePF_mx},
        {L"my", ePF_my},   {L"mxy", ePF_mxy}, {L"qx", ePF_qx},   {L"qy", ePF_qy},
        {L"nx", ePF_nx},   {L"ny", ePF_ny},   {L"nxy", ePF_nxy}, {L"kx", ePF_kx},
        {L"ky", ePF_ky},   {L"kxy", ePF_kxy}, {L"gxz", ePF_gxz}, {L"gyz", ePF_gyz},
        {L"qyz", ePF_qyz}, {L"ex", ePF_ex},   {L"ey", ePF_ey},   {L"gxy", ePF_gxy},
    };
    CString key(name);
    key.Trim();
    key.MakeLower();
    for (const Entry& entry : c_names) {
        if (key.Str() == entry.name)
            return entry.flag;
    }
    return ePF_None;
}

void CAdaptiveMeshData::AddToResults(const IntegrationPointTable& table) {
    if (table.empty())
        return;
    if (m_Results.empty()) {
        m_Results = table;
        return;
    }
    if (m_Results.size() != table.size())
        return; // another mesh: not combined
    for (std::size_t e = 0; e < m_Results.size(); ++e) {
        auto& points = m_Results[e];
        const auto& other = table.at(e);
        for (std::size_t p = 0; p < points.size(); ++p)
            points[p].Add(other.at(p));
    }
}
