#include "cli/Adapt.h"

#include "adaptivity/Version.h"
#include "cli/AdaptReport.h"
#include "cli/Commands.h"
#include "cli/Envelope.h"
#include "cli/ExternalTool.h"
#include "cli/ProjectLock.h"
#include "cli/ccx/CcxImport.h"
#include "cli/ccx/DeckWriter.h"
#include "cli/ccx/InpWriter.h"
#include "host/calclink/solver_writer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <queue>
#include <sstream>
#include <stdexcept>

namespace slabadapt::cli {

namespace fs = std::filesystem;

namespace {

// A cycle that cannot go on: the message names the cycle, the step and its log; `code` is the
// command's exit code.
class AdaptFailure : public std::runtime_error {
public:
    AdaptFailure(int code, const std::string& message)
        : std::runtime_error(message), m_code(code) {}
    int code() const { return m_code; }

private:
    int m_code;
};

double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string Percent(double fraction) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.2f %%", 100.0 * fraction);
    return buffer;
}

std::string General(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%g", value);
    return buffer;
}

// A path inside a .geo string: Gmsh reads "\" and "\"" as escapes.
std::string GeoString(const fs::path& path) {
    std::string text;
    for (const char c : path.string()) {
        if (c == '"' || c == '\\')
            text += '\\';
        text += c;
    }
    return '"' + text + '"';
}

// The edges of a mesh: each pair of nodes that an element's side joins, once.
std::vector<std::array<std::size_t, 2>> MeshEdges(const host::outcome::Mesh& mesh) {
    std::vector<std::array<std::size_t, 2>> edges;
    for (const auto& element : mesh.elements)
        for (std::size_t i = 0; i < element.nodes.size(); ++i) {
            std::size_t a = element.nodes[i] - 1;
            std::size_t b = element.nodes[(i + 1) % element.nodes.size()] - 1;
            if (a > b)
                std::swap(a, b);
            edges.push_back({a, b});
        }
    std::sort(edges.begin(), edges.end());
    edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
    return edges;
}

// Writes a nodal size field as the module's writer does (the host kit's writer): a Gmsh list
// view, one ST or SQ entry per element with its nodes' coordinates and sizes.
void WriteSizeField(const host::outcome::Mesh& mesh, const std::vector<double>& sizes,
                    const fs::path& file) {
    std::vector<CKQPoint3D> nodes;
    for (const auto& node : mesh.nodes)
        nodes.push_back(node.position);
    try {
        host::calclink::WriteMeshSizeField(file, mesh.elements, sizes, nodes);
    } catch (const std::exception& e) {
        throw AdaptFailure(kExitCannotWrite, "cannot write " + file.string() + ": " + e.what());
    }
}

class AdaptLoop {
public:
    AdaptLoop(const AdaptOptions& options, std::ostream& out, std::ostream& err)
        : m_options(options), m_out(out), m_err(err),
          m_project(fs::absolute(options.project).lexically_normal()),
          m_stem(m_project.filename().string()), m_record(m_project.string() + ".adapt") {}

    int Run() {
        CheckInputs();
        const int first = PrepareRecord();
        if (first == 0)
            return m_history.exitCode; // a resumed record that had already reached the target
        PrintHeader();
        for (int cycle = first;; ++cycle) {
            const CycleRecord record = Cycle(cycle);
            m_history.cycles.push_back(record);
            const int code = Decide();
            WriteRecord();
            PrintCycle(record);
            if (!m_history.stop.empty()) {
                PrintStop();
                return code;
            }
        }
    }

    // After a failure: the record says so, the report shows the cycles that were complete.
    void RecordFailure(const AdaptFailure& failure) {
        m_history.stop = "failed";
        m_history.stopMessage = failure.what();
        m_history.exitCode = failure.code();
        try {
            if (fs::exists(m_record))
                WriteRecord();
        } catch (const std::exception&) {
            // The failure itself is what the user must read.
        }
    }

private:
    fs::path Geo() const { return m_project.string() + ".geo"; }
    fs::path Toml() const { return m_project.string() + ".toml"; }
    fs::path UserDeck() const { return m_project.string() + ".inp"; }
    fs::path Relative(const fs::path& path) const {
        return path.lexically_relative(fs::current_path());
    }

    void CheckInputs() {
        if (!fs::is_regular_file(Geo()))
            throw AdaptFailure(kExitNoInput, Geo().string() +
                                                 " does not exist: adapt meshes the project's "
                                                 "geometry P.geo with Gmsh");
        if (!fs::is_regular_file(Toml()))
            throw AdaptFailure(kExitNoInput, Toml().string() +
                                                 " does not exist: the slabs, supports and load "
                                                 "cases come from it");
        try {
            m_data = host::outcome::ReadProjectData(Toml());
        } catch (const host::outcome::ProjectError& e) {
            throw AdaptFailure(kExitDataError, e.what());
        }
        if (m_options.each)
            for (const auto& lc : m_data.loadCases)
                if (lc.valid)
                    m_options.envelope.push_back(lc.id);
        if (m_options.each && m_options.envelope.empty())
            throw AdaptFailure(kExitDataError, Toml().string() + " has no valid load case");
        for (const long id :
             m_options.envelope.empty() ? m_options.loadCases : m_options.envelope) {
            const bool known =
                std::any_of(m_data.loadCases.begin(), m_data.loadCases.end(),
                            [id](const host::outcome::LoadCaseData& lc) { return lc.id == id; });
            if (!known)
                throw AdaptFailure(kExitDataError,
                                   Toml().string() + " has no load case " + std::to_string(id));
        }
        for (const auto* tool : {&m_options.gmsh, &m_options.ccx}) {
            if (FindProgram(*tool).empty())
                throw AdaptFailure(
                    kExitToolFailed,
                    *tool + " cannot be found" +
                        (tool->find('/') == std::string::npos ? " on PATH" : "") +
                        (tool == &m_options.gmsh
                             ? " (Debian package gmsh; or give --gmsh PATH)"
                             : " (Debian package calculix-ccx; or give --ccx PATH)"));
        }
    }

    // The first cycle to run; 0 when a resumed record had already reached the target.
    int PrepareRecord() {
        std::error_code ec;
        bool exists = fs::exists(m_record, ec);
        if (exists && m_options.resume) {
            try {
                m_history = ReadHistory(m_record);
            } catch (const std::exception& e) {
                throw AdaptFailure(kExitDataError, e.what());
            }
            const int last = static_cast<int>(m_history.cycles.size());
            // A cycle the record does not list was interrupted: it goes.
            for (const auto& entry : fs::directory_iterator(m_record, ec)) {
                const std::string name = entry.path().filename().string();
                if (name.rfind("cycle-", 0) == 0 && std::atoi(name.c_str() + 6) > last)
                    fs::remove_all(entry.path(), ec);
            }
            FillSettings();
            if (last > 0 && m_history.cycles.back().globalError <= m_options.target) {
                m_history.stop = "target";
                m_history.stopMessage =
                    "the global error " + Percent(m_history.cycles.back().globalError) +
                    " was already within the target after cycle " + std::to_string(last);
                m_history.exitCode = 0;
                WriteRecord();
                m_out << "slabadapt: " << m_history.stopMessage << "; nothing to do\n";
                return 0;
            }
            m_history.stop.clear();
            m_history.stopMessage.clear();
            m_history.exitCode = 0;
            if (last > 0)
                m_out << "resuming after cycle " << last << " of " << Relative(m_record).string()
                      << '\n';
            return last + 1;
        }
        if (exists && !m_options.fresh) {
            AdaptHistory earlier;
            try {
                earlier = ReadHistory(m_record);
            } catch (const std::exception& e) {
                throw AdaptFailure(kExitDataError, e.what());
            }
            if (!earlier.cycles.empty())
                throw AdaptFailure(kExitUsage,
                                   m_record.string() + " holds " +
                                       std::to_string(earlier.cycles.size()) +
                                       " cycles of an earlier run: --resume continues it, --fresh "
                                       "starts again (the earlier record is kept aside)");
            // Nothing complete to keep (a run that failed in its first cycle): start again.
            fs::remove_all(m_record, ec);
            exists = false;
        }
        if (exists) {
            fs::path aside;
            for (int n = 1;; ++n) {
                aside = m_record.string() + "." + std::to_string(n);
                if (!fs::exists(aside, ec))
                    break;
            }
            fs::rename(m_record, aside, ec);
            if (ec)
                throw AdaptFailure(kExitCannotWrite, "cannot move the earlier record " +
                                                         m_record.string() +
                                                         " aside: " + ec.message());
            m_out << "the earlier record is now " << Relative(aside).string() << '\n';
        }
        fs::create_directories(m_record, ec);
        if (ec)
            throw AdaptFailure(kExitCannotWrite,
                               "cannot make " + m_record.string() + ": " + ec.message());
        FillSettings();
        return 1;
    }

    void FillSettings() {
        m_history.project = m_options.project.string();
        m_history.target = m_options.target;
        m_history.loadCases = m_options.envelope.empty() ? m_options.loadCases : m_options.envelope;
    }

    void Progress(int cycle, const char* step) {
        if (m_options.progress)
            m_err << "\r\033[K  cycle " << cycle << ": " << step << "..." << std::flush;
    }

    void ClearProgress() {
        if (m_options.progress)
            m_err << "\r\033[K" << std::flush;
    }

    CycleRecord Cycle(int cycle) {
        const fs::path folder = CycleFolder(m_record, cycle);
        std::error_code ec;
        fs::remove_all(folder, ec);
        fs::create_directories(folder, ec);
        if (ec)
            throw AdaptFailure(kExitCannotWrite,
                               "cannot make " + folder.string() + ": " + ec.message());
        const fs::path project = folder / m_stem;
        CycleRecord record;
        record.cycle = cycle;
        const auto start = std::chrono::steady_clock::now();

        Progress(cycle, "meshing with Gmsh");
        auto step = std::chrono::steady_clock::now();
        Mesh(cycle, folder);
        record.meshSeconds = SecondsSince(step);

        Progress(cycle, "solving with CalculiX");
        step = std::chrono::steady_clock::now();
        Solve(cycle, folder);
        record.solveSeconds = SecondsSince(step);

        Progress(cycle, "importing the results");
        step = std::chrono::steady_clock::now();
        Import(cycle, folder);
        record.importSeconds = SecondsSince(step);

        Progress(cycle, "estimating the error");
        step = std::chrono::steady_clock::now();
        Estimate(cycle, project, record);
        record.estimateSeconds = SecondsSince(step);
        record.totalSeconds = SecondsSince(start);
        ClearProgress();
        return record;
    }

    std::string Where(int cycle, const fs::path& log) const {
        return "cycle " + std::to_string(cycle) + ": see " + log.string();
    }

    void Mesh(int cycle, const fs::path& folder) {
        const fs::path geo = folder / "mesh.geo";
        {
            std::ofstream out(geo);
            out << "// Cycle " << cycle
                << " of slabadapt adapt: the geometry and its mesh options\n"
                << "Include " << GeoString(Geo()) << ";\n";
            // Quadrilaterals by blossom recombination of a Frontal-Delaunay mesh (Gmsh 4.8 of
            // Debian 12 crashes with its quadrilateral algorithm 8 on embedded points).
            if (!m_options.triangles)
                out << "Mesh.RecombineAll = 1;\nMesh.Algorithm = 6;\n"
                       "Mesh.RecombinationAlgorithm = 1;\n";
            if (cycle == 1 && m_options.h0 > 0.0)
                out << "Mesh.MeshSizeMin = " << General(m_options.h0)
                    << ";\nMesh.MeshSizeMax = " << General(m_options.h0) << ";\n";
            if (cycle > 1)
                out << "// The background mesh alone sets the sizes.\n"
                       "Mesh.MeshSizeExtendFromBoundary = 0;\nMesh.MeshSizeFromPoints = 0;\n"
                       "Mesh.MeshSizeFromCurvature = 0;\n";
            if (!out)
                throw AdaptFailure(kExitCannotWrite, "cannot write " + geo.string());
        }
        const fs::path msh = folder / (m_stem + ".msh");
        std::vector<std::string> args = {m_options.gmsh, geo.string(), "-2",        "-format",
                                         "msh22",        "-o",         msh.string()};
        if (cycle > 1) {
            args.push_back("-bgm");
            const fs::path previous = CycleFolder(m_record, cycle - 1) / m_stem;
            const fs::path graded = previous.string() + ".graded.pos";
            args.push_back(m_options.gradation > 1.0 && fs::exists(graded)
                               ? graded.string()
                               : previous.string() + ".refine.pos");
        }
        const fs::path log = folder / "gmsh.log";
        const int code = RunProgram(args, folder, log);
        if (code != 0 || !fs::exists(msh) || LogHas(log, "Error   :"))
            throw AdaptFailure(kExitToolFailed, "gmsh failed to mesh " + Geo().string() +
                                                    " (exit " + std::to_string(code) + ") in " +
                                                    Where(cycle, log));
        std::error_code ec;
        fs::copy_file(Toml(), folder / (m_stem + ".toml"), fs::copy_options::overwrite_existing,
                      ec);
        if (ec)
            throw AdaptFailure(kExitCannotWrite, "cannot copy " + Toml().string() + " into " +
                                                     folder.string() + ": " + ec.message());
    }

    static bool LogHas(const fs::path& log, const std::string& text) {
        std::ifstream in(log);
        std::string line;
        while (std::getline(in, line))
            if (line.find(text) != std::string::npos)
                return true;
        return false;
    }

    void Solve(int cycle, const fs::path& folder) {
        const fs::path project = folder / m_stem;
        const auto family =
            m_options.planeStress ? ccx::InpFamily::PlaneStress : ccx::InpFamily::Shell;
        const std::string part = m_stem + "_mesh.inp";
        try {
            ccx::ExportInp(project, folder / part, family);
            if (!m_options.deckCommand.empty()) {
                // The user's own deck writer, for loads the model in P.toml cannot say.
            } else if (fs::exists(UserDeck())) {
                fs::copy_file(UserDeck(), folder / (m_stem + ".inp"),
                              fs::copy_options::overwrite_existing);
            } else {
                ccx::DeckOptions deck;
                deck.family = family;
                deck.meshPart = part;
                ccx::WriteDeckFile(project, folder / (m_stem + ".inp"), deck);
            }
        } catch (const ccx::WriteError& e) {
            throw AdaptFailure(kExitCannotWrite,
                               "cycle " + std::to_string(cycle) + ": " + e.what());
        } catch (const std::exception& e) {
            throw AdaptFailure(kExitDataError, "cycle " + std::to_string(cycle) + ": " + e.what());
        }
        if (!m_options.deckCommand.empty()) {
            const fs::path deckLog = folder / "deck.log";
            ::setenv("SLABADAPT_P", m_stem.c_str(), 1);
            const int code = RunProgram({"sh", "-c", m_options.deckCommand}, folder, deckLog);
            if (code != 0 || !fs::exists(folder / (m_stem + ".inp")))
                throw AdaptFailure(kExitToolFailed, "the deck command did not write " + m_stem +
                                                        ".inp (exit " + std::to_string(code) +
                                                        ") in " + Where(cycle, deckLog));
        }
        const fs::path log = folder / "ccx.log";
        const int code = RunProgram({m_options.ccx, "-i", m_stem}, folder, log);
        if (code != 0 || LogHas(log, "*ERROR") || !fs::exists(folder / (m_stem + ".dat")))
            throw AdaptFailure(kExitToolFailed,
                               "ccx failed to solve " + (folder / (m_stem + ".inp")).string() +
                                   " (exit " + std::to_string(code) + ") in " + Where(cycle, log));
    }

    void Import(int cycle, const fs::path& folder) {
        ImportCcxOptions options;
        options.project = folder / m_stem;
        options.dat = folder / (m_stem + ".dat");
        options.family = m_options.planeStress ? "plane" : "auto";
        const fs::path log = folder / "import.log";
        std::ofstream out(log);
        const int code = ImportCcxCommand(options, out, out);
        if (code != 0)
            throw AdaptFailure(code, "the CalculiX results could not be imported in " +
                                         Where(cycle, log));
    }

    void Estimate(int cycle, const fs::path& project, CycleRecord& record) {
        RunOptions options;
        options.project = project;
        options.target = m_options.target;
        options.loadCases = m_options.loadCases;
        const fs::path log = project.parent_path() / "run.log";
        std::ofstream out(log);
        if (!m_options.envelope.empty()) {
            EstimateEnvelope(cycle, options, log, out, record);
            return;
        }
        RunReport report;
        const int code = RunPass(options, report, out);
        if (code != 0)
            throw AdaptFailure(code, "the estimator pass ended with " +
                                         (code == kExitDataError
                                              ? std::string("a failed project check")
                                              : "result " + std::to_string(code) + " (" +
                                                    ResultCodeName(code) + ")") +
                                         " in " + Where(cycle, log));
        Record(*report.check->model, report.globalError, report.slabs, project, false, record);
    }

    // The envelope of the passes: the loop goes on until every pass meets the target, so the
    // cycle's global error is the largest of the passes'; the next mesh is the envelope's.
    void EstimateEnvelope(int cycle, RunOptions options, const fs::path& log, std::ostream& out,
                          CycleRecord& record) {
        options.loadCases = m_options.envelope;
        EnvelopeReport report;
        const int code = RunEnvelope(options, report, out);
        if (code != 0)
            throw AdaptFailure(code,
                               "the envelope of the passes ended with " +
                                   (code == kExitDataError ? std::string("a failed project check")
                                                           : "code " + std::to_string(code)) +
                                   " in " + Where(cycle, log));
        for (const EnvelopePass& p : report.passes)
            record.passes.emplace_back(p.loadCase, p.globalError);
        Record(*report.check->model, report.globalError, report.slabs, options.project, true,
               record);
    }

    // What a cycle's pass (or envelope) found, and the field of the next mesh: the stored new
    // sizes, graded with --gradation (the module's own P.refine.pos stays as it wrote it), and
    // the elements that field asks for.
    void Record(const host::outcome::Project& model, double globalError,
                const std::vector<SlabSummary>& slabs, const fs::path& project, bool envelope,
                CycleRecord& record) {
        record.elements = model.mesh.elements.size();
        record.nodes = model.mesh.nodes.size();
        record.globalError = globalError;
        for (const SlabSummary& s : slabs)
            record.slabs.push_back({s.slab, s.name, s.maxLocalErrorPercent / 100.0});
        const auto columns = ElementColumns(ReadStoredResults(project, &model),
                                            model.mesh.elements.size(), envelope ? 0 : 1, envelope);
        std::vector<double> areas(columns.size());
        std::vector<double> sizes(columns.size());
        for (std::size_t e = 0; e < columns.size(); ++e) {
            areas[e] = model.mesh.ElementArea(static_cast<unsigned long>(e + 1));
            sizes[e] = columns[e][results::kNewSizeColumn];
        }
        if (m_options.gradation > 1.0) {
            const auto graded = GradeSizes(NodalSizes(model.mesh, columns), MeshEdges(model.mesh),
                                           m_options.gradation);
            WriteSizeField(model.mesh, graded, project.string() + ".graded.pos");
            for (std::size_t e = 0; e < sizes.size(); ++e) {
                double sum = 0.0;
                for (unsigned long n : model.mesh.elements[e].nodes)
                    sum += graded[n - 1];
                sizes[e] = std::min(sizes[e], sum / model.mesh.elements[e].nodes.size());
            }
        }
        record.predictedNext = PredictElements(areas, sizes, m_options.triangles);
    }

    // Whether the loop stops after the newest cycle; its exit code.
    int Decide() {
        const StopDecision decision = DecideStop(m_history.cycles, m_options);
        m_history.stop = decision.reason;
        m_history.stopMessage = decision.message;
        m_history.exitCode = decision.exitCode;
        return decision.exitCode;
    }

    void WriteRecord() {
        try {
            WriteHistory(m_record, m_history);
            WriteReport(m_record, m_history, m_stem);
        } catch (const std::exception& e) {
            throw AdaptFailure(kExitCannotWrite, e.what());
        }
    }

    void PrintHeader() {
        m_out << "slabadapt " << slabadapt::Version() << ": adaptive analysis of "
              << m_options.project.string() << "\n  target " << General(100.0 * m_options.target)
              << (m_options.envelope.empty() ? " %, " : " % for every pass of the envelope of ");
        const auto& cases = m_options.envelope.empty() ? m_options.loadCases : m_options.envelope;
        m_out << (cases.size() == 1 ? "load case " : "load cases ");
        for (std::size_t i = 0; i < cases.size(); ++i)
            m_out << (i ? ", " : "") << cases[i];
        m_out << "; " << (m_options.triangles ? "triangles" : "quadrilaterals")
              << (m_options.planeStress ? " in plane stress" : " (shells)") << "; first mesh "
              << (m_options.h0 > 0.0 ? "h0 = " + General(m_options.h0)
                                     : std::string("from the geometry's sizes"))
              << "; at most " << m_options.maxCycles << " cycles and " << m_options.maxElements
              << " elements\n"
              << "cycle  elements     nodes  global error  largest local error      time\n";
    }

    void PrintCycle(const CycleRecord& c) {
        double largest = 0.0;
        for (const SlabError& s : c.slabs)
            largest = std::max(largest, s.maxLocalError);
        char line[160];
        std::snprintf(line, sizeof line, "%5d  %8zu  %8zu  %12s  %19s  %6.1f s\n", c.cycle,
                      c.elements, c.nodes, Percent(c.globalError).c_str(), Percent(largest).c_str(),
                      c.totalSeconds);
        m_out << line << std::flush;
    }

    void PrintStop() {
        const CycleRecord& last = m_history.cycles.back();
        m_out << "stop: " << m_history.stopMessage << '\n'
              << "record: " << Relative(m_record).string()
              << " (history.csv, history.json, one folder per cycle)\nfinal mesh: "
              << Relative(CycleFolder(m_record, last.cycle) / (m_stem + ".msh")).string()
              << "\nreport: " << Relative(m_record / "report.html").string() << '\n';
    }

    AdaptOptions m_options;
    std::ostream& m_out;
    std::ostream& m_err;
    fs::path m_project;
    std::string m_stem;
    fs::path m_record;
    host::outcome::ProjectData m_data;
    AdaptHistory m_history;
};

} // namespace

std::vector<double> GradeSizes(std::vector<double> sizes,
                               const std::vector<std::array<std::size_t, 2>>& edges, double ratio) {
    if (!(ratio > 1.0))
        return sizes;
    std::vector<std::vector<std::size_t>> neighbours(sizes.size());
    for (const auto& [a, b] : edges) {
        neighbours[a].push_back(b);
        neighbours[b].push_back(a);
    }
    // From the smallest size outwards: a node is final when it leaves the queue.
    using Entry = std::pair<double, std::size_t>;
    std::priority_queue<Entry, std::vector<Entry>, std::greater<>> queue;
    for (std::size_t n = 0; n < sizes.size(); ++n)
        if (sizes[n] > 0.0)
            queue.push({sizes[n], n});
    while (!queue.empty()) {
        const auto [h, n] = queue.top();
        queue.pop();
        if (h > sizes[n])
            continue; // an older entry
        for (const std::size_t m : neighbours[n])
            if (sizes[m] > ratio * h) {
                sizes[m] = ratio * h;
                queue.push({sizes[m], m});
            }
    }
    return sizes;
}

StopDecision DecideStop(const std::vector<CycleRecord>& cycles, const AdaptOptions& options) {
    StopDecision decision;
    if (cycles.empty())
        return decision;
    const CycleRecord& now = cycles.back();
    const std::string after =
        " after " + std::to_string(now.cycle) + (now.cycle == 1 ? " cycle" : " cycles");
    auto stop = [&](const char* reason, int code, const std::string& message) {
        decision.reason = reason;
        decision.exitCode = code;
        decision.message = message;
        return decision;
    };
    if (now.globalError <= options.target)
        return stop("target", 0,
                    "the global error " + Percent(now.globalError) + " is within the target " +
                        General(100.0 * options.target) + " %" + after);
    // Refinement that no longer buys 1 % of the error: a singularity the norm cannot resolve
    // (a point support, say) or a mesher that does not follow the size field.
    if (cycles.size() >= 2 && now.globalError >= 0.99 * cycles[cycles.size() - 2].globalError)
        return stop("stalled", kExitAdaptStalled,
                    "the global error no longer falls (" +
                        Percent(cycles[cycles.size() - 2].globalError) + ", then " +
                        Percent(now.globalError) + ")" + after);
    if (now.cycle >= options.maxCycles)
        return stop("max-cycles", kExitAdaptMaxCycles,
                    "the global error " + Percent(now.globalError) + " is still above the target" +
                        after + " (--max-cycles " + std::to_string(options.maxCycles) + ")");
    if (now.predictedNext > options.maxElements)
        return stop("max-elements", kExitAdaptMaxElements,
                    "the next mesh would have about " + std::to_string(now.predictedNext) +
                        " elements, more than --max-elements " +
                        std::to_string(options.maxElements) + "; the global error is " +
                        Percent(now.globalError) + after);
    return decision;
}

std::size_t PredictElements(const std::vector<double>& areas, const std::vector<double>& sizes,
                            bool triangles) {
    // An equilateral triangle of side h covers sqrt(3)/4 h^2; Gmsh's quadrilaterals come from
    // pairs of such triangles.
    const double perArea = triangles ? 4.0 / std::sqrt(3.0) : 2.0 / std::sqrt(3.0);
    double count = 0.0;
    for (std::size_t e = 0; e < areas.size() && e < sizes.size(); ++e)
        if (sizes[e] > 0.0 && std::isfinite(sizes[e]))
            count += perArea * areas[e] / (sizes[e] * sizes[e]);
    return count < 1e15 ? static_cast<std::size_t>(std::llround(count)) : std::size_t(1e15);
}

int AdaptCommand(const AdaptOptions& options, std::ostream& out, std::ostream& err) {
    const ProjectLock lock(options.project, !options.noWait, err);
    if (!lock.Held())
        return kExitBusy;
    AdaptLoop loop(options, out, err);
    try {
        return loop.Run();
    } catch (const AdaptFailure& failure) {
        if (options.progress)
            err << "\r\033[K";
        err << "slabadapt: " << failure.what() << '\n';
        if (failure.code() != kExitUsage)
            loop.RecordFailure(failure);
        return failure.code();
    }
}

int ReportCommand(const fs::path& project, std::ostream& out, std::ostream& err) {
    const fs::path record = project.string() + ".adapt";
    AdaptHistory history;
    try {
        history = ReadHistory(record);
    } catch (const std::exception& e) {
        err << "slabadapt: " << e.what() << '\n';
        return kExitDataError;
    }
    if (history.cycles.empty()) {
        err << "slabadapt: " << record.string()
            << " holds no complete cycle: `slabadapt adapt` makes the record\n";
        return kExitNoInput;
    }
    try {
        WriteReport(record, history, project.filename().string());
    } catch (const std::exception& e) {
        err << "slabadapt: " << e.what() << '\n';
        return kExitCannotWrite;
    }
    out << "wrote " << (record / "report.html").string() << " (" << history.cycles.size()
        << " cycles)\n";
    return 0;
}

} // namespace slabadapt::cli
