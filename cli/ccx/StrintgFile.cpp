#include "cli/ccx/StrintgFile.h"

#include "cli/ccx/ProjectMesh.h"

#include "adaptivity/StrintgFormat.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace slabadapt::ccx {

namespace {

// The layout the module's reader expects.
constexpr const auto& kColumns = strintg::c_columnNames;
constexpr std::size_t kHeaderPrefix = strintg::c_nHeaderFieldsStart;
constexpr std::size_t kRecordPrefix = strintg::c_nValuesStart;
constexpr std::size_t kField = strintg::c_nFieldWidth;

std::string OneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::replace(text.begin(), text.end(), '\r', ' ');
    return text;
}

double* Slot(StrintgPoint& p, std::size_t column) {
    if (column < 3)
        return &p.xyz[column];
    if (column < 11)
        return &p.forces[column - 3];
    return &p.deformations[column - 11];
}

/// "%15.7E" whatever the process's locale: the reader expects a full stop.
std::string Field(double v) {
    if (v == 0.0)
        v = 0.0; // no "-0.0000000E+00"
    char buf[32];
    const auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::scientific, 7);
    std::string text(buf, r.ptr);
    std::replace(text.begin(), text.end(), 'e', 'E');
    return text.size() >= kField ? text : std::string(kField - text.size(), ' ') + text;
}

} // namespace

std::filesystem::path StrintgFileName(const std::filesystem::path& project, long loadCaseIndex) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%04ld", loadCaseIndex);
    return std::filesystem::path(project.string() + ".STRINTG" + digits);
}

void WriteStrintg(const std::filesystem::path& file, std::span<const StrintgElement> elements,
                  const std::string& title, const std::string& description) {
    std::FILE* out = std::fopen(file.string().c_str(), "w");
    if (!out)
        throw WriteError(file.string() + ": cannot write the STRINTG file");
    std::fprintf(out, "%s\n%s\n", OneLine(title).c_str(), OneLine(description).c_str());
    std::fprintf(out, "%-8s%-12s", "element", "point");
    for (const char* c : kColumns)
        std::fprintf(out, "%15s", c);
    std::fprintf(out, "\n%s\n", std::string(kHeaderPrefix + kField * kColumns.size(), '-').c_str());
    for (std::size_t e = 0; e < elements.size(); ++e) {
        for (std::size_t p = 0; p < elements[e].size(); ++p) {
            StrintgPoint point = elements[e][p];
            std::fprintf(out, "%8zu%8zu", e + 1, p + 1);
            for (std::size_t c = 0; c < kColumns.size(); ++c) {
                std::fputs(Field(*Slot(point, c)).c_str(), out);
            }
            std::fputc('\n', out);
        }
    }
    const bool failed = std::ferror(out) != 0;
    if (std::fclose(out) != 0 || failed)
        throw WriteError(file.string() + ": error while writing the STRINTG file");
}

std::vector<StrintgElement> ReadStrintg(const std::filesystem::path& file) {
    std::ifstream in(file);
    if (!in)
        throw ImportError(file.string() + ": cannot open the STRINTG file");
    std::vector<StrintgElement> elements;
    std::vector<int> columnOf; // header field -> column of kColumns (-1 unknown)
    std::string line;
    long lineNo = 0;
    while (std::getline(in, line)) {
        ++lineNo;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (lineNo == 3) {
            for (std::size_t pos = kHeaderPrefix; pos < line.size(); pos += kField) {
                std::string name = line.substr(pos, kField);
                name.erase(0, name.find_first_not_of(' '));
                name.erase(name.find_last_not_of(' ') + 1);
                std::transform(name.begin(), name.end(), name.begin(), [](unsigned char ch) {
                    return static_cast<char>(std::tolower(ch));
                });
                const auto it = std::find_if(kColumns.begin(), kColumns.end(),
                                             [&](const char* c) { return name == c; });
                columnOf.push_back(it == kColumns.end() ? -1
                                                        : static_cast<int>(it - kColumns.begin()));
            }
            continue;
        }
        if (lineNo < 5)
            continue;
        const long element = std::atol(line.substr(0, 8).c_str());
        if (element <= 0)
            throw ImportError(file.string() + ":" + std::to_string(lineNo) +
                              ": expected an element number");
        if (static_cast<std::size_t>(element) > elements.size())
            elements.resize(static_cast<std::size_t>(element));
        StrintgPoint p;
        for (std::size_t f = 0; f < columnOf.size(); ++f) {
            const std::size_t pos = kRecordPrefix + f * kField;
            if (columnOf[f] < 0 || pos >= line.size())
                continue;
            *Slot(p, static_cast<std::size_t>(columnOf[f])) =
                std::atof(line.substr(pos, kField).c_str());
        }
        elements[static_cast<std::size_t>(element) - 1].push_back(p);
    }
    return elements;
}

} // namespace slabadapt::ccx
