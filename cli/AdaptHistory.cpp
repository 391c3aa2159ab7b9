#include "cli/AdaptHistory.h"

#include "cli/Json.h"
#include "host/win32/files.h"

#include <charconv>
#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace slabadapt::cli {

namespace fs = std::filesystem;

namespace {

// The fixed columns of history.csv; one max_local_error_slab<id> column per slab follows.
const char* const kColumns[] = {
    "cycle",  "elements", "nodes",    "global_error", "predicted_next_elements",
    "mesh_s", "solve_s",  "import_s", "estimate_s",   "total_s"};
constexpr std::size_t kFixedColumns = sizeof kColumns / sizeof kColumns[0];

// A number that reads back to the same double, in any locale.
std::string Number(double value) {
    char buffer[32];
    const auto r = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, r.ptr);
}

// Writes `text` beside `file` and renames it over `file`, so that readers see the old or the
// new file whole.
void ReplaceFile(const fs::path& file, const std::string& text) {
    const fs::path temporary = host::win32::TemporaryPathBeside(file);
    {
        std::ofstream out(temporary, std::ios::binary);
        out << text;
        out.flush();
        if (!out)
            throw std::runtime_error(temporary.string() + ": cannot write the cycle record");
    }
    std::error_code ec;
    fs::rename(temporary, file, ec);
    if (ec)
        throw std::runtime_error(file.string() + ": cannot replace the cycle record (" +
                                 ec.message() + ")");
}

std::string Csv(const AdaptHistory& history) {
    std::ostringstream out;
    for (std::size_t c = 0; c < kFixedColumns; ++c)
        out << (c ? "," : "") << kColumns[c];
    const std::vector<SlabError> none;
    const auto& slabs = history.cycles.empty() ? none : history.cycles.front().slabs;
    for (const SlabError& slab : slabs)
        out << ",max_local_error_slab" << slab.slab;
    out << '\n';
    for (const CycleRecord& c : history.cycles) {
        out << c.cycle << ',' << c.elements << ',' << c.nodes << ',' << Number(c.globalError) << ','
            << c.predictedNext << ',' << Number(c.meshSeconds) << ',' << Number(c.solveSeconds)
            << ',' << Number(c.importSeconds) << ',' << Number(c.estimateSeconds) << ','
            << Number(c.totalSeconds);
        for (const SlabError& slab : c.slabs)
            out << ',' << Number(slab.maxLocalError);
        out << '\n';
    }
    return out.str();
}

std::string Json(const AdaptHistory& history) {
    std::ostringstream out;
    out << "{\"project\": " << JsonString(history.project)
        << ",\n \"target\": " << JsonNumber(history.target) << ",\n \"load_cases\": [";
    for (std::size_t i = 0; i < history.loadCases.size(); ++i)
        out << (i ? ", " : "") << history.loadCases[i];
    out << "],\n \"cycles\": [";
    for (std::size_t i = 0; i < history.cycles.size(); ++i) {
        const CycleRecord& c = history.cycles[i];
        out << (i ? ",\n  " : "\n  ") << "{\"cycle\": " << c.cycle
            << ", \"elements\": " << c.elements << ", \"nodes\": " << c.nodes
            << ", \"global_error\": " << JsonNumber(c.globalError)
            << ", \"predicted_next_elements\": " << c.predictedNext << ", \"max_local_error\": [";
        for (std::size_t s = 0; s < c.slabs.size(); ++s)
            out << (s ? ", " : "") << "{\"slab\": " << c.slabs[s].slab
                << ", \"name\": " << JsonString(c.slabs[s].name)
                << ", \"value\": " << JsonNumber(c.slabs[s].maxLocalError) << "}";
        out << "]";
        if (!c.passes.empty()) {
            out << ", \"passes\": [";
            for (std::size_t k = 0; k < c.passes.size(); ++k)
                out << (k ? ", " : "") << "{\"load_case\": " << c.passes[k].first
                    << ", \"global_error\": " << JsonNumber(c.passes[k].second) << "}";
            out << "]";
        }
        out << ", \"seconds\": {\"mesh\": " << JsonNumber(c.meshSeconds)
            << ", \"solve\": " << JsonNumber(c.solveSeconds)
            << ", \"import\": " << JsonNumber(c.importSeconds)
            << ", \"estimate\": " << JsonNumber(c.estimateSeconds)
            << ", \"total\": " << JsonNumber(c.totalSeconds) << "}}";
    }
    out << "],\n \"stop\": ";
    if (history.stop.empty())
        out << "null";
    else
        out << "{\"reason\": " << JsonString(history.stop)
            << ", \"message\": " << JsonString(history.stopMessage)
            << ", \"exit_code\": " << history.exitCode << "}";
    out << "}\n";
    return out.str();
}

std::vector<std::string> Split(const std::string& line) {
    std::vector<std::string> fields;
    std::string field;
    std::istringstream in(line);
    while (std::getline(in, field, ','))
        fields.push_back(field);
    if (!line.empty() && line.back() == ',')
        fields.emplace_back();
    return fields;
}

template <class T> T Parse(const std::string& text, const fs::path& file, std::size_t line) {
    T value{};
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size())
        throw std::runtime_error(file.string() + ":" + std::to_string(line) + ": \"" + text +
                                 "\" is not a number; the record is damaged");
    return value;
}

} // namespace

fs::path CycleFolder(const fs::path& record, int cycle) {
    char name[32];
    std::snprintf(name, sizeof name, "cycle-%02d", cycle);
    return record / name;
}

void WriteHistory(const fs::path& record, const AdaptHistory& history) {
    ReplaceFile(record / "history.csv", Csv(history));
    ReplaceFile(record / "history.json", Json(history));
}

AdaptHistory ReadHistory(const fs::path& record) {
    AdaptHistory history;
    const fs::path csv = record / "history.csv";
    std::ifstream in(csv, std::ios::binary);
    if (!in)
        return history;
    std::string line;
    std::size_t number = 1;
    if (!std::getline(in, line))
        return history;
    const std::vector<std::string> header = Split(line);
    if (header.size() < kFixedColumns || header[0] != "cycle")
        throw std::runtime_error(csv.string() + ":1: not a cycle record (expected the columns " +
                                 "cycle,elements,...)");
    std::vector<long> slabIds;
    for (std::size_t c = kFixedColumns; c < header.size(); ++c) {
        const std::string prefix = "max_local_error_slab";
        if (header[c].rfind(prefix, 0) != 0)
            throw std::runtime_error(csv.string() + ":1: unknown column \"" + header[c] + "\"");
        slabIds.push_back(Parse<long>(header[c].substr(prefix.size()), csv, 1));
    }
    while (std::getline(in, line)) {
        ++number;
        if (line.empty())
            continue;
        const std::vector<std::string> f = Split(line);
        if (f.size() != header.size())
            throw std::runtime_error(csv.string() + ":" + std::to_string(number) + ": " +
                                     std::to_string(f.size()) + " fields, the header has " +
                                     std::to_string(header.size()));
        CycleRecord c;
        c.cycle = Parse<int>(f[0], csv, number);
        c.elements = Parse<std::size_t>(f[1], csv, number);
        c.nodes = Parse<std::size_t>(f[2], csv, number);
        c.globalError = Parse<double>(f[3], csv, number);
        c.predictedNext = Parse<std::size_t>(f[4], csv, number);
        c.meshSeconds = Parse<double>(f[5], csv, number);
        c.solveSeconds = Parse<double>(f[6], csv, number);
        c.importSeconds = Parse<double>(f[7], csv, number);
        c.estimateSeconds = Parse<double>(f[8], csv, number);
        c.totalSeconds = Parse<double>(f[9], csv, number);
        for (std::size_t s = 0; s < slabIds.size(); ++s)
            c.slabs.push_back({slabIds[s], "", Parse<double>(f[kFixedColumns + s], csv, number)});
        if (c.cycle != static_cast<int>(history.cycles.size()) + 1)
            throw std::runtime_error(csv.string() + ":" + std::to_string(number) + ": cycle " +
                                     std::to_string(c.cycle) + " where cycle " +
                                     std::to_string(history.cycles.size() + 1) + " was expected");
        history.cycles.push_back(std::move(c));
    }
    // The stop and the run's settings, from the JSON this program wrote.
    std::ifstream json(record / "history.json", std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(json)), {});
    std::smatch m;
    static const std::regex stop(
        R"re("stop": \{"reason": "([a-z-]+)", "message": "((?:[^"\\]|\\.)*)", "exit_code": (-?[0-9]+)\})re");
    if (std::regex_search(text, m, stop)) {
        history.stop = m[1];
        history.stopMessage = m[2];
        history.exitCode = std::stoi(m[3]);
    }
    static const std::regex target(R"re("target": ([0-9.eE+-]+))re");
    if (std::regex_search(text, m, target))
        history.target = std::stod(m[1]);
    static const std::regex project(R"re(^\{"project": "((?:[^"\\]|\\.)*)")re");
    if (std::regex_search(text, m, project))
        history.project = m[1];
    return history;
}

} // namespace slabadapt::cli
