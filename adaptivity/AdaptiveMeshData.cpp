#include "adaptivity/AdaptiveMeshData.h"

#include "host/outcome/outcome.h"
#include "host/win32/win32.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

const double CAdaptiveMeshData::c_dWeightOfIntPointOnQuad = 1.0;
const double CAdaptiveMeshData::c_dWeightOfIntPointOnTriangle = 0.3333333333333333;

namespace {

// Fixed columns of a STRINTG file (zero-based character positions).
constexpr int c_nHeaderFieldsStart = 20;
constexpr int c_nElementNumberWidth = 8;
constexpr int c_nValuesStart = 16;
constexpr int c_nFieldWidth = 15;

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

// The blanks the C runtime skips in front of a number (iswspace of the ASCII range).
constexpr bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// _wtoi over ASCII text: blanks, an optional sign, the digits that follow, clamped to int.
int ParseInt(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && IsBlank(text[i]))
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        negative = text[i++] == '-';
    constexpr long long limit = static_cast<long long>(std::numeric_limits<int>::max()) + 1;
    long long value = 0;
    for (; i < text.size() && IsDigit(text[i]); ++i) {
        if (value <= limit)
            value = value * 10 + (text[i] - '0');
    }
    if (negative)
        value = -value;
    if (value > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (value < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

// _wtof through the C runtime, for the rare fields the fast path leaves to it.
double ParseDoubleByRuntime(std::string_view text) {
    std::wstring wide(text.begin(), text.end());
    return _wtof(wide.c_str());
}

// Powers of ten that doubles hold exactly.
constexpr double c_exactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                         1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                         1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// The digits of a decimal number (from the first digit or '.') through std::from_chars, which
// rounds correctly as wcstod does; out of range, the runtime gives its own answer.
double ParseDecimalByFromChars(std::string_view text, std::size_t first, bool negative) {
    double value = 0.0;
    auto [end, ec] = std::from_chars(text.data() + first, text.data() + text.size(), value,
                                     std::chars_format::general);
    (void)end;
    if (ec == std::errc())
        return negative ? -value : value;
    if (ec == std::errc::invalid_argument)
        return 0.0; // "." or ".e5": nothing to convert
    return ParseDoubleByRuntime(text);
}

// Eight characters as one little-endian word; SWAR (several digits per instruction) below.
std::uint64_t Load8(const char* p) {
    std::uint64_t word;
    std::memcpy(&word, p, sizeof word);
    if constexpr (std::endian::native == std::endian::big)
        word = __builtin_bswap64(word);
    return word;
}

// How many of the eight ASCII characters of `word`, from the first, are decimal digits.
int LeadingDigits(std::uint64_t word) {
    constexpr std::uint64_t highNibbles = 0xF0F0F0F0F0F0F0F0ULL;
    constexpr std::uint64_t zeros = 0x3030303030303030ULL;
    // A byte is a digit when its high nibble is 3 and its low nibble at most 9 (adding 6 keeps
    // the high nibble); ASCII bytes cannot carry into their neighbours.
    const std::uint64_t notDigits = ((word & highNibbles) ^ zeros) | (((word + 0x0606060606060606ULL) & highNibbles) ^ zeros);
    return notDigits == 0 ? 8 : std::countr_zero(notDigits) / 8;
}

// The value of the first `count` (1..8) digits of `word`.
std::uint64_t DigitsValue(std::uint64_t word, int count) {
    // Subtracting '0' can only borrow at the first non-digit, behind the digits that count;
    // the shift drops everything behind them and puts zeros in front.
    std::uint64_t d = (word - 0x3030303030303030ULL) << (8 * (8 - count));
    d = d * 10 + (d >> 8);
    d = (((d & 0x000000FF000000FFULL) * (100 + (1000000ULL << 32))) +
         (((d >> 16) & 0x000000FF000000FFULL) * (1 + (10000ULL << 32)))) >> 32;
    return d;
}

constexpr std::uint64_t c_powersOfTenInt[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};

// Appends the run of digits at text[i...] to the mantissa; returns the number of digits taken.
// Eight characters at a time while eight remain in the field, one at a time after that.
[[gnu::always_inline]] inline int TakeDigits(std::string_view text, std::size_t& i, std::uint64_t& mantissa,
                                             int& digits) {
    const std::size_t n = text.size();
    int taken = 0;
    while (i + 8 <= n) {
        const int run = LeadingDigits(Load8(text.data() + i));
        if (run == 0)
            return taken;
        if (digits + run > 19)
            return -1; // more digits than a 64-bit mantissa holds
        mantissa = mantissa * c_powersOfTenInt[run] + DigitsValue(Load8(text.data() + i), run);
        digits += run;
        taken += run;
        i += static_cast<std::size_t>(run);
        if (run < 8)
            return taken;
    }
    for (; i < n && IsDigit(text[i]); ++i, ++taken) {
        if (++digits > 19)
            return -1;
        mantissa = mantissa * 10 + static_cast<std::uint64_t>(text[i] - '0');
    }
    return taken;
}

// _wtof over ASCII text in the "C" numeric locale, giving the same double as the runtime.
// The bulk of every file, numbers of at most 19 digits whose decimal exponent lies within
// +-22, is converted with one multiplication or division of two exact doubles, which IEEE
// arithmetic rounds correctly (Clinger's fast path). Longer numbers and larger exponents go
// through std::from_chars; infinities, NaNs and hexadecimal numbers through the runtime itself.
double ParseDouble(std::string_view text) {
    const std::size_t n = text.size();
    std::size_t i = 0;
    // Fields are right-aligned: skip their spaces eight at a time, then any other blanks.
    while (i + 8 <= n) {
        const std::uint64_t notSpaces = Load8(text.data() + i) ^ 0x2020202020202020ULL;
        if (notSpaces != 0) {
            i += static_cast<std::size_t>(std::countr_zero(notSpaces) / 8);
            break;
        }
        i += 8;
    }
    while (i < n && IsBlank(text[i]))
        ++i;
    if (i == n)
        return 0.0;
    // The sign without a branch: signs of solver output are as good as random.
    const bool negative = text[i] == '-';
    i += static_cast<std::size_t>(negative || text[i] == '+');
    if (i == n)
        return 0.0;
    const std::size_t first = i;
    const char c = text[i];
    if (c == '0' && i + 1 < n && (text[i + 1] == 'x' || text[i + 1] == 'X'))
        return ParseDoubleByRuntime(text);
    if (!IsDigit(c) && c != '.') {
        const char lower = static_cast<char>(c | 0x20);
        return lower == 'i' || lower == 'n' ? ParseDoubleByRuntime(text) : 0.0;
    }

    std::uint64_t mantissa = 0;
    int digits = 0; // leading zeros included: they only make the limit of 19 stricter
    int taken = TakeDigits(text, i, mantissa, digits);
    if (taken < 0)
        return ParseDecimalByFromChars(text, first, negative);
    bool anyDigit = taken > 0;
    int scale = 0; // decimal exponent of the mantissa's last digit
    if (i < n && text[i] == '.') {
        ++i;
        taken = TakeDigits(text, i, mantissa, digits);
        if (taken < 0)
            return ParseDecimalByFromChars(text, first, negative);
        anyDigit = anyDigit || taken > 0;
        scale = -taken;
    }
    if (!anyDigit)
        return 0.0; // "." or ".e5"
    if (i < n && (text[i] == 'e' || text[i] == 'E')) {
        // An exponent counts only with at least one digit; "1e" and "1e+" are 1.
        std::size_t j = i + 1;
        const bool negativeExponent = j < n && text[j] == '-';
        j += static_cast<std::size_t>(j < n && (negativeExponent || text[j] == '+'));
        if (j < n && IsDigit(text[j])) {
            int exponent = 0;
            for (; j < n && IsDigit(text[j]); ++j)
                exponent = std::min(exponent * 10 + (text[j] - '0'), 100000);
            scale += negativeExponent ? -exponent : exponent;
        }
    }
    if (mantissa == 0)
        return negative ? -0.0 : 0.0;
    if (mantissa <= (std::uint64_t{1} << 53) && scale >= -22 && scale <= 22) {
        double value = static_cast<double>(mantissa);
        value = scale < 0 ? value / c_exactPowersOfTen[-scale] : value * c_exactPowersOfTen[scale];
        return negative ? -value : value;
    }
    return ParseDecimalByFromChars(text, first, negative);
}

std::string_view FieldAt(std::string_view line, int start, int width) {
    const auto first = static_cast<std::size_t>(start);
    if (first >= line.size())
        return {};
    return line.substr(first, static_cast<std::size_t>(width));
}

void RequireOutput(const double* out) {
    if (out == nullptr)
        AfxThrowInvalidArgException();
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

// Reads a text file line by line as the framework's text-mode reader does: "\n" ends a line,
// one "\r" in front of it (or at the end of the last line) is dropped, and the last line needs
// no line end. Lines are handed out as the file's bytes, without copying or decoding.
class CLineReader {
public:
    explicit CLineReader(std::FILE* file) : m_file(file), m_buffer(c_nChunk) {}

    // True when reading stopped on an error rather than at the end of the file.
    bool Failed() const { return m_failed; }

    bool Next(std::string_view& line) {
        for (;;) {
            const char* begin = m_buffer.data() + m_begin;
            const std::size_t available = m_end - m_begin;
            if (const void* nl = std::memchr(begin, '\n', available)) {
                const auto length = static_cast<std::size_t>(static_cast<const char*>(nl) - begin);
                line = Strip(std::string_view(begin, length));
                m_begin += length + 1;
                return true;
            }
            if (m_eof) {
                if (available == 0)
                    return false;
                line = Strip(std::string_view(begin, available));
                m_begin = m_end;
                return true;
            }
            Refill();
        }
    }

private:
    static constexpr std::size_t c_nChunk = std::size_t{1} << 22;

    static std::string_view Strip(std::string_view line) {
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        return line;
    }

    void Refill() {
        // Keep the unfinished line; grow the buffer only for a line longer than it.
        const std::size_t kept = m_end - m_begin;
        if (m_begin > 0 && kept > 0)
            std::memmove(m_buffer.data(), m_buffer.data() + m_begin, kept);
        m_begin = 0;
        m_end = kept;
        if (m_end == m_buffer.size())
            m_buffer.resize(m_buffer.size() * 2);
        const std::size_t got = std::fread(m_buffer.data() + m_end, 1, m_buffer.size() - m_end, m_file);
        m_end += got;
        if (got == 0) {
            m_eof = true;
            m_failed = std::ferror(m_file) != 0;
        }
    }

    std::FILE* m_file;
    std::vector<char> m_buffer;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    bool m_eof = false;
    bool m_failed = false;
};

// Reads the value fields of a record line into a point, one field per slot of the layout.
void ParseRecord(std::string_view line, const FieldLayout& layout, CIntegrationPointData& point) {
    for (int k = 0; k < layout.count; ++k) {
        const std::string_view field = FieldAt(line, c_nValuesStart + k * c_nFieldWidth, c_nFieldWidth);
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

void CIntegrationPointData::GetInternalForces(double* out) const {
    RequireOutput(out);
    std::copy(m_dInternalForces.begin(), m_dInternalForces.end(), out);
}

void CIntegrationPointData::GetDeformations(double* out) const {
    RequireOutput(out);
    std::copy(m_dDeformations.begin(), m_dDeformations.end(), out);
}

void CIntegrationPointData::Add(const CIntegrationPointData& other) {
    for (std::size_t i = 0; i < m_dInternalForces.size(); ++i)
        m_dInternalForces[i] += other.m_dInternalForces[i];
    for (std::size_t i = 0; i < m_dDeformations.size(); ++i)
        m_dDeformations[i] += other.m_dDeformations[i];
}

// ---------------------------------------------------------------------------------------------
// CAdaptiveMeshData: integration-point table

CAdaptiveMeshData::CAdaptiveMeshData() {
    // Gauss points of the 2x2 rule on a quadrilateral, counter-clockwise from (-a, -a).
    static const double a = 1.0 / std::sqrt(3.0);
    m_QuadNaturalCoords = {CKQPoint3D(-a, -a, 0.0), CKQPoint3D(a, -a, 0.0), CKQPoint3D(a, a, 0.0),
                           CKQPoint3D(-a, a, 0.0)};
    // Area coordinates of the 3-point rule on a triangle.
    m_TriangleNaturalCoords = {CKQPoint3D(1.0 / 6.0, 1.0 / 6.0, 2.0 / 3.0),
                               CKQPoint3D(2.0 / 3.0, 1.0 / 6.0, 1.0 / 6.0),
                               CKQPoint3D(1.0 / 6.0, 2.0 / 3.0, 1.0 / 6.0)};
}

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

void CAdaptiveMeshData::Clear() { m_Results.clear(); }

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
    CLineReader reader(file.get());
    std::string_view bytes;
    for (long lineNumber = 1; reader.Next(bytes); ++lineNumber) {
        if (lineNumber == 3) {
            GetPropertyFlags(CString(host::win32::Utf8ToWide(bytes)), flags);
            layout = LayoutOf(flags);
            continue;
        }
        if (lineNumber < 5)
            continue;

        // Plain ASCII lines are read from their bytes; anything else is decoded as the
        // framework's reader decodes it, as character positions then differ from byte positions.
        CIntegrationPointData point;
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
            table.resize(static_cast<std::size_t>(element));
            currentElement = element;
        }
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

unsigned long CAdaptiveMeshData::GetCountOfResults() const {
    return CIntegrationPointData::c_nValuesPerGroup;
}

long CAdaptiveMeshData::GetCountOfIntegrationPoints(unsigned long element) const {
    return static_cast<long>(m_Results.at(element).size());
}

Outcome64Enums::eElementType CAdaptiveMeshData::GetElementType(unsigned long element) const {
    // Four points make a quadrilateral; any other count is taken for a triangle. The host's
    // enumerations are used by number (0 triangle, 1 quadrilateral; 0 forces, 1 deformations).
    return static_cast<Outcome64Enums::eElementType>(m_Results.at(element).size() == 4 ? 1 : 0);
}

void CAdaptiveMeshData::GetIntegrationPointResults(unsigned long element, unsigned long point,
                                                   Outcome64Enums::eIntegrationPointDataType type,
                                                   double* out) const {
    RequireOutput(out);
    const CIntegrationPointData& data = m_Results.at(element).at(point);
    if (static_cast<int>(type) == 0)
        data.GetInternalForces(out);
    else if (static_cast<int>(type) == 1)
        data.GetDeformations(out);
}

const CKQPoint3D& CAdaptiveMeshData::GetIntegrationPointGlobalCoords(unsigned long element,
                                                                     unsigned long point) const {
    return m_Results.at(element).at(point).m_GlobalCoords;
}

const CKQPoint3D& CAdaptiveMeshData::GetIntegrationPointLocalCoords(unsigned long element,
                                                                    unsigned long point) const {
    static const CKQPoint3D noPoint(1e20, 1e20, 1e20);
    const std::size_t count = m_Results.at(element).size();
    if (count == 4)
        return m_QuadNaturalCoords.at(point);
    if (count == 3)
        return m_TriangleNaturalCoords.at(point);
    return noPoint;
}

double CAdaptiveMeshData::GetIntegrationPointWeight(unsigned long element, unsigned long) const {
    return static_cast<int>(GetElementType(element)) != 0 ? c_dWeightOfIntPointOnQuad
                                                           : c_dWeightOfIntPointOnTriangle;
}

// ---------------------------------------------------------------------------------------------
// CAdaptiveMeshData: storing the adaptivity result

namespace {
// The module's own result type: mesh error and refinement.
// {AC98000C-E79E-4365-877E-0A3F95AA42F4}
constexpr GUID c_guidMeshErrorAndRefinement = {
    0xAC98000C, 0xE79E, 0x4365, {0x87, 0x7E, 0x0A, 0x3F, 0x95, 0xAA, 0x42, 0xF4}};
} // namespace

bool CAdaptiveMeshData::StoreMeshErrorAndRefinementInResults(CKQ_ResultsAPI& store,
                                                             unsigned long loadCase,
                                                             const std::vector<double>& first,
                                                             const std::vector<double>& second,
                                                             const std::vector<double>& third,
                                                             const std::vector<double>& fourth) {
    using namespace Outcome64Enums;
    // A project without solver link has no slabs, so nothing is stored.
    CKQ_SolverLinkMock* link = store.GetSolverLink();
    if (link == nullptr)
        return true;
    CKQ_IDsMultiMap& slabs = link->GetSlabsIDs();
    const CResultCase resultCase(eDs_LoadCase, static_cast<int>(loadCase), 0, false);

    for (const auto& slab : slabs) {
        const CKQ_DsObject object(eDs_Slab, static_cast<int>(slab.first));
        const CKQ_ResultKey key(c_guidMeshErrorAndRefinement, object, resultCase, 0,
                                static_cast<eCoordSystem>(1), static_cast<eResLocation>(0),
                                static_cast<eEnvelopeExtreme>(0));
        // The store's own operations beside CKQ_FemResultsAPI: GetResultTable makes (or opens)
        // the slab's table, CKQ_Result::GetCountOfRows and SetValue count its rows and set a cell.
        std::shared_ptr<CKQ_Result> table = store.GetResultTable(key);
        if (!table)
            continue; // the store has no table for this slab
        const unsigned long rows = table->GetCountOfRows();
        for (unsigned long row = 0; row < rows; ++row) {
            unsigned long element = 0;
            unsigned long extra = 0;
            store.GetFemMeshElementIndex(*table, row, element, extra);
            if (element == 0)
                continue; // a row without element keeps what the store put there
            const std::size_t e = element - 1;
            // The two errors are stored in hundreds of the values the estimator gives.
            table->SetValue(0, row, first.at(e) / 100.0);
            table->SetValue(1, row, second.at(e) / 100.0);
            table->SetValue(2, row, third.at(e));
            table->SetValue(3, row, fourth.at(e));
        }
        store.SaveResult(table, true);
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// CAdaptiveMeshData: the result file P.GAR, its backup and its removal

namespace {

constexpr DWORD c_nSharingViolation = 32;

// Deletes a file, retrying for as long as another process holds it (a sharing violation);
// any other failure ends the attempt. True when the file was deleted.
bool DeleteFileRetrying(const CString& fileName) {
    for (;;) {
        if (DeleteFileW(fileName.GetString()))
            return true;
        if (GetLastError() != c_nSharingViolation)
            return false;
        SwitchToThread();
    }
}

bool FileExists(const CString& fileName) {
    return GetFileAttributesW(fileName.GetString()) != INVALID_FILE_ATTRIBUTES;
}

CString ResultFileName(const CString& projectPath) { return projectPath + L".GAR"; }

constexpr bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

// The backup of a result file: "backup_" in front of its file name, in the same folder. The
// folder and the name are split by the host's (Windows) rules: "\" and "/" both separate, a
// drive "X:" is a folder of its own, and a root keeps its separator.
CString BackupFileName(const CString& resultFile) {
    const std::wstring& path = resultFile.Str();
    const std::size_t last = path.find_last_of(L"\\/");
    std::wstring folder;
    std::wstring name;
    if (last != std::wstring::npos) {
        name = path.substr(last + 1);
        std::size_t end = last;
        while (end > 0 && IsSeparator(path[end - 1]))
            --end; // "a\\\\m1.GAR": the folder is "a"
        const bool root = end == 0 || (end == 2 && path[1] == L':');
        folder = root ? path.substr(0, last + 1) : path.substr(0, end);
    } else if (path.size() >= 2 && path[1] == L':') {
        folder = path.substr(0, 2);
        name = path.substr(2);
    } else {
        name = path;
    }
    if (!folder.empty() && folder.back() != L'\\' && folder.back() != L'/' && folder.back() != L':')
        folder += L'\\';
    return CString(folder + L"backup_" + name);
}

} // namespace

bool CAdaptiveMeshData::CreateGARFileBackup(const CString& projectPath, CString& backupPath) {
    backupPath.Empty();
    const CString resultFile = ResultFileName(projectPath);
    const CString backupFile = BackupFileName(resultFile);
    DeleteFileRetrying(backupFile);
    if (!FileExists(resultFile))
        return false;
    if (!CopyFileW(resultFile.GetString(), backupFile.GetString(), FALSE))
        return false;
    backupPath = backupFile;
    return true;
}

bool CAdaptiveMeshData::RestoreGARFileFromBackup(const CString& projectPath) {
    const CString resultFile = ResultFileName(projectPath);
    const CString backupFile = BackupFileName(resultFile);
    // The result file goes first, backup or not: a restore never leaves the results of the
    // failed run in place.
    DeleteFileRetrying(resultFile);
    if (!FileExists(backupFile))
        return false;
    const bool copied = CopyFileW(backupFile.GetString(), resultFile.GetString(), FALSE) != FALSE;
    DeleteFileRetrying(backupFile);
    return copied;
}

void CAdaptiveMeshData::DeleteResultFiles(const CString& projectPath) {
    DeleteFileRetrying(ResultFileName(projectPath));
}
