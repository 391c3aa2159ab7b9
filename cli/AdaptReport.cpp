#include "cli/AdaptReport.h"

#include "adaptivity/ResultLayout.h"
#include "adaptivity/Version.h"
#include "cli/StoredResults.h"
#include "host/outcome/project.h"
#include "host/win32/files.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <numeric>
#include <sstream>
#include <stdexcept>

namespace slabadapt::cli {

namespace fs = std::filesystem;

namespace {

std::string Escape(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string Fmt(const char* format, double value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, value);
    return buffer;
}

std::string Percent(double fraction) {
    return Fmt("%.2f", 100.0 * fraction) + " %";
}

// A colour of the scale from blue (0) over green and yellow to red (1).
std::string Colour(double t) {
    static const std::array<std::array<double, 3>, 5> stops = {
        {{49, 54, 149}, {69, 170, 200}, {120, 198, 121}, {254, 224, 100}, {215, 48, 39}}};
    if (!std::isfinite(t))
        return "#bbbbbb";
    t = std::clamp(t, 0.0, 1.0) * (stops.size() - 1);
    const auto i = std::min<std::size_t>(static_cast<std::size_t>(t), stops.size() - 2);
    const double f = t - static_cast<double>(i);
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "#%02x%02x%02x",
                  static_cast<int>(std::lround(stops[i][0] + f * (stops[i + 1][0] - stops[i][0]))),
                  static_cast<int>(std::lround(stops[i][1] + f * (stops[i + 1][1] - stops[i][1]))),
                  static_cast<int>(std::lround(stops[i][2] + f * (stops[i + 1][2] - stops[i][2]))));
    return buffer;
}

// Ticks of a log axis between lo and hi: the decades and their 2 and 5 multiples.
std::vector<double> LogTicks(double lo, double hi) {
    std::vector<double> ticks;
    if (!(lo > 0.0 && std::isfinite(lo) && hi >= lo && std::isfinite(hi) && hi / lo < 1e30))
        return ticks;
    for (int e = static_cast<int>(std::floor(std::log10(lo))) - 1;
         e <= static_cast<int>(std::ceil(std::log10(hi))); ++e)
        for (double m : {1.0, 2.0, 5.0}) {
            const double v = m * std::pow(10.0, e);
            if (v >= lo * (1 - 1e-9) && v <= hi * (1 + 1e-9))
                ticks.push_back(v);
        }
    return ticks;
}

std::string TickLabel(double v) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%g", v);
    return buffer;
}

void ConvergencePlot(const AdaptHistory& history, std::ostream& out) {
    if (history.cycles.empty()) {
        out << "<p id=\"convergence\">No cycle is complete yet.</p>\n";
        return;
    }
    const double width = 640, height = 400, left = 70, right = 20, top = 20, bottom = 50;
    double xlo = std::numeric_limits<double>::infinity(), xhi = 0, ylo = xlo, yhi = 0;
    for (const CycleRecord& c : history.cycles) {
        xlo = std::min(xlo, static_cast<double>(std::max<std::size_t>(c.elements, 1)));
        xhi = std::max(xhi, static_cast<double>(std::max<std::size_t>(c.elements, 1)));
        ylo = std::min(ylo, 100.0 * c.globalError);
        yhi = std::max(yhi, 100.0 * c.globalError);
    }
    if (history.target > 0) {
        ylo = std::min(ylo, 100.0 * history.target);
        yhi = std::max(yhi, 100.0 * history.target);
    }
    ylo = std::max(ylo, 1e-6);
    yhi = std::max(yhi, ylo);
    // Whole decades around the data, so that slopes read off the grid.
    xlo = std::pow(10.0, std::floor(std::log10(xlo)));
    xhi = std::pow(10.0, std::ceil(std::log10(xhi * 1.0001)));
    ylo = std::pow(10.0, std::floor(std::log10(ylo)));
    yhi = std::pow(10.0, std::ceil(std::log10(yhi * 1.0001)));
    auto X = [&](double v) {
        return left + (width - left - right) * (std::log10(v) - std::log10(xlo)) /
                          (std::log10(xhi) - std::log10(xlo));
    };
    auto Y = [&](double v) {
        return height - bottom -
               (height - top - bottom) * (std::log10(v) - std::log10(ylo)) /
                   (std::log10(yhi) - std::log10(ylo));
    };
    out << "<svg id=\"convergence\" xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width
        << "\" height=\"" << height << "\" viewBox=\"0 0 " << width << ' ' << height
        << "\" role=\"img\" aria-label=\"global error against elements\">\n"
        << "<rect x=\"" << left << "\" y=\"" << top << "\" width=\"" << width - left - right
        << "\" height=\"" << height - top - bottom << "\" fill=\"#fff\" stroke=\"#444\"/>\n";
    for (double t : LogTicks(xlo, xhi))
        out << "<line x1=\"" << X(t) << "\" y1=\"" << top << "\" x2=\"" << X(t) << "\" y2=\""
            << height - bottom << "\" stroke=\"#ddd\"/><text x=\"" << X(t) << "\" y=\""
            << height - bottom + 16 << "\" text-anchor=\"middle\">" << TickLabel(t) << "</text>\n";
    for (double t : LogTicks(ylo, yhi))
        out << "<line x1=\"" << left << "\" y1=\"" << Y(t) << "\" x2=\"" << width - right
            << "\" y2=\"" << Y(t) << "\" stroke=\"#ddd\"/><text x=\"" << left - 6 << "\" y=\""
            << Y(t) + 4 << "\" text-anchor=\"end\">" << TickLabel(t) << "</text>\n";
    out << "<text x=\"" << (left + width - right) / 2 << "\" y=\"" << height - 12
        << "\" text-anchor=\"middle\">elements</text>\n<text transform=\"translate(16 "
        << (top + height - bottom) / 2
        << ") rotate(-90)\" text-anchor=\"middle\">global relative error (%)</text>\n";
    if (history.target > 0)
        out << "<line class=\"target\" x1=\"" << left << "\" y1=\"" << Y(100.0 * history.target)
            << "\" x2=\"" << width - right << "\" y2=\"" << Y(100.0 * history.target)
            << "\" stroke=\"#c00\" stroke-dasharray=\"6 4\"/><text x=\"" << width - right - 4
            << "\" y=\"" << Y(100.0 * history.target) - 6
            << "\" text-anchor=\"end\" fill=\"#c00\">target " << TickLabel(100.0 * history.target)
            << " %</text>\n";
    out << "<polyline fill=\"none\" stroke=\"#1f4e9c\" stroke-width=\"2\" points=\"";
    for (const CycleRecord& c : history.cycles)
        out << X(static_cast<double>(std::max<std::size_t>(c.elements, 1))) << ','
            << Y(std::max(100.0 * c.globalError, 1e-6)) << ' ';
    out << "\"/>\n";
    for (const CycleRecord& c : history.cycles)
        out << "<circle cx=\"" << X(static_cast<double>(std::max<std::size_t>(c.elements, 1)))
            << "\" cy=\"" << Y(std::max(100.0 * c.globalError, 1e-6))
            << "\" r=\"4\" fill=\"#1f4e9c\"><title>cycle " << c.cycle << ": " << c.elements
            << " elements, " << Percent(c.globalError) << "</title></circle>\n";
    out << "</svg>\n";
}

struct MeshPicture {
    host::outcome::Project model;
    std::vector<double> localError; // per element, NaN where none is stored
};

// The cycle's mesh and its local errors; empty when the cycle's files cannot be read.
std::optional<MeshPicture> LoadPicture(const fs::path& project) {
    try {
        MeshPicture picture;
        picture.model = host::outcome::LoadProject(project);
        const auto columns = ElementColumns(ReadStoredResults(project, &picture.model),
                                            picture.model.mesh.elements.size());
        for (const auto& row : columns)
            picture.localError.push_back(row[results::kLocalErrorColumn]);
        return picture;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

void MeshSvg(const MeshPicture& picture, double scaleMax, const std::string& id,
             std::ostream& out) {
    const auto& mesh = picture.model.mesh;
    double zlo = std::numeric_limits<double>::infinity(), zhi = -zlo;
    double xlo = zlo, xhi = -zlo, ylo = zlo, yhi = -zlo;
    for (const auto& n : mesh.nodes) {
        zlo = std::min(zlo, n.position.z);
        zhi = std::max(zhi, n.position.z);
        xlo = std::min(xlo, n.position.x);
        xhi = std::max(xhi, n.position.x);
        ylo = std::min(ylo, n.position.y);
        yhi = std::max(yhi, n.position.y);
    }
    const double extent = std::max({xhi - xlo, yhi - ylo, zhi - zlo, 1e-300});
    const bool flat = zhi - zlo <= 1e-9 * extent;
    // Plan view of a flat model; otherwise an oblique view from the front, left and above.
    const double c30 = std::cos(M_PI / 6), s30 = 0.5;
    auto project = [&](const CKQPoint3D& p) -> std::array<double, 2> {
        if (flat)
            return {p.x, -p.y};
        return {(p.x - p.y) * c30, -(p.z + (p.x + p.y) * s30)};
    };
    double ulo = std::numeric_limits<double>::infinity(), uhi = -ulo, vlo = ulo, vhi = -ulo;
    for (const auto& n : mesh.nodes) {
        const auto q = project(n.position);
        ulo = std::min(ulo, q[0]);
        uhi = std::max(uhi, q[0]);
        vlo = std::min(vlo, q[1]);
        vhi = std::max(vhi, q[1]);
    }
    const double width = 600, margin = 10;
    const double scale = (width - 2 * margin) / std::max(uhi - ulo, 1e-300);
    const double height = std::max(100.0, (vhi - vlo) * scale + 2 * margin);
    // Far elements first, so that near ones cover them.
    std::vector<std::size_t> order(mesh.elements.size());
    std::iota(order.begin(), order.end(), 0);
    std::vector<double> depth(mesh.elements.size(), 0.0);
    for (std::size_t e = 0; e < mesh.elements.size(); ++e)
        for (unsigned long n : mesh.elements[e].nodes) {
            const auto& p = mesh.nodes[n - 1].position;
            depth[e] += p.x + p.y - p.z;
        }
    if (!flat)
        std::stable_sort(order.begin(), order.end(),
                         [&](std::size_t a, std::size_t b) { return depth[a] > depth[b]; });
    out << "<svg id=\"" << id << "\" class=\"mesh\" xmlns=\"http://www.w3.org/2000/svg\" width=\""
        << width << "\" height=\"" << height << "\" viewBox=\"0 0 " << width << ' ' << height
        << "\" role=\"img\" aria-label=\"mesh coloured by local error\">\n<g stroke=\"#222\" "
           "stroke-width=\""
        << (mesh.elements.size() > 5000 ? "0.12" : "0.4") << "\" stroke-linejoin=\"round\">\n";
    for (const std::size_t e : order) {
        out << "<polygon points=\"";
        for (unsigned long n : mesh.elements[e].nodes) {
            const auto q = project(mesh.nodes[n - 1].position);
            out << Fmt("%.2f", margin + (q[0] - ulo) * scale) << ','
                << Fmt("%.2f", margin + (q[1] - vlo) * scale) << ' ';
        }
        const double value = e < picture.localError.size() ? picture.localError[e] : NAN;
        out << "\" fill=\"" << Colour(scaleMax > 0 ? value / scaleMax : 0.0) << "\"/>\n";
    }
    out << "</g>\n</svg>\n";
}

void Legend(double scaleMax, bool clipped, std::ostream& out) {
    out << "<svg id=\"legend\" xmlns=\"http://www.w3.org/2000/svg\" width=\"320\" "
           "height=\"44\" viewBox=\"0 0 320 44\">\n<defs><linearGradient id=\"ramp\">";
    for (int i = 0; i <= 4; ++i)
        out << "<stop offset=\"" << i * 25 << "%\" stop-color=\"" << Colour(i / 4.0) << "\"/>";
    out << "</linearGradient></defs>\n<rect x=\"10\" y=\"4\" width=\"300\" height=\"16\" "
           "fill=\"url(#ramp)\" stroke=\"#444\"/>\n<text x=\"10\" y=\"36\">0 %</text>"
           "<text x=\"310\" y=\"36\" text-anchor=\"end\">"
        << (clipped ? "&#8805; " : "") << Percent(scaleMax)
        << "</text><text x=\"160\" y=\"36\" text-anchor=\"middle\">"
        << "local error</text>\n</svg>\n";
}

} // namespace

void WriteReportHtml(const fs::path& record, const AdaptHistory& history, const std::string& stem,
                     std::ostream& out) {
    const std::string title = "Adaptive analysis of " + history.project;
    out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>"
        << Escape(title) << "</title>\n<style>\n"
        << "body { font-family: sans-serif; margin: 2em; color: #222; max-width: 70em; }\n"
        << "table { border-collapse: collapse; margin: 1em 0; }\n"
        << "th, td { border: 1px solid #bbb; padding: 0.25em 0.6em; text-align: right; }\n"
        << "th { background: #eef; }\n"
        << "svg text { font-size: 12px; font-family: sans-serif; }\n"
        << ".meshes { display: flex; flex-wrap: wrap; gap: 2em; }\n"
        << "figure { margin: 0; }\n"
        << "</style>\n</head>\n<body>\n<h1>" << Escape(title) << "</h1>\n<p>Target: global "
        << "relative error " << Percent(history.target) << "; load case"
        << (history.loadCases.size() == 1 ? " " : "s ");
    for (std::size_t i = 0; i < history.loadCases.size(); ++i)
        out << (i ? ", " : "") << history.loadCases[i];
    out << ".</p>\n<p id=\"stop\">"
        << (history.stop.empty() ? std::string("Running: the record holds the complete cycles.")
                                 : "Stopped: " + Escape(history.stopMessage) + ".")
        << "</p>\n<h2>Convergence</h2>\n";
    ConvergencePlot(history, out);

    out << "<h2>Cycles</h2>\n<table id=\"cycles\">\n<tr><th>cycle</th><th>elements</th>"
           "<th>nodes</th><th>global error</th>";
    const std::vector<SlabError> none;
    const auto& slabs = history.cycles.empty() ? none : history.cycles.back().slabs;
    for (const SlabError& s : slabs)
        out << "<th>largest local error, slab " << s.slab
            << (s.name.empty() ? std::string() : " " + Escape(s.name)) << "</th>";
    out << "<th>next mesh (predicted)</th><th>mesh s</th><th>solve s</th><th>import s</th>"
           "<th>estimate s</th><th>total s</th></tr>\n";
    for (const CycleRecord& c : history.cycles) {
        out << "<tr><td>" << c.cycle << "</td><td>" << c.elements << "</td><td>" << c.nodes
            << "</td><td>" << Percent(c.globalError) << "</td>";
        for (const SlabError& s : c.slabs)
            out << "<td>" << Percent(s.maxLocalError) << "</td>";
        out << "<td>" << c.predictedNext << "</td><td>" << Fmt("%.2f", c.meshSeconds) << "</td><td>"
            << Fmt("%.2f", c.solveSeconds) << "</td><td>" << Fmt("%.2f", c.importSeconds)
            << "</td><td>" << Fmt("%.2f", c.estimateSeconds) << "</td><td>"
            << Fmt("%.2f", c.totalSeconds) << "</td></tr>\n";
    }
    out << "</table>\n";

    if (!history.cycles.empty()) {
        const int first = history.cycles.front().cycle;
        const int last = history.cycles.back().cycle;
        std::vector<std::pair<int, std::optional<MeshPicture>>> pictures;
        pictures.emplace_back(first, LoadPicture(CycleFolder(record, first) / stem));
        if (last != first)
            pictures.emplace_back(last, LoadPicture(CycleFolder(record, last) / stem));
        // The scale ends at the 98th percentile of both pictures' errors: a few corner elements
        // of a singularity would otherwise leave every other element the same blue.
        std::vector<double> values;
        for (const auto& [cycle, picture] : pictures)
            if (picture)
                for (double v : picture->localError)
                    if (std::isfinite(v))
                        values.push_back(v);
        double scaleMax = 0.0;
        bool clipped = false;
        if (!values.empty()) {
            const auto at =
                values.begin() + static_cast<std::ptrdiff_t>(0.98 * (values.size() - 1));
            std::nth_element(values.begin(), at, values.end());
            scaleMax = *at;
            clipped = scaleMax < *std::max_element(values.begin(), values.end());
        }
        out << "<h2>Meshes coloured by the local error</h2>\n";
        Legend(scaleMax, clipped, out);
        out << "<div class=\"meshes\">\n";
        for (const auto& [cycle, picture] : pictures) {
            out << "<figure>\n";
            if (picture)
                MeshSvg(*picture, scaleMax, "mesh-cycle-" + std::to_string(cycle), out);
            out << "<figcaption>" << (cycle == first ? "first" : "final") << " mesh, cycle "
                << cycle;
            if (picture)
                out << ": " << picture->model.mesh.elements.size() << " elements";
            else
                out << ": its files cannot be read";
            out << "</figcaption>\n</figure>\n";
        }
        out << "</div>\n";
    }
    out << "<p>Written by slabadapt " << slabadapt::Version() << ". The record of every cycle "
        << "is in this folder (history.csv, history.json, cycle-NN/).</p>\n</body>\n</html>\n";
}

void WriteReport(const fs::path& record, const AdaptHistory& history, const std::string& stem) {
    std::ostringstream page;
    WriteReportHtml(record, history, stem, page);
    const fs::path file = record / "report.html";
    const fs::path temporary = host::win32::TemporaryPathBeside(file);
    {
        std::ofstream out(temporary, std::ios::binary);
        out << page.str();
        out.flush();
        if (!out)
            throw std::runtime_error(temporary.string() + ": cannot write the report");
    }
    std::error_code ec;
    fs::rename(temporary, file, ec);
    if (ec)
        throw std::runtime_error(file.string() + ": cannot write the report (" + ec.message() +
                                 ")");
}

} // namespace slabadapt::cli
