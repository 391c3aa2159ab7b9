#include "cli/ccx/DatFile.h"

#include "cli/ccx/ProjectMesh.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace slabadapt::ccx {

namespace {

enum class Block { None, Stress, Strain, Coords, Other };

/// Parses a header line "<quantity> (elem, ...) for set <SET> and time <t>".
/// Returns false when the line is not a header.
bool ParseHeader(const std::string& line, Block& block, double& time) {
    const auto paren = line.find('(');
    const auto timePos = line.rfind(" and time ");
    if (paren == std::string::npos || timePos == std::string::npos ||
        line.find(" for set ") == std::string::npos)
        return false;
    std::string name = line.substr(0, paren);
    const auto b = name.find_first_not_of(' ');
    const auto e = name.find_last_not_of(' ');
    name = b == std::string::npos ? std::string() : name.substr(b, e - b + 1);
    const std::string columns = line.substr(paren);
    if (name == "stresses" && columns.rfind("(elem, integ.pnt.", 0) == 0)
        block = Block::Stress;
    else if (name == "strains" && columns.rfind("(elem, integ.pnt.", 0) == 0)
        block = Block::Strain;
    else if (name == "global coordinates" && columns.rfind("(elem, integ.pnt.", 0) == 0)
        block = Block::Coords;
    else
        block = Block::Other;
    const std::string t = line.substr(timePos + 10);
    char* end = nullptr;
    time = std::strtod(t.c_str(), &end);
    return end != t.c_str();
}

template <std::size_t N>
void Store(std::vector<std::array<double, N>>& rows, std::size_t point,
           const std::array<double, N>& values, const std::string& where) {
    if (point == 1 && !rows.empty())
        throw ImportError(where + ": the element is printed twice for this time (do two "
                                  "*EL PRINT element sets overlap?)");
    if (point != rows.size() + 1)
        throw ImportError(where + ": integration point " + std::to_string(point) +
                          " out of order (expected " + std::to_string(rows.size() + 1) + ")");
    rows.push_back(values);
}

} // namespace

std::vector<DatIncrement> ReadDat(const std::filesystem::path& file) {
    std::ifstream in(file);
    if (!in)
        throw ImportError(file.string() + ": cannot open the CalculiX results file");
    std::vector<DatIncrement> increments;
    Block block = Block::None;
    std::string line;
    long lineNo = 0;
    while (std::getline(in, line)) {
        ++lineNo;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.find_first_not_of(' ') == std::string::npos)
            continue;
        double time = 0.0;
        Block next = Block::None;
        if (ParseHeader(line, next, time)) {
            block = next;
            if (block != Block::Other && (increments.empty() || increments.back().time != time)) {
                increments.emplace_back();
                increments.back().time = time;
            }
            continue;
        }
        if (block == Block::None || block == Block::Other)
            continue;
        const std::string where = file.string() + ":" + std::to_string(lineNo);
        std::istringstream s(line);
        long element = 0;
        long point = 0;
        if (!(s >> element >> point) || element <= 0 || point <= 0)
            throw ImportError(where + ": expected an element and an integration point number");
        auto& rows = increments.back().elements[element];
        if (block == Block::Coords) {
            std::array<double, 3> x{};
            for (auto& v : x)
                if (!(s >> v))
                    throw ImportError(where + ": expected three coordinates");
            Store(rows.coords, static_cast<std::size_t>(point), x, where);
        } else {
            std::array<double, 6> v{};
            for (auto& c : v)
                if (!(s >> c))
                    throw ImportError(where + ": expected six tensor components");
            std::string orientation;
            s >> orientation;
            if (block == Block::Stress) {
                Store(rows.stress, static_cast<std::size_t>(point), v, where);
                rows.orientation = orientation;
            } else {
                Store(rows.strain, static_cast<std::size_t>(point), v, where);
            }
        }
    }
    return increments;
}

std::vector<StaStep> ReadSta(const std::filesystem::path& file) {
    std::vector<StaStep> steps;
    std::ifstream in(file);
    if (!in)
        return steps;
    std::string line;
    while (std::getline(in, line)) {
        // "  STEP  INC  ATT  ITRS  TOT TIME  STEP TIME  INC TIME": rows start with two integers.
        std::istringstream s(line);
        int step = 0;
        long inc = 0;
        long att = 0;
        long iters = 0;
        double total = 0.0;
        if (!(s >> step >> inc >> att >> iters >> total))
            continue;
        if (!steps.empty() && steps.back().step == step)
            steps.back().totalTime = total;
        else
            steps.push_back({step, total});
    }
    return steps;
}

std::vector<const DatIncrement*> SelectSteps(const std::vector<DatIncrement>& increments,
                                             const std::vector<StaStep>& steps) {
    std::vector<const DatIncrement*> selected;
    if (steps.empty()) {
        for (const auto& inc : increments)
            selected.push_back(&inc);
        return selected;
    }
    for (const auto& step : steps) {
        // Times are printed to 7 significant digits in the .dat and 6 in the .sta.
        const DatIncrement* match = nullptr;
        for (const auto& inc : increments)
            if (std::abs(inc.time - step.totalTime) <=
                1e-5 * std::max(1.0, std::abs(step.totalTime)))
                match = &inc;
        if (!match)
            throw ImportError("step " + std::to_string(step.step) + " (total time " +
                              std::to_string(step.totalTime) +
                              ") has no *EL PRINT results of its last increment");
        selected.push_back(match);
    }
    return selected;
}

} // namespace slabadapt::ccx
