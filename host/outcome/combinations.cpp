#include "host/outcome/combinations.h"

#include "host/outcome/strintg_layout.h"
#include "host/win32/files.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

namespace host::outcome {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kColumns = strintg::c_columnNames.size();

struct Record {
    std::string prefix; // the element and point numbers as the file writes them
    long element = 0;
    std::array<double, kColumns> values{};
};

struct Table {
    fs::path file;
    std::vector<Record> records;
};

std::string Trim(std::string_view text) {
    const auto begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos)
        return {};
    const auto end = text.find_last_not_of(" \t");
    return std::string(text.substr(begin, end - begin + 1));
}

// A value field in any locale; nullopt when it is not a number.
std::optional<double> Number(std::string text) {
    if (text.empty())
        return 0.0;
    if (text[0] == '+')
        text.erase(0, 1);
    double value = 0.0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size() || !std::isfinite(value))
        return std::nullopt;
    return value;
}

// Reads a component's file; the message of a failure names the file and line.
std::optional<Table> ReadTable(const fs::path& file, std::string& why) {
    std::error_code ec;
    if (!fs::is_regular_file(file, ec)) {
        why = fs::exists(file, ec) ? file.string() + " is not a regular file"
                                   : "there is no file " + file.string();
        return std::nullopt;
    }
    std::ifstream in(file, std::ios::binary);
    Table table;
    table.file = file;
    std::vector<int> columnOf; // header field -> column (-1: not a column)
    std::string line;
    long number = 0;
    while (std::getline(in, line)) {
        ++number;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (number == strintg::c_nHeaderLine) {
            for (std::size_t pos = strintg::c_nHeaderFieldsStart; pos < line.size();
                 pos += strintg::c_nFieldWidth) {
                std::string name = Trim(std::string_view(line).substr(pos, strintg::c_nFieldWidth));
                for (char& c : name)
                    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
                if (name == "qyz")
                    name = "gyz";
                const auto it =
                    std::find(strintg::c_columnNames.begin(), strintg::c_columnNames.end(), name);
                columnOf.push_back(it == strintg::c_columnNames.end()
                                       ? -1
                                       : static_cast<int>(it - strintg::c_columnNames.begin()));
            }
            continue;
        }
        if (number < strintg::c_nFirstRecordLine)
            continue;
        Record record;
        const std::string element =
            Trim(std::string_view(line).substr(0, strintg::c_nElementNumberWidth));
        record.element = std::strtol(element.c_str(), nullptr, 10);
        if (record.element < 1)
            continue; // not a record, as the module reads it
        record.prefix = line.substr(0, strintg::c_nValuesStart);
        record.prefix.resize(strintg::c_nValuesStart, ' ');
        for (std::size_t k = 0; k < columnOf.size(); ++k) {
            const std::size_t start = strintg::c_nValuesStart + k * strintg::c_nFieldWidth;
            const std::string text =
                start < line.size()
                    ? Trim(std::string_view(line).substr(start, strintg::c_nFieldWidth))
                    : std::string();
            const auto value = Number(text);
            if (!value) {
                why = file.string() + ":" + std::to_string(number) + ": \"" + text +
                      "\" is not a number";
                return std::nullopt;
            }
            if (columnOf[k] >= 0)
                record.values[static_cast<std::size_t>(columnOf[k])] = *value;
        }
        table.records.push_back(std::move(record));
    }
    if (number < strintg::c_nHeaderLine) {
        why = file.string() + " ends before its header line (line 3)";
        return std::nullopt;
    }
    return table;
}

// The number in one field's width, as close as it fits: the shortest form that reads back
// exactly where it fits, else as many digits as fit (ten or more: a relative change below
// 5e-10). Readers take the fields by position, so a number may fill its field.
std::string Field(double value) {
    if (value == 0.0)
        value = 0.0; // no "-0"
    const std::size_t width = strintg::c_nFieldWidth;
    char buffer[64];
    auto compact = [](std::string text) {
        // "1.5e+01" -> "1.5e1", "2e-05" -> "2e-5": the exponent's own sign and zeros are spare.
        const auto e = text.find('e');
        if (e == std::string::npos)
            return text;
        std::string mantissa = text.substr(0, e);
        std::string exponent = text.substr(e + 1);
        const bool negative = !exponent.empty() && exponent[0] == '-';
        if (!exponent.empty() && (exponent[0] == '+' || exponent[0] == '-'))
            exponent.erase(0, 1);
        exponent.erase(0, std::min(exponent.find_first_not_of('0'), exponent.size() - 1));
        return mantissa + "e" + (negative ? "-" : "") + exponent;
    };
    const auto shortest = std::to_chars(buffer, buffer + sizeof buffer, value);
    std::string text = compact(std::string(buffer, shortest.ptr));
    for (int digits = 17; text.size() > width && digits > 1; --digits) {
        const auto r = std::to_chars(buffer, buffer + sizeof buffer, value,
                                     std::chars_format::general, digits);
        text = compact(std::string(buffer, r.ptr));
    }
    return std::string(strintg::c_nFieldWidth - std::min(text.size(), width), ' ') + text;
}

std::string FirstLine(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::string line;
    std::getline(in, line);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

bool CoordinatesAgree(const Record& a, const Record& b) {
    for (std::size_t c = 0; c < 3; ++c) {
        const double scale = std::max({1.0, std::fabs(a.values[c]), std::fabs(b.values[c])});
        if (std::fabs(a.values[c] - b.values[c]) > 1e-9 * scale)
            return false;
    }
    return true;
}

class Combiner {
public:
    Combiner(const fs::path& project, const ProjectData& data) : m_project(project), m_data(data) {}

    // Empty when the combination's file is up to date or was made; else why not.
    std::string Update(const LoadCaseData& combination) {
        const std::string name = "combination " + std::to_string(combination.id);
        std::vector<std::pair<const LoadCaseData*, double>> parts;
        for (const auto& [id, factor] : combination.combination) {
            const auto it = std::find_if(m_data.loadCases.begin(), m_data.loadCases.end(),
                                         [id = id](const LoadCaseData& lc) { return lc.id == id; });
            if (it == m_data.loadCases.end())
                return name + ": load case " + std::to_string(id) + " is not in P.toml";
            if (it->IsCombination())
                return name + ": load case " + std::to_string(id) +
                       " is itself a combination; combinations of combinations are not made";
            parts.emplace_back(&*it, factor);
        }
        const fs::path target = StrintgFile(m_project, combination.index);
        std::error_code ec;
        const bool exists = fs::exists(target, ec);
        const std::string mark = DerivedMarkLine(combination);
        if (exists && FirstLine(target).rfind(kDerivedMark, 0) != 0)
            return name + ": " + target.string() +
                   " is at the combination's index but was not derived by slabadapt (a "
                   "solver's file?); move it away or give the combination another index";
        // Up to date: made from this definition and newer than every component.
        bool fresh = exists && FirstLine(target) == mark;
        for (const auto& [part, factor] : parts) {
            const fs::path file = StrintgFile(m_project, part->index);
            if (!fs::exists(file, ec))
                return name + ": load case " + std::to_string(part->id) + " (index " +
                       std::to_string(part->index) + ") has no file " + file.string();
            if (fresh && fs::last_write_time(file, ec) > fs::last_write_time(target, ec))
                fresh = false;
        }
        if (fresh)
            return {};
        return Make(combination, parts, target, mark);
    }

private:
    std::string Make(const LoadCaseData& combination,
                     const std::vector<std::pair<const LoadCaseData*, double>>& parts,
                     const fs::path& target, const std::string& mark) {
        const std::string name = "combination " + std::to_string(combination.id);
        std::vector<Table> tables;
        for (const auto& [part, factor] : parts) {
            std::string why;
            auto table = ReadTable(StrintgFile(m_project, part->index), why);
            if (!table)
                return name + ": " + why;
            tables.push_back(std::move(*table));
        }
        const Table& first = tables.front();
        for (std::size_t t = 1; t < tables.size(); ++t) {
            const Table& other = tables[t];
            const std::string disagree =
                name + ": the points of load case " + std::to_string(parts[t].first->id) + " (" +
                other.file.string() + ") do not agree with those of " + "load case " +
                std::to_string(parts[0].first->id) + " (" + first.file.string() + ")";
            if (other.records.size() != first.records.size())
                return disagree + ": " + std::to_string(other.records.size()) + " points against " +
                       std::to_string(first.records.size());
            for (std::size_t r = 0; r < first.records.size(); ++r)
                if (other.records[r].prefix != first.records[r].prefix ||
                    !CoordinatesAgree(other.records[r], first.records[r]))
                    return disagree + ": point " + std::to_string(r + 1) + " (element " +
                           std::to_string(first.records[r].element) + ") differs";
        }
        std::ostringstream out;
        out << mark << "\nintegration-point results per unit width: the factored sum of the "
            << "components' files (coordinates from the first)\n";
        std::string header = "element point";
        header.resize(strintg::c_nHeaderFieldsStart, ' ');
        for (const char* column : strintg::c_columnNames) {
            std::string field(strintg::c_nFieldWidth, ' ');
            field.replace(field.size() - std::string(column).size(), std::string(column).size(),
                          column);
            header += field;
        }
        out << header << '\n' << std::string(header.size(), '-') << '\n';
        for (std::size_t r = 0; r < first.records.size(); ++r) {
            out << first.records[r].prefix;
            for (std::size_t c = 0; c < kColumns; ++c) {
                double value = first.records[r].values[c];
                if (c >= 3) { // forces and deformations: the factored sum
                    value = 0.0;
                    for (std::size_t t = 0; t < tables.size(); ++t)
                        value += parts[t].second * tables[t].records[r].values[c];
                }
                out << Field(value);
            }
            out << '\n';
        }
        const fs::path temporary = host::win32::TemporaryPathBeside(target);
        {
            std::ofstream file(temporary, std::ios::binary);
            file << out.str();
            file.flush();
            if (!file)
                return name + ": cannot write " + temporary.string();
        }
        std::error_code ec;
        fs::rename(temporary, target, ec);
        if (ec)
            return name + ": cannot write " + target.string() + " (" + ec.message() + ")";
        return {};
    }

    fs::path m_project;
    const ProjectData& m_data;
};

} // namespace

fs::path StrintgFile(const fs::path& project, long index) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%04ld", index);
    return fs::path(project.string() + ".STRINTG" + digits);
}

std::string DerivedMarkLine(const LoadCaseData& combination) {
    std::ostringstream line;
    line.imbue(std::locale::classic());
    line << kDerivedMark << combination.id << " =";
    for (std::size_t i = 0; i < combination.combination.size(); ++i) {
        char factor[32];
        const auto r =
            std::to_chars(factor, factor + sizeof factor, combination.combination[i].second);
        line << (i ? " + " : " ") << std::string(factor, r.ptr) << " x "
             << combination.combination[i].first;
    }
    line << " (derived; remade when a component changes)";
    return line.str();
}

std::vector<CombinationProblem> UpdateCombinations(const fs::path& project, const ProjectData& data,
                                                   const std::vector<long>& only) {
    std::vector<CombinationProblem> problems;
    Combiner combiner(project, data);
    for (const LoadCaseData& lc : data.loadCases) {
        if (!lc.IsCombination())
            continue;
        if (!only.empty() && std::find(only.begin(), only.end(), lc.id) == only.end())
            continue;
        if (std::string why = combiner.Update(lc); !why.empty())
            problems.push_back({lc.id, std::move(why)});
    }
    return problems;
}

} // namespace host::outcome
