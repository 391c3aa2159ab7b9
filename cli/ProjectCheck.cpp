#include "cli/ProjectCheck.h"

#include "adaptivity/AdaptiveMeshData.h"
#include "adaptivity/LineReader.h"
#include "adaptivity/StrintgFormat.h"
#include "cli/Json.h"
#include "host/framework/stage_clock.h"
#include "host/outcome/combinations.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <locale.h>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>

namespace slabadapt::cli {

namespace fs = std::filesystem;
using host::outcome::Project;

namespace {

std::string Format(const char* format, auto... args) {
    char buffer[512];
    std::snprintf(buffer, sizeof buffer, format, args...);
    return buffer;
}

// The "C" locale for the numbers this thread parses and formats, whatever the process's locale
// is meanwhile: the module sets the process's numeric locale while it reads the STRINTG files,
// which a run does while they are checked.
class ThreadLocaleC {
public:
    ThreadLocaleC() : m_locale(::newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr))) {
        if (m_locale != static_cast<locale_t>(nullptr))
            m_previous = ::uselocale(m_locale);
    }
    ~ThreadLocaleC() {
        if (m_locale == static_cast<locale_t>(nullptr))
            return;
        ::uselocale(m_previous);
        ::freelocale(m_locale);
    }
    ThreadLocaleC(const ThreadLocaleC&) = delete;
    ThreadLocaleC& operator=(const ThreadLocaleC&) = delete;

private:
    locale_t m_locale;
    locale_t m_previous = LC_GLOBAL_LOCALE;
};

// Findings with a cap per kind and file, so that one systematic fault (a file of another
// mesh, say) does not bury the rest.
class Collector {
public:
    explicit Collector(std::vector<Finding>& findings) : m_findings(findings) {}

    void Add(Severity severity, const fs::path& file, std::size_t line, const std::string& kind,
             std::string message) {
        std::size_t& seen = m_seen[{file.string(), kind}];
        if (++seen <= kFindingsPerKind) {
            m_findings.push_back({severity, file, line, std::move(message)});
            m_kinds.push_back(kind);
        } else {
            m_severity[{file.string(), kind}] = severity;
        }
    }

    // Adds what another collector gathered over a later part of a file, as if it had been
    // added here in the same order: its kept findings (lines moved by lineOffset) and then its
    // count of cut ones per kind. `before(i)` is called ahead of its i-th kept finding (and
    // once more at the end) for findings that only the merge can make; `skip(i)` drops one.
    template <class Before, class Skip>
    void Append(const Collector& part, std::size_t lineOffset, Before before, Skip skip) {
        for (std::size_t i = 0; i < part.m_findings.size(); ++i) {
            before(i);
            if (skip(i))
                continue;
            const Finding& f = part.m_findings[i];
            Add(f.severity, f.file, f.line + lineOffset, part.m_kinds[i], f.message);
        }
        before(part.m_findings.size());
        // Every finding the part cut is beyond the cap here too (this one has seen at least as
        // many of its kind); only the count and the last severity matter.
        for (const auto& [where, seen] : part.m_seen) {
            if (seen <= kFindingsPerKind)
                continue;
            m_seen[where] += seen - kFindingsPerKind;
            m_severity[where] = part.m_severity.at(where);
        }
    }
    void Error(const fs::path& file, std::size_t line, const std::string& kind, std::string m) {
        Add(Severity::Error, file, line, kind, std::move(m));
    }
    void Warning(const fs::path& file, std::size_t line, const std::string& kind, std::string m) {
        Add(Severity::Warning, file, line, kind, std::move(m));
    }

    // Adds one line per kind that was cut, with the number left out.
    void Close() {
        for (const auto& [where, seen] : m_seen) {
            if (seen > kFindingsPerKind)
                m_findings.push_back({m_severity[where], where.first, 0,
                                      Format("... and %zu more findings like the ones above",
                                             seen - kFindingsPerKind)});
        }
    }

private:
    std::vector<Finding>& m_findings;
    std::vector<std::string> m_kinds; // of each finding kept
    std::map<std::pair<std::string, std::string>, std::size_t> m_seen;
    std::map<std::pair<std::string, std::string>, Severity> m_severity;
};

// ---------------------------------------------------------------------------------------------
// STRINTG files
// ---------------------------------------------------------------------------------------------

// The column names of the header and their bits, as the module reads them: the k-th name of
// the layout has bit k, or bit k + 1 from the fourth on (bit 3 belongs to no column).
long ColumnFlag(const std::string& name) {
    const std::string& key = name == "qyz" ? std::string("gyz") : name;
    for (std::size_t k = 0; k < strintg::c_columnNames.size(); ++k)
        if (key == strintg::c_columnNames[k])
            return 1L << (k < 3 ? k : k + 1);
    return 0;
}

std::string_view TrimmedView(std::string_view text) {
    // By hand: find_first_not_of with a set of characters searches the set for every one.
    auto blank = [](char c) { return c == ' ' || c == '\t'; };
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && blank(text[begin]))
        ++begin;
    while (end > begin && blank(text[end - 1]))
        --end;
    return text.substr(begin, end - begin);
}

std::string Trimmed(std::string_view text) {
    return std::string(TrimmedView(text));
}

std::string Lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

struct ScannedElement {
    std::size_t points = 0;
    std::size_t firstLine = 0;
};

struct ScannedFile {
    bool opened = false;
    std::size_t listed = 0; // elements in the table the module builds: the last number read
    std::vector<ScannedElement> elements; // at most the mesh's elements
    bool beyondMesh = false;              // a record names an element the mesh does not have
};

// The value columns in the order the module takes the fields of a record: ascending bit of the
// header's flags, whatever the order of the names in the header.
std::vector<std::string> FieldColumns(long flags) {
    std::vector<std::string> columns;
    for (const char* name : strintg::c_columnNames)
        if ((flags & ColumnFlag(name)) != 0)
            columns.emplace_back(name);
    return columns;
}

constexpr std::size_t kValuesStart = strintg::c_nValuesStart;
constexpr std::size_t kFieldWidth = strintg::c_nFieldWidth;

// Whether a value field reads as the number it shows: the module reads a field up to the first
// character that cannot continue a number and takes what it has (0 for none), so "1.5D+03"
// would silently read as 1.5 and "abc" as 0.
// Beyond this a value's square (an energy density is a product of two) comes near the
// largest double, 1.8e308, and sums of them overflow.
constexpr double kLargestTrustedValue = 1e150;

// Reads a whole field as strtod reads it: true when all of it is the number (value set).
// std::from_chars takes the usual fields (the same correctly rounded double) at a fraction of
// strtod's cost; whatever it does not take whole (hexadecimal, a value beyond the range) goes
// to strtod itself.
bool ReadWholeField(std::string_view text, double& value) {
    const char* begin = text.data();
    const char* end = begin + text.size();
    const char* digits = begin != end && *begin == '+' ? begin + 1 : begin; // strtod takes '+'
    if (digits != end && (digits == begin || (*digits != '-' && *digits != '+'))) {
        const auto [stop, error] = std::from_chars(digits, end, value);
        if (error == std::errc() && stop == end)
            return true;
    }
    const std::string copy(text); // strtod wants the terminating zero
    char* stop = nullptr;
    value = std::strtod(copy.c_str(), &stop);
    return !copy.empty() && stop == copy.c_str() + copy.size();
}

bool IsNumberField(std::string_view text, double& value) {
    return ReadWholeField(text, value) && std::isfinite(value);
}

// Element number of a record: characters 0-7 read as a decimal integer the way the module
// does (leading blanks, a sign, digits; anything else ends the number; nothing gives 0).
long RecordElement(std::string_view line) {
    return strintg::ParseInt(strintg::FieldAt(line, 0, strintg::c_nElementNumberWidth));
}

// The value fields of one record: each column of the header needs a field that reads as a
// number, or the module takes 0 (or a part of it) without a word. A line cut short (the last
// line of a file written only in part, say) is found here.
void CheckRecordFields(const fs::path& file, std::size_t number, long element,
                       std::string_view line, const std::vector<std::string>& fields,
                       Collector& out) {
    std::string missing;
    std::size_t present = 0;
    for (std::size_t k = 0; k < fields.size(); ++k) {
        const std::size_t start = kValuesStart + k * kFieldWidth;
        if (start + kFieldWidth <= line.size() && IsSolverField(line.substr(start, kFieldWidth))) {
            ++present;
            continue;
        }
        const std::string_view text =
            start < line.size() ? TrimmedView(line.substr(start, kFieldWidth)) : std::string_view();
        if (text.empty()) {
            missing += (missing.empty() ? "" : ", ") + fields[k];
            continue;
        }
        ++present;
        if (IsPlainTrustedNumber(text))
            continue;
        double value = 0.0;
        if (!IsNumberField(text, value)) {
            const std::string shown(text);
            out.Error(
                file, number, "number",
                Format("element %ld: the %s field (characters %zu-%zu) holds \"%s\", "
                       "which is not a finite number: the module would read %s",
                       element, fields[k].c_str(), start + 1, start + kFieldWidth, shown.c_str(),
                       std::strtod(shown.c_str(), nullptr) == 0.0 ? "0" : "only its beginning"));
        } else if (std::fabs(value) > kLargestTrustedValue) {
            const std::string shown(text);
            out.Error(file, number, "magnitude",
                      Format("element %ld: the %s value %s is so large that the products of "
                             "forces and deformations the estimator forms would overflow a "
                             "double: its errors and sizes could not be trusted",
                             element, fields[k].c_str(), shown.c_str()));
        }
    }
    const std::size_t full = kValuesStart + fields.size() * kFieldWidth;
    if (!missing.empty())
        out.Error(file, number, "short",
                  Format("element %ld: the record has values for %zu of the header's %zu "
                         "columns; %s would read as 0 (is the line cut short?)",
                         element, present, fields.size(), missing.c_str()));
    else if (line.size() < full && !fields.empty())
        out.Warning(file, number, "short",
                    Format("element %ld: the record ends at character %zu, before the end of "
                           "its last field (character %zu): is its %s value cut short?",
                           element, line.size(), full, fields.back().c_str()));
}

// The header (line 3): which columns the records hold. Returns the module's property flags and
// reports names the module would read shifted, in another order, or not at all.
long ScanHeader(const fs::path& file, std::size_t number, const std::string& line, Collector& out) {
    long flags = 0;
    std::vector<std::string> named;  // the known columns in the header's order
    std::vector<std::string> before; // unknown columns in front of a known one
    std::vector<std::string> unknown;
    const std::size_t width = kFieldWidth;
    for (std::size_t pos = strintg::c_nHeaderFieldsStart; pos < line.size(); pos += width) {
        const std::string name = Lower(Trimmed(std::string_view(line).substr(pos, width)));
        if (name.empty())
            continue;
        const long flag = ColumnFlag(name);
        if (flag == 0) {
            unknown.push_back(name);
            continue;
        }
        before.insert(before.end(), unknown.begin(), unknown.end());
        unknown.clear();
        named.push_back(name == "qyz" ? "gyz" : name);
        flags |= flag;
    }
    // The module gives a record's fields to the known columns in its own order and gives
    // unknown names no field, so the records line up with the header only when its known
    // columns come in that order, each once, with unknown ones only behind them.
    for (const std::string& name : before)
        out.Error(file, number, "column",
                  "unknown column \"" + name +
                      "\" in front of known ones: it takes no field, so the values "
                      "of the columns after it would be read from the wrong fields");
    for (const std::string& name : unknown)
        out.Warning(file, number, "column",
                    "unknown column \"" + name +
                        "\" is ignored (it takes no field in the records)");
    if (named != FieldColumns(flags)) {
        std::string expected, got;
        for (const std::string& name : FieldColumns(flags))
            expected += (expected.empty() ? "" : " ") + name;
        for (const std::string& name : named)
            got += (got.empty() ? "" : " ") + name;
        out.Error(file, number, "column order",
                  "the header names its columns as \"" + got +
                      "\"; records are read in the order \"" + expected +
                      "\" (each column once), so values would land in the wrong "
                      "columns");
    }
    for (const char* c : {"igx", "igy", "igz"})
        if ((flags & ColumnFlag(c)) == 0)
            out.Error(file, number, "coordinates",
                      std::string("the header has no ") + c +
                          " column: the integration points' positions would read as 0");
    std::string absent;
    for (const char* c : {"mx", "my", "mxy", "qx", "qy", "nx", "ny", "nxy", "kx", "ky", "kxy",
                          "gxz", "gyz", "ex", "ey", "gxy"})
        if ((flags & ColumnFlag(c)) == 0)
            absent += std::string(absent.empty() ? "" : ", ") + c;
    if (!absent.empty())
        out.Warning(file, number, "values", "no column for " + absent + ": read as 0");
    return flags;
}

// An element's centre and the distance of its farthest corner from it, kept while the
// records of one element follow each other.
struct ElementExtent {
    long element = 0;
    CKQPoint3D centre;
    double radius = 0.0;
};

// Whether a record's integration point lies on its element, if the numbering is the mesh's.
void CheckRecordPosition(const fs::path& file, std::size_t number, long element,
                         std::string_view line, long flags, const host::outcome::Mesh& mesh,
                         ElementExtent& extent, Collector& out) {
    // Only the coordinates: their bits (0x1, 0x2, 0x4) are the lowest, so their fields sit where
    // they sit with every other column, and the values behind them need not be read here.
    CIntegrationPointData point;
    point.ReadFromLine(line, flags & 0x7);
    if (extent.element != element) {
        const auto& nodes = mesh.elements[static_cast<std::size_t>(element) - 1].nodes;
        CKQPoint3D centre;
        for (unsigned long n : nodes) {
            const CKQPoint3D& p = mesh.nodes[n - 1].position;
            centre.Set(centre.x + p.x / nodes.size(), centre.y + p.y / nodes.size(),
                       centre.z + p.z / nodes.size());
        }
        double radius = 0.0;
        for (unsigned long n : nodes)
            radius = std::max(radius, mesh.nodes[n - 1].position.Distance(centre));
        extent = {element, centre, radius};
    }
    const CKQPoint3D& centre = extent.centre;
    const double radius = extent.radius;
    const double distance = point.m_GlobalCoords.Distance(centre);
    if (!(distance <= radius * (1.0 + 1e-6) + 1e-9))
        out.Error(file, number, "position",
                  Format("element %ld: the integration point at (%g, %g, %g) lies %g "
                         "from the element's centre, outside the element (its corners "
                         "are at most %g away): is the file numbered as the mesh?",
                         element, point.m_GlobalCoords.x, point.m_GlobalCoords.y,
                         point.m_GlobalCoords.z, distance, radius));
}

// After the last record: the file's elements against the mesh's, and each element's points.
void CheckScannedElements(const fs::path& file, const ScannedFile& scan,
                          const host::outcome::Mesh& mesh, Collector& out) {
    if (scan.listed != mesh.elements.size())
        out.Error(file, 0, "count",
                  Format("lists %zu elements, the mesh has %zu: the file belongs to another mesh "
                         "or is incomplete",
                         scan.listed, mesh.elements.size()));
    for (std::size_t e = 0; e < scan.elements.size(); ++e) {
        const ScannedElement& entry = scan.elements[e];
        if (entry.points == 0) {
            out.Error(file, 0, "gap", Format("element %zu has no integration points", e + 1));
            continue;
        }
        if (entry.points != 3 && entry.points != 4) {
            out.Error(file, entry.firstLine, "points",
                      Format("element %zu has %zu integration points: a triangle has 3, a "
                             "quadrilateral 4",
                             e + 1, entry.points));
            continue;
        }
        if (e < mesh.elements.size() && mesh.elements[e].nodes.size() != entry.points)
            out.Error(file, entry.firstLine, "shape",
                      Format("element %zu has %zu integration points but %zu nodes in the mesh "
                             "(Gmsh element %llu)",
                             e + 1, entry.points, mesh.elements[e].nodes.size(),
                             static_cast<unsigned long long>(mesh.elements[e].gmshTag)));
    }
}

// The records of one stretch of a STRINTG file, scanned on their own: what the whole file's
// scan needs from the stretch, besides its findings.
struct RecordStretch {
    std::size_t lines = 0;     // lines read
    long previous = 0;         // the last valid element number (0: none)
    long first = 0;            // the first valid element number, compared by the merge
    std::size_t firstLine = 0; // its line
    std::size_t findingsBeforeFirst = 0;
    std::size_t listed = 0;
    bool beyondMesh = false;
    std::size_t beyondFinding = 0; // index of the "beyond" finding among those kept
    std::vector<ScannedElement> elements;
};

// Scans record lines (each line a record; numbering from firstNumber). With `ordered`, the
// first record is compared with the element before it like every other; without, that
// comparison is left to whoever knows the element before the stretch.
void ScanRecords(CLineReader& reader, std::size_t firstNumber, const fs::path& file,
                 const Project& project, long flags, const std::vector<std::string>& fields,
                 bool ordered, RecordStretch& stretch, std::vector<Finding>& kept, Collector& out) {
    const auto& mesh = project.mesh;
    ElementExtent extent;
    std::string_view line;
    std::size_t number = firstNumber - 1;
    while (reader.Next(line)) {
        ++number;
        ++stretch.lines;
        const long element = RecordElement(line);
        if (element <= 0) {
            out.Error(file, number, "record",
                      Format("element number %ld in characters 1-8 (a blank or malformed "
                             "record): the module's table would be cut there",
                             element));
            continue;
        }
        if (stretch.first == 0) {
            stretch.first = element;
            stretch.firstLine = number;
            stretch.findingsBeforeFirst = kept.size();
        }
        if ((ordered || stretch.previous != 0) && element < stretch.previous)
            out.Error(file, number, "order",
                      Format("element %ld follows element %ld: elements must be listed in "
                             "ascending order, or the module drops the ones behind",
                             element, stretch.previous));
        CheckRecordFields(file, number, element, line, fields, out);
        stretch.previous = element;
        stretch.listed = static_cast<std::size_t>(element);
        if (stretch.listed > mesh.elements.size()) {
            // Named once; nothing is kept for numbers the mesh does not have, so that a number
            // like 99999999 costs neither memory nor a walk over the gap.
            if (!stretch.beyondMesh) {
                stretch.beyondFinding = kept.size();
                out.Error(file, number, "beyond",
                          Format("element %ld is beyond the mesh's %zu elements: the file "
                                 "belongs to another mesh",
                                 element, mesh.elements.size()));
            }
            stretch.beyondMesh = true;
            continue;
        }
        if (stretch.elements.size() < stretch.listed)
            stretch.elements.resize(stretch.listed);
        ScannedElement& entry = stretch.elements[stretch.listed - 1];
        if (entry.points == 0)
            entry.firstLine = number;
        ++entry.points;
        if ((flags & 0x7) == 0x7)
            CheckRecordPosition(file, number, element, line, flags, mesh, extent, out);
    }
}

std::optional<double> g_scanSplitFraction; // set by tests: split every file there
// A file this large is scanned in two halves at once, one on another thread.
constexpr std::uintmax_t kSplitScanBytes = std::uintmax_t{64} << 20;

// Where a second thread may take over: the start of a line in the file's middle, behind the
// header (headerEnd is where the first record line starts). 0 = no split.
std::size_t SplitPoint(std::FILE* in, std::uintmax_t size, std::size_t headerEnd) {
    std::uintmax_t at = size / 2;
    if (g_scanSplitFraction)
        at = static_cast<std::uintmax_t>(*g_scanSplitFraction * static_cast<double>(size));
    else if (size < kSplitScanBytes)
        return 0;
    at = std::max<std::uintmax_t>(at, headerEnd);
    if (at >= size || std::fseek(in, static_cast<long>(at), SEEK_SET) != 0)
        return 0;
    char buffer[4096];
    for (;;) {
        const std::size_t got = std::fread(buffer, 1, sizeof buffer, in);
        if (got == 0)
            return 0;
        if (const void* nl = std::memchr(buffer, '\n', got)) {
            const auto split =
                at + static_cast<std::uintmax_t>(static_cast<const char*>(nl) - buffer) + 1;
            return split < size ? static_cast<std::size_t>(split) : 0;
        }
        at += got;
    }
}

// Reads a STRINTG file as the module would and reports everything that would make the module
// read other values than the file shows. A large file is read in two halves at once; their
// findings are put together as one reading from the start would give them.
ScannedFile ScanStrintg(const fs::path& file, const Project& project, Collector& out, bool halves) {
    ScannedFile scan;
    std::error_code ec;
    if (fs::exists(file, ec) && !fs::is_regular_file(file, ec)) {
        // A FIFO would be read for ever (by the run too), a folder not at all.
        out.Error(file, 0, "missing", "is not a regular file (a folder, a pipe or a device)");
        return scan;
    }
    using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
    File in(std::fopen(file.c_str(), "rb"), &std::fclose);
    if (!in) {
        out.Error(file, 0, "missing", "cannot be opened: the file is missing or unreadable");
        return scan;
    }
    scan.opened = true;
    const auto& mesh = project.mesh;

    // The lines before the records: the header (line 3) says which columns the fields hold.
    CLineReader head(in.get());
    std::string_view line;
    std::size_t number = 0;
    long flags = 0;
    std::vector<std::string> fields; // the columns of the record's value fields, in order
    bool sawHeader = false;
    while (number + 1 < static_cast<std::size_t>(strintg::c_nFirstRecordLine) && head.Next(line)) {
        ++number;
        if (number == static_cast<std::size_t>(strintg::c_nHeaderLine)) {
            sawHeader = true;
            flags = ScanHeader(file, number, std::string(line), out);
            fields = FieldColumns(flags);
        }
    }
    if (!sawHeader) {
        out.Error(file, number, "header", "the file ends before its header line (line 3)");
        return scan;
    }
    // Where the records start: behind the header's lines (at the end, when they are all).
    const std::size_t recordsStart = head.Consumed();
    const std::uintmax_t size = fs::file_size(file, ec);
    std::size_t split = 0;
    if (!ec && (halves || g_scanSplitFraction))
        split = SplitPoint(in.get(), size, recordsStart);
    if (split != 0 && split <= recordsStart)
        split = 0;

    RecordStretch first;
    std::vector<Finding> firstKept;
    Collector firstOut(firstKept);
    if (std::fseek(in.get(), static_cast<long>(recordsStart), SEEK_SET) == 0) {
        const std::size_t firstLength = split != 0 ? split - recordsStart : SIZE_MAX;
        std::future<void> second;
        RecordStretch later;
        std::vector<Finding> laterKept;
        Collector laterOut(laterKept);
        if (split != 0) {
            second = std::async(std::launch::async, [&] {
                const ThreadLocaleC locale;
                File other(std::fopen(file.c_str(), "rb"), &std::fclose);
                if (!other || std::fseek(other.get(), static_cast<long>(split), SEEK_SET) != 0)
                    throw std::runtime_error(file.string() + ": cannot be read a second time");
                CLineReader reader(other.get());
                ScanRecords(reader, 1, file, project, flags, fields, false, later, laterKept,
                            laterOut);
            });
        }
        CLineReader reader(in.get(), firstLength);
        ScanRecords(reader, number + 1, file, project, flags, fields, true, first, firstKept,
                    firstOut);
        out.Append(
            firstOut, 0, [](std::size_t) {}, [](std::size_t) { return false; });
        number += first.lines;
        if (split != 0) {
            second.get();
            // The comparison of the second stretch's first record with the element before it,
            // which only now is known, goes where a reading from the start would have made it.
            out.Append(
                laterOut, number,
                [&](std::size_t i) {
                    if (i == later.findingsBeforeFirst && later.first != 0 &&
                        later.first < first.previous)
                        out.Error(file, later.firstLine + number, "order",
                                  Format("element %ld follows element %ld: elements must be "
                                         "listed in ascending order, or the module drops the "
                                         "ones behind",
                                         later.first, first.previous));
                },
                [&](std::size_t i) {
                    return first.beyondMesh && later.beyondMesh && i == later.beyondFinding;
                });
            // Merge the two stretches' elements; an element split between them counts its
            // points in both and its first line in the first.
            if (later.elements.size() > first.elements.size())
                first.elements.resize(later.elements.size());
            for (std::size_t e = 0; e < later.elements.size(); ++e) {
                ScannedElement& entry = first.elements[e];
                const ScannedElement& more = later.elements[e];
                if (more.points == 0)
                    continue;
                if (entry.points == 0)
                    entry.firstLine = more.firstLine + number;
                entry.points += more.points;
            }
            if (later.first != 0)
                first.listed = later.listed;
            first.beyondMesh = first.beyondMesh || later.beyondMesh;
            number += later.lines;
        }
    }
    scan.listed = first.listed;
    scan.beyondMesh = first.beyondMesh;
    scan.elements = std::move(first.elements);
    scan.elements.resize(std::min(scan.listed, mesh.elements.size()));
    CheckScannedElements(file, scan, mesh, out);
    return scan;
}

// ---------------------------------------------------------------------------------------------
// Mesh
// ---------------------------------------------------------------------------------------------

void CheckMesh(const Project& project, Collector& out) {
    const auto& mesh = project.mesh;
    const fs::path msh = host::outcome::ProjectFile(project.path, ".msh");
    std::vector<std::size_t> elementsAtNode(mesh.nodes.size(), 0);
    for (std::size_t e = 0; e < mesh.elements.size(); ++e) {
        const auto& element = mesh.elements[e];
        const auto tag = static_cast<unsigned long long>(element.gmshTag);
        if (element.nodes.size() != 3 && element.nodes.size() != 4) {
            out.Error(msh, 0, "nodes",
                      Format("element %zu (Gmsh element %llu) has %zu nodes: the estimator takes "
                             "3-node triangles and 4-node quadrilaterals",
                             e + 1, tag, element.nodes.size()));
            continue;
        }
        // The longest edge; one square root, of the largest square (the same number).
        double longestSquared = 0.0;
        for (std::size_t i = 0; i < element.nodes.size(); ++i) {
            const auto& a = mesh.nodes[element.nodes[i] - 1].position;
            const auto& b = mesh.nodes[element.nodes[(i + 1) % element.nodes.size()] - 1].position;
            longestSquared = std::max(longestSquared, (a - b).LengthSquared());
        }
        const double longest = std::sqrt(longestSquared);
        const double area = mesh.ElementArea(e + 1);
        if (!(area > 1e-12 * longest * longest))
            out.Error(msh, 0, "area",
                      Format("element %zu (Gmsh element %llu) has zero area: its size and error "
                             "density cannot be computed",
                             e + 1, tag));
        for (unsigned long n : element.nodes)
            ++elementsAtNode[n - 1];
    }
    for (std::size_t n = 0; n < elementsAtNode.size(); ++n) {
        if (elementsAtNode[n] > kMaxElementsAtNode)
            out.Error(msh, 0, "fan",
                      Format("node %zu (Gmsh node %llu) belongs to %zu elements: the estimator "
                             "takes at most %zu",
                             n + 1, static_cast<unsigned long long>(mesh.nodes[n].gmshTag),
                             elementsAtNode[n], kMaxElementsAtNode));
    }
}

} // namespace

// ---------------------------------------------------------------------------------------------

// The field (trimmed) is plainly a decimal number that strtod reads whole, finite
// and no larger than kLargestTrustedValue: [sign] digits [. digits] [e|E [sign] 1-3 digits]
// with at least one digit, and fewer than 150 places before the point once the exponent is
// applied (so |value| < 1e150). Every field the solver writes is of this form, and this is
// decided from the characters alone; anything else goes through IsNumberField and the
// magnitude test, which word the findings.
bool IsPlainTrustedNumber(std::string_view text) {
    const char* p = text.data();
    const char* end = p + text.size();
    if (p != end && (*p == '+' || *p == '-'))
        ++p;
    int places = 0; // significant digits before the point
    int digits = 0;
    for (; p != end && *p >= '0' && *p <= '9'; ++p, ++digits)
        if (places > 0 || *p != '0')
            ++places;
    if (p != end && *p == '.')
        for (++p; p != end && *p >= '0' && *p <= '9'; ++p)
            ++digits;
    if (digits == 0)
        return false;
    int exponent = 0;
    if (p != end && (*p == 'e' || *p == 'E')) {
        ++p;
        const bool negative = p != end && *p == '-';
        if (p != end && (*p == '+' || *p == '-'))
            ++p;
        int n = 0;
        for (; p != end && *p >= '0' && *p <= '9' && n < 4; ++p, ++n)
            exponent = exponent * 10 + (*p - '0');
        if (n == 0 || n > 3)
            return false;
        if (negative)
            exponent = -exponent;
    }
    return p == end && places + exponent <= 150;
}

void SplitStrintgScansForTests(std::optional<double> fraction) {
    g_scanSplitFraction = fraction;
}

bool IsTrustedValueField(std::string_view field) {
    double value = 0.0;
    return IsNumberField(field, value) && !(std::fabs(value) > kLargestTrustedValue);
}

std::size_t CheckReport::Errors() const {
    return static_cast<std::size_t>(
        std::count_if(findings.begin(), findings.end(),
                      [](const Finding& f) { return f.severity == Severity::Error; }));
}

std::size_t CheckReport::Warnings() const {
    return findings.size() - Errors();
}

struct StagedCheck::Pending {
    explicit Pending(std::vector<Finding>& findings) : out(findings) {}
    Collector out;
    bool scan = false; // the STRINTG files are still to be read
};

StagedCheck::StagedCheck(const fs::path& project, const std::vector<long>& loadCaseIds)
    : m_pending(std::make_unique<Pending>(m_report.findings)) {
    CheckReport& report = m_report;
    report.project = project;
    Collector& out = m_pending->out;
    try {
        report.model = host::outcome::SharedProject(project);
    } catch (const host::outcome::ProjectError& e) {
        report.findings.push_back({Severity::Error, e.file(), e.line(), e.message()});
        return;
    }
    const Project& model = *report.model;
    CheckMesh(model, out);
    host::framework::MarkStage("project checked"); // the STRINTG files follow

    const fs::path toml = host::outcome::ProjectFile(project, ".toml");
    if (!model.data) {
        out.Error(toml, 0, "toml",
                  "missing: the slab thicknesses and the load cases are unknown without it");
        out.Close();
        return;
    }

    // Resolve the load cases.
    const auto& defined = model.data->loadCases;
    std::string known;
    for (const auto& lc : defined)
        known += (known.empty() ? "" : ", ") + std::to_string(lc.id);
    std::vector<long> ids = loadCaseIds;
    if (ids.empty())
        for (const auto& lc : defined)
            ids.push_back(lc.id);
    std::map<long, int> requested;
    for (long id : ids)
        ++requested[id];
    for (long id : ids) {
        CheckedLoadCase use;
        use.id = id;
        const auto it = std::find_if(defined.begin(), defined.end(),
                                     [id](const auto& lc) { return lc.id == id; });
        if (it == defined.end()) {
            out.Error(toml, 0, "unknown",
                      Format("load case %ld is not defined (defined: %s)", id,
                             known.empty() ? "none" : known.c_str()));
        } else {
            use.index = it->index;
            use.valid = it->valid;
            use.name = it->name;
            use.strintgFile = project.string() + Format(".STRINTG%0*ld", 4, it->index);
            if (!it->valid) {
                if (loadCaseIds.empty())
                    out.Warning(
                        toml, it->line, "invalid",
                        Format("load case %ld is marked valid = false: a run skips it", id));
                else
                    out.Error(toml, it->line, "invalid",
                              Format("load case %ld is marked valid = false: the run would skip "
                                     "it without a word",
                                     id));
            }
        }
        if (std::none_of(report.loadCases.begin(), report.loadCases.end(),
                         [id](const CheckedLoadCase& c) { return c.id == id; })) {
            if (requested[id] > 1)
                out.Warning(toml, 0, "duplicate",
                            Format("load case %ld is asked for %d times: its values are added "
                                   "%d times",
                                   id, requested[id], requested[id]));
            report.loadCases.push_back(use);
        }
    }

    // Combinations: their files are made from the components' here, as a run makes them; a
    // combination that cannot be made is named with the reason, and its file is not scanned.
    std::vector<long> combinations;
    for (const CheckedLoadCase& use : report.loadCases)
        if (const auto it = std::find_if(defined.begin(), defined.end(),
                                         [&use](const auto& lc) { return lc.id == use.id; });
            it != defined.end() && it->IsCombination())
            combinations.push_back(use.id);
    if (!combinations.empty())
        for (const auto& problem :
             host::outcome::UpdateCombinations(project, *model.data, combinations)) {
            const auto it =
                std::find_if(defined.begin(), defined.end(),
                             [&problem](const auto& lc) { return lc.id == problem.loadCase; });
            out.Error(toml, it != defined.end() ? it->line : 0, "combination", problem.message);
            for (CheckedLoadCase& use : report.loadCases)
                if (use.id == problem.loadCase)
                    use.index = 0;
        }
    m_pending->scan = true;
}

StagedCheck::~StagedCheck() = default;

void StagedCheck::ScanFiles(bool halves) {
    if (!m_pending->scan)
        return;
    m_pending->scan = false;
    const ThreadLocaleC locale;
    CheckReport& report = m_report;
    Collector& out = m_pending->out;
    const Project& model = *report.model;
    // Read every STRINTG file once, then compare the load cases.
    std::vector<std::pair<const CheckedLoadCase*, ScannedFile>> scans;
    std::set<long> scanned;
    for (const CheckedLoadCase& use : report.loadCases) {
        if (use.index <= 0 || !use.valid || !scanned.insert(use.index).second)
            continue;
        scans.emplace_back(&use, ScanStrintg(use.strintgFile, model, out, halves));
    }
    for (std::size_t k = 1; k < scans.size(); ++k) {
        const auto& [first, a] = scans.front();
        const auto& [other, b] = scans[k];
        if (!a.opened || !b.opened)
            continue;
        const std::size_t common = std::min(a.elements.size(), b.elements.size());
        for (std::size_t e = 0; e < common; ++e) {
            if (a.elements[e].points != b.elements[e].points)
                out.Error(other->strintgFile, b.elements[e].firstLine, "differ",
                          Format("element %zu has %zu integration points here and %zu in %s "
                                 "(line %zu): load cases must agree point by point",
                                 e + 1, b.elements[e].points, a.elements[e].points,
                                 first->strintgFile.filename().string().c_str(),
                                 a.elements[e].firstLine));
        }
    }
    out.Close();
}

CheckReport CheckProject(const fs::path& project, const std::vector<long>& loadCaseIds) {
    StagedCheck check(project, loadCaseIds);
    check.ScanFiles();
    return std::move(check.Report());
}

void PrintFindings(const CheckReport& report, std::ostream& out) {
    for (const Finding& f : report.findings) {
        out << f.file.string();
        if (f.line > 0)
            out << ':' << f.line;
        out << (f.severity == Severity::Error ? ": error: " : ": warning: ") << f.message << '\n';
    }
}

std::string SummaryLine(const CheckReport& report) {
    std::ostringstream s;
    if (report.model) {
        const auto& mesh = report.model->mesh;
        const auto triangles = std::count_if(mesh.elements.begin(), mesh.elements.end(),
                                             [](const auto& e) { return e.nodes.size() == 3; });
        s << mesh.elements.size() << " elements (" << triangles << " triangles, "
          << mesh.elements.size() - static_cast<std::size_t>(triangles) << " quadrilaterals) on "
          << mesh.slabs.size() << (mesh.slabs.size() == 1 ? " slab, " : " slabs, ")
          << mesh.nodes.size() << " nodes, " << report.loadCases.size()
          << (report.loadCases.size() == 1 ? " load case: " : " load cases: ");
    }
    const std::size_t errors = report.Errors(), warnings = report.Warnings();
    if (errors == 0 && warnings == 0)
        s << "no problems";
    else
        s << errors << (errors == 1 ? " error, " : " errors, ") << warnings
          << (warnings == 1 ? " warning" : " warnings");
    return s.str();
}

std::string CheckReportJson(const CheckReport& report) {
    std::ostringstream s;
    s << "{\"project\": " << JsonString(report.project.string())
      << ", \"passed\": " << (report.Passed() ? "true" : "false")
      << ", \"errors\": " << report.Errors() << ", \"warnings\": " << report.Warnings();
    if (report.model) {
        const auto& mesh = report.model->mesh;
        s << ", \"nodes\": " << mesh.nodes.size() << ", \"elements\": " << mesh.elements.size()
          << ", \"slabs\": " << mesh.slabs.size();
    }
    s << ", \"load_cases\": [";
    for (std::size_t i = 0; i < report.loadCases.size(); ++i) {
        const CheckedLoadCase& lc = report.loadCases[i];
        s << (i ? ", " : "") << "{\"id\": " << lc.id << ", \"index\": " << lc.index
          << ", \"valid\": " << (lc.valid ? "true" : "false")
          << ", \"name\": " << JsonString(lc.name)
          << ", \"file\": " << JsonString(lc.strintgFile.string()) << "}";
    }
    s << "], \"findings\": [";
    for (std::size_t i = 0; i < report.findings.size(); ++i) {
        const Finding& f = report.findings[i];
        s << (i ? ", " : "")
          << "{\"severity\": " << (f.severity == Severity::Error ? "\"error\"" : "\"warning\"")
          << ", \"file\": " << JsonString(f.file.string()) << ", \"line\": ";
        if (f.line > 0)
            s << f.line;
        else
            s << "null";
        s << ", \"message\": " << JsonString(f.message) << "}";
    }
    s << "]}";
    return s.str();
}

} // namespace slabadapt::cli
