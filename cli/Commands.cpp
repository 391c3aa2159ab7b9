#include "cli/Commands.h"

#include "adaptivity/AdaptExecute.h"
#include "adaptivity/AdaptiveMeshData.h"
#include "adaptivity/Version.h"
#include "cli/CheckedResultsAccess.h"
#include "cli/Envelope.h"
#include "cli/Json.h"
#include "cli/Progress.h"
#include "cli/ProjectCheck.h"
#include "cli/ProjectLock.h"
#include "cli/StoredResults.h"
#include "cli/VtuExport.h"
#include "host/calclink/solver_writer.h"
#include "host/framework/stage_clock.h"
#include "host/outcome/gar.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <future>
#include <iostream>
#include <limits>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include <sys/stat.h>
#include <unistd.h>

namespace slabadapt::cli {

namespace fs = std::filesystem;

namespace {

std::string Fixed(double value, int decimals) {
    if (std::isnan(value))
        return "-";
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.*f", decimals, value);
    return buffer;
}

std::string General(double value) {
    if (std::isnan(value))
        return "-";
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.4g", value);
    return buffer;
}

// A CSV field as RFC 4180 has it: quoted, with its quotes doubled, when it holds a comma, a
// quote or a line break (slab names come from P.toml and may hold any of them).
std::string CsvField(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos)
        return std::string(text);
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"')
            quoted += '"';
        quoted += c;
    }
    return quoted + '"';
}

std::string Padded(std::string text, std::size_t width, bool right = true) {
    if (text.size() >= width)
        return text;
    const std::string pad(width - text.size(), ' ');
    return right ? pad + text : text + pad;
}

// What a file looked like before the run, to tell afterwards whether the run wrote it.
struct FileState {
    bool existed = false;
    fs::file_time_type time;
    std::uintmax_t size = 0;
};

FileState StateOf(const fs::path& file) {
    FileState state;
    std::error_code ec;
    if (!fs::is_regular_file(file, ec))
        return state;
    state.time = fs::last_write_time(file, ec);
    state.size = fs::file_size(file, ec);
    state.existed = !ec;
    return state;
}

// A file the run wrote: a regular file now that did not exist before it, or that changed.
bool WrittenSince(const fs::path& file, const FileState& before) {
    const FileState after = StateOf(file);
    if (!after.existed)
        return false;
    return !before.existed || after.time != before.time || after.size != before.size;
}

} // namespace

std::string WriteProblem(const fs::path& file) {
    std::error_code ec;
    if (file.empty())
        return "no file name given";
    if (fs::is_directory(file, ec))
        return "it is a folder, not a file";
    const fs::path folder = file.has_parent_path() ? file.parent_path() : fs::path(".");
    if (!fs::exists(folder, ec))
        return "the folder " + folder.string() + " does not exist";
    if (!fs::is_directory(folder, ec))
        return folder.string() + " is not a folder";
    if (fs::exists(file, ec)) {
        if (!PermitsWriting(file))
            return "it is read-only";
    } else if (!PermitsWriting(folder)) {
        return "the folder " + folder.string() + " is not writable";
    }
    return {};
}

bool PermitsWriting(const fs::path& path) {
    // The superuser may write anything; a file or folder the user made read-only is still
    // taken as a wish not to replace it.
    if (::geteuid() == 0) {
        struct stat status {};
        return ::stat(path.c_str(), &status) == 0 && (status.st_mode & 0222) != 0;
    }
    return ::access(path.c_str(), W_OK) == 0;
}

std::string ResultsWriteProblem(const fs::path& project) {
    const fs::path folder = project.has_parent_path() ? project.parent_path() : fs::path(".");
    if (!PermitsWriting(folder))
        return "cannot write the results: the folder " + folder.string() + " is not writable";
    for (const char* suffix : {".GAR", ".refine.pos"}) {
        const fs::path file = host::outcome::ProjectFile(project, suffix);
        std::error_code ec;
        if (fs::exists(file, ec) && !PermitsWriting(file))
            return "cannot write the results: " + file.string() +
                   " is read-only (make it writable, or move it away, to run)";
    }
    return {};
}

fs::path ResolveProject(const fs::path& given, std::ostream& err) {
    std::error_code ec;
    if (given.empty() || fs::exists(host::outcome::ProjectFile(given, ".msh"), ec))
        return given;
    // One of the project's files named instead of the project.
    const std::string text = given.string();
    static const std::regex suffix(R"((\.msh|\.toml|\.GAR|\.refine\.pos|\.geo|\.STRINTG[0-9]+)$)");
    std::smatch match;
    if (std::regex_search(text, match, suffix)) {
        const fs::path project = text.substr(0, static_cast<std::size_t>(match.position(0)));
        if (fs::exists(host::outcome::ProjectFile(project, ".msh"), ec)) {
            err << "slabadapt: taking the project " << project.string() << " (a project is named "
                << "by the path of its files without extension)\n";
            return project;
        }
    }
    // A folder: name the projects in it.
    if (fs::is_directory(given, ec)) {
        std::vector<std::string> projects;
        for (const auto& entry : fs::directory_iterator(given, ec))
            if (entry.path().extension() == ".msh")
                projects.push_back((given / entry.path().stem()).string());
        std::sort(projects.begin(), projects.end());
        err << "slabadapt: " << given.string() << " is a folder; a project is named by the path "
            << "of its files without extension";
        if (!projects.empty()) {
            err << ", for example " << projects.front();
            if (projects.size() > 1)
                err << " (" << projects.size() << " projects there)";
        }
        err << '\n';
    }
    return given;
}

namespace {

// Why P.GAR cannot be read, for `results` and `export`; true when it is simply missing.
bool ReportUnreadableStore(const fs::path& project, const std::exception& e, std::ostream& err) {
    const fs::path gar = host::outcome::ProjectFile(project, ".GAR");
    std::error_code ec;
    if (!fs::exists(gar, ec)) {
        if (fs::exists(host::outcome::ProjectFile(project, ".run-pending"), ec))
            err << "slabadapt: " << gar.string() << " does not exist while a run replaces the "
                << "results; ask again when it has ended\n";
        else
            err << "slabadapt: " << gar.string() << " does not exist: the project has no stored "
                << "results yet (`slabadapt run` writes them)\n";
        return true;
    }
    err << "slabadapt: " << e.what() << '\n';
    return false;
}

void PrintRunText(const RunReport& r, std::ostream& out) {
    const RunOptions& o = r.options;
    out << "slabadapt " << slabadapt::Version() << ": adaptivity run on " << o.project.string()
        << "\n  target " << General(100.0 * o.target) << " %, load case"
        << (o.loadCases.size() == 1 ? " " : "s ");
    for (std::size_t i = 0; i < o.loadCases.size(); ++i)
        out << (i ? ", " : "") << o.loadCases[i];
    out << '\n';
    if (r.check)
        out << "check: " << SummaryLine(*r.check) << '\n';
    else
        out << "check: skipped (--no-check)\n";
    out << "result: " << r.code << ' ' << ResultCodeName(r.code) << '\n';
    if (r.code != Success && r.code != WriteMeshRefinementFailed) {
        out << "no global error: the run stopped before its end\n";
    } else {
        const double percent = 100.0 * r.globalError;
        out << "global relative error: " << Fixed(percent, 2) << " % (target "
            << General(100.0 * o.target) << " %): "
            << (r.globalError <= o.target ? "within the target"
                                          : "above the target, the mesh needs refining")
            << '\n';
    }
    if (!r.slabs.empty()) {
        out << "slab  name          elements  largest local error  smallest new size  "
               "largest new size\n";
        for (const SlabSummary& s : r.slabs)
            out << Padded(std::to_string(s.slab), 4) << "  " << Padded(s.name, 12, false)
                << Padded(std::to_string(s.elements), 10)
                << Padded(Fixed(s.maxLocalErrorPercent, 2) + " %", 21)
                << Padded(General(s.minNewSize), 19) << Padded(General(s.maxNewSize), 18) << '\n';
    }
    if (!r.resultsProblem.empty())
        out << "stored results: " << r.resultsProblem << '\n';
    if (r.files.empty()) {
        out << "files written: none\n";
    } else {
        out << "files written:\n";
        for (const RunReport::WrittenFile& f : r.files)
            out << "  " << f.path.string() << "  (" << f.content << ")\n";
    }
    out << "time: " << Fixed(r.seconds, 2) << " s\n";
}

void PrintRunJson(const RunReport& r, std::ostream& out) {
    const RunOptions& o = r.options;
    out << "{\"project\": " << JsonString(o.project.string())
        << ", \"version\": " << JsonString(slabadapt::Version())
        << ", \"target\": " << JsonNumber(o.target) << ", \"load_cases\": [";
    for (std::size_t i = 0; i < o.loadCases.size(); ++i)
        out << (i ? ", " : "") << o.loadCases[i];
    out << "], \"solver_type\": " << o.solverType << ", \"source_flag\": " << o.sourceFlag
        << ", \"check\": " << (r.check ? CheckReportJson(*r.check) : std::string("null"))
        << ", \"result_code\": ";
    if (r.code >= 0)
        out << r.code << ", \"result\": " << JsonString(ResultCodeName(r.code));
    else
        out << "null, \"result\": null";
    const bool haveError = r.code == Success || r.code == WriteMeshRefinementFailed;
    out << ", \"global_error\": " << (haveError ? JsonNumber(r.globalError) : "null")
        << ", \"global_error_percent\": "
        << (haveError ? JsonNumber(100.0 * r.globalError) : "null") << ", \"within_target\": "
        << (haveError ? (r.globalError <= o.target ? "true" : "false") : "null")
        << ", \"slabs\": [";
    for (std::size_t i = 0; i < r.slabs.size(); ++i) {
        const SlabSummary& s = r.slabs[i];
        out << (i ? ", " : "") << "{\"slab\": " << s.slab << ", \"name\": " << JsonString(s.name)
            << ", \"elements\": " << s.elements
            << ", \"max_local_error_percent\": " << JsonNumber(s.maxLocalErrorPercent)
            << ", \"min_new_size\": " << JsonNumber(s.minNewSize)
            << ", \"max_new_size\": " << JsonNumber(s.maxNewSize) << "}";
    }
    out << "], \"files\": [";
    for (std::size_t i = 0; i < r.files.size(); ++i)
        out << (i ? ", " : "") << "{\"path\": " << JsonString(r.files[i].path.string())
            << ", \"content\": " << JsonString(r.files[i].content) << "}";
    if (o.timings) {
        out << "], \"timings\": [";
        for (std::size_t i = 0; i < r.timings.size(); ++i)
            out << (i ? ", " : "") << "{\"stage\": " << JsonString(r.timings[i].stage)
                << ", \"seconds\": " << JsonNumber(r.timings[i].seconds)
                << ", \"peak_mb\": " << JsonNumber(r.timings[i].peakMegabytes)
                << ", \"heap_mb\": " << JsonNumber(r.timings[i].heapMegabytes) << "}";
    }
    out << "], \"warnings\": [";
    for (std::size_t i = 0; i < r.warnings.size(); ++i)
        out << (i ? ", " : "") << JsonString(r.warnings[i]);
    out << "], \"seconds\": " << JsonNumber(r.seconds) << "}\n";
}

} // namespace

const char* ResultCodeName(int code) {
    switch (code) {
    case Success:
        return "Success";
    case ResultsAccessInitFailed:
        return "ResultsAccessInitFailed";
    case MeshDataPreparationFailed:
        return "MeshDataPreparationFailed";
    case EstimatorInitFailed:
        return "EstimatorInitFailed";
    case EstimatorRunFailed:
        return "EstimatorRunFailed";
    case StoreResultsFailed:
        return "StoreResultsFailed";
    case WriteMeshRefinementFailed:
        return "WriteMeshRefinementFailed";
    default:
        return "unknown result code";
    }
}

// ---------------------------------------------------------------------------------------------
// run
// ---------------------------------------------------------------------------------------------

namespace {

// The findings on `err` and, when the check failed, the sentence that nothing was run.
bool Verdict(const CheckReport& check, std::ostream& err) {
    PrintFindings(check, err);
    if (check.Passed())
        return true;
    err << "slabadapt: the project check found " << check.Errors()
        << (check.Errors() == 1 ? " error" : " errors")
        << "; nothing was run (--no-check runs anyway)\n";
    return false;
}

class CheckedExecute : public CAdaptExecute {
public:
    using CAdaptExecute::ExecuteOn;
};

} // namespace

bool CheckBeforeRun(const fs::path& project, const std::vector<long>& loadCases,
                    std::optional<CheckReport>& check, std::ostream& err) {
    check = CheckProject(project, loadCases);
    host::framework::MarkStage("checked");
    return Verdict(*check, err);
}

std::vector<StageTiming> StagesOf(const std::vector<host::framework::StageMark>& marks) {
    auto first = [&](const std::string& name) -> const host::framework::StageMark* {
        for (const auto& m : marks)
            if (m.name == name)
                return &m;
        return nullptr;
    };
    auto last = [&](const std::string& name) -> const host::framework::StageMark* {
        for (auto m = marks.rbegin(); m != marks.rend(); ++m)
            if (m->name == name)
                return &*m;
        return nullptr;
    };
    std::vector<StageTiming> stages;
    auto stage = [&](const char* what, const host::framework::StageMark* from,
                     const host::framework::StageMark* to) {
        if (from != nullptr && to != nullptr && to->seconds >= from->seconds)
            stages.push_back(
                {what, to->seconds - from->seconds, to->peakMegabytes, to->heapMegabytes});
    };
    // In a run the STRINTG files are checked while the pass reads them: the stages overlap.
    const host::framework::StageMark* scanned = first("STRINTG files checked");
    stage("check P.msh and P.toml", first("start"), first("project checked"));
    stage("check the STRINTG files", first("project checked"),
          scanned != nullptr ? scanned : first("checked"));
    stage("open the project (P.msh, P.toml)", first("pass"), first("project opened"));
    // The estimator marks its set-up and its run; a pass that stops before them has the
    // reading alone, up to its first save.
    const host::framework::StageMark* setUp = first("setting up the estimator");
    stage("read the STRINTG files", first("project opened"),
          setUp != nullptr ? setUp : first("saving"));
    stage("set up the estimator's records", setUp, first("estimating"));
    stage("estimate (recovery, errors, sizes)", first("estimating"), first("estimated"));
    stage("store the results (P.GAR)", first("saving"), last("saved"));
    stage("write the size field (P.refine.pos)", first("writing the size field"),
          first("size field written"));
    // The size field may still be written while the pass ends (it is written beside the
    // commit): the pass's end runs from its last mark before the commit.
    const host::framework::StageMark* committed = last("committed");
    const host::framework::StageMark* passEnd = nullptr;
    for (const auto& m : marks)
        if ((m.name == "saved" || m.name == "writing the size field" ||
             m.name == "size field written") &&
            committed != nullptr && m.seconds <= committed->seconds &&
            (passEnd == nullptr || m.seconds >= passEnd->seconds))
            passEnd = &m;
    stage("end the pass, commit P.GAR", passEnd, committed);
    stage("read the summary back", last("committed"), last("summary read"));
    return stages;
}

std::vector<std::string> UntrustedNumbers(const RunReport& report) {
    std::vector<std::string> warnings;
    if (report.code != Success && report.code != WriteMeshRefinementFailed)
        return warnings;
    // Values too large for the estimator's sums (the check names them) show as a global error
    // that is not finite, or as one of no size (below 1e-100, where no real model lies) beside
    // elements with local errors, or as stored values that are not finite.
    double largestLocal = 0.0;
    for (const SlabSummary& s : report.slabs)
        if (std::isfinite(s.maxLocalErrorPercent))
            largestLocal = std::max(largestLocal, s.maxLocalErrorPercent);
    if (!std::isfinite(report.globalError) || (report.globalError < 1e-100 && largestLocal > 1e-6))
        warnings.push_back("the global error is " + Fixed(100.0 * report.globalError, 2) +
                           " % while elements have local errors up to " + Fixed(largestLocal, 2) +
                           " %: the estimator's sums overflowed (integration-point values too "
                           "large?); its errors and sizes cannot be trusted (slabadapt check "
                           "names such values)");
    for (const SlabSummary& s : report.slabs)
        if (!std::isfinite(s.maxLocalErrorPercent) || !std::isfinite(s.minNewSize) ||
            !std::isfinite(s.maxNewSize))
            warnings.push_back("slab " + std::to_string(s.slab) +
                               ": P.GAR holds errors or sizes that are not finite numbers; "
                               "they cannot be trusted (slabadapt check names the values "
                               "behind them)");
    return warnings;
}

int RunPass(const RunOptions& options, RunReport& report, std::ostream& err) {
    report.options = options;
    report.options.project = fs::absolute(ResolveProject(options.project, err)).lexically_normal();
    const fs::path& project = report.options.project;

    host::framework::TakeStageMarks(); // marks of an earlier pass of this process go
    host::framework::MarkStage("start");
    // The check of P.msh and P.toml comes first; its STRINTG files are then checked while the
    // pass reads them (at once, when the first step found errors: nothing runs then).
    std::optional<StagedCheck> staged;
    std::future<void> scanning;
    std::optional<bool> passed;
    bool checkFailed = false; // the check itself threw (its scan could not read a file, say)
    auto verdict = [&]() -> bool {
        if (checkFailed)
            throw std::runtime_error("the project check did not end");
        if (!passed) {
            try {
                if (scanning.valid())
                    scanning.get();
            } catch (...) {
                checkFailed = true;
                throw;
            }
            report.check = std::move(staged->Report());
            host::framework::MarkStage("checked"); // the findings follow
            passed = Verdict(*report.check, err);
        }
        return *passed;
    };
    // Whether the check refused the project, for a pass that failed otherwise.
    auto refused = [&]() {
        try {
            return !options.noCheck && !verdict();
        } catch (const std::exception&) {
            return false; // the failure of the pass is told instead
        }
    };
    if (!options.noCheck) {
        staged.emplace(project, options.loadCases);
        auto scan = [&staged](bool halves) {
            staged->ScanFiles(halves);
            host::framework::MarkStage("STRINTG files checked");
        };
        if (!staged->Report().Passed()) {
            scan(true);
            if (!verdict())
                return kExitDataError;
        } else {
            // One thread for the check, the other for the pass's reading.
            scanning = std::async(std::launch::async, scan, false);
        }
    }

    const fs::path gar = host::outcome::ProjectFile(project, ".GAR");
    const fs::path pos = host::outcome::ProjectFile(project, ".refine.pos");
    const FileState garBefore = StateOf(gar);
    const FileState posBefore = StateOf(pos);
    const auto wallStart = std::chrono::steady_clock::now();
    host::framework::MarkStage("pass");
    CheckedExecute execute;
    // P.refine.pos is written while P.GAR is committed and read back for the summary.
    host::calclink::BackgroundSizeField sizeField;
    try {
        // The slabs' tables go into P.GAR in one transaction: all of them or none.
        host::outcome::GarSaveBatch batch(gar);
        bool stopped = false;
        {
            // Gone before the commit, with the integration-point table it holds.
            CheckedResultsAccess access(project,
                                        options.noCheck ? std::function<bool()>() : verdict);
            report.code = execute.ExecuteOn(access, CString(project.string()),
                                            static_cast<unsigned char>(options.sourceFlag),
                                            options.solverType, options.target, options.loadCases);
            stopped = access.Stopped();
        }
        // A pass that ended before its reading did (a project that cannot be opened) has the
        // check's verdict too, which comes first as when the check runs first.
        if (stopped || refused())
            return kExitDataError;
        try {
            batch.Commit();
        } catch (const host::outcome::GarError& e) {
            // A full disk, say: the store keeps nothing of the pass.
            err << "slabadapt: " << e.what() << '\n';
            if (report.code == Success || report.code == WriteMeshRefinementFailed)
                report.code = StoreResultsFailed;
        }
    } catch (const std::exception& e) {
        if (refused())
            return kExitDataError;
        err << "slabadapt: the run failed before the estimator started: " << e.what() << '\n';
        return kExitInternal;
    } catch (...) {
        if (refused())
            return kExitDataError;
        err << "slabadapt: the run failed before the estimator started\n";
        return kExitInternal;
    }
    report.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
    report.globalError = execute.GetAdaptivityResult();

    if (WrittenSince(gar, garBefore)) {
        report.files.push_back({gar, "errors and new sizes per element: slabadapt results"});
        try {
            std::shared_ptr<const host::outcome::Project> shared;
            try {
                shared = host::outcome::SharedProject(project);
            } catch (const std::exception&) {
                // Names are a nicety; the numbers come from P.GAR alone.
            }
            const host::outcome::Project* model = shared.get();
            report.slabs = Summarize(ReadStoredResults(project, model));
        } catch (const std::exception& e) {
            report.resultsProblem = e.what();
        }
    }
    host::framework::MarkStage("summary read");
    try {
        sizeField.Finish();
    } catch (const std::exception&) {
        // As when the module's write stage fails: the code is the pass's word (RunCommand
        // names the usual reasons).
        if (report.code == Success)
            report.code = WriteMeshRefinementFailed;
    }
    const std::vector<host::framework::StageMark> marks = host::framework::TakeStageMarks();
    // The pass ends when its last file is written.
    const double start = std::chrono::duration<double>(wallStart.time_since_epoch()).count();
    for (const host::framework::StageMark& mark : marks)
        if (mark.name == "size field written")
            report.seconds = std::max(report.seconds, mark.seconds - start);
    report.timings = StagesOf(marks);
    report.warnings = UntrustedNumbers(report);
    if (report.code == Success && WrittenSince(pos, posBefore)) {
        const fs::path geo = host::outcome::ProjectFile(project, ".geo");
        report.files.push_back(
            {pos, "size field for the mesher: gmsh " +
                      (fs::exists(geo) ? geo.string() : std::string("GEOMETRY.geo")) + " -2 -bgm " +
                      pos.string()});
    }
    return report.code;
}

fs::path QuietlyResolved(const fs::path& given) {
    std::ostringstream quiet;
    return fs::absolute(ResolveProject(given, quiet)).lexically_normal();
}

int RunCommand(const RunOptions& options, std::ostream& out, std::ostream& err) {
    const ProjectLock lock(QuietlyResolved(options.project), !options.noWait, err);
    if (!lock.Held())
        return kExitBusy;
    RecoverInterruptedRun(options.project, err);
    RunReport report;
    PreviousResults previous(options.project, err);
    if (!previous.Problem().empty()) {
        err << "slabadapt: " << previous.Problem() << "; nothing was run\n";
        return kExitCannotWrite;
    }
    std::optional<ProgressLine> progress;
    if (&err == &std::cerr)
        progress.emplace(err, !options.json && StandardErrorIsATerminal());
    const int code = RunPass(options, report, err);
    progress.reset();
    previous.Settle(code, err);
    if (code == kExitDataError) {
        if (options.json)
            PrintRunJson(report, out);
        return code;
    }
    if (code == kExitInternal)
        return code;

    if (options.json) {
        PrintRunJson(report, out);
    } else {
        PrintRunText(report, out);
        if (options.timings) {
            out << "timings (wall time; at the stage's end the process's peak memory and the "
                   "heap in use):\n";
            for (const StageTiming& t : report.timings)
                out << "  " << Padded(t.stage, 40, false) << Padded(Fixed(t.seconds, 2) + " s", 10)
                    << Padded(Fixed(t.peakMegabytes, 0) + " MB", 10)
                    << Padded(Fixed(t.heapMegabytes, 0) + " MB", 10) << '\n';
        }
    }
    for (const std::string& warning : report.warnings)
        err << "slabadapt: warning: " << warning << '\n';
    if (report.code != Success) {
        const fs::path& project = report.options.project;
        err << "slabadapt: the run ended with result " << report.code << " ("
            << ResultCodeName(report.code) << ")";
        // The module gives no reason for a file it could not write; the usual ones are here.
        const fs::path gar = host::outcome::ProjectFile(project, ".GAR");
        const fs::path pos = host::outcome::ProjectFile(project, ".refine.pos");
        const fs::path* file = report.code == StoreResultsFailed          ? &gar
                               : report.code == WriteMeshRefinementFailed ? &pos
                                                                          : nullptr;
        const std::string problem = file != nullptr ? WriteProblem(*file) : std::string();
        if (!problem.empty())
            err << ": " << file->string() << ": " << problem;
        err << '\n';
    }
    return report.code;
}

// ---------------------------------------------------------------------------------------------
// check
// ---------------------------------------------------------------------------------------------

int CheckCommand(const fs::path& given, const std::vector<long>& loadCases, bool json,
                 std::ostream& out, std::ostream& err) {
    const fs::path project = ResolveProject(given, err);
    const CheckReport report = CheckProject(project, loadCases);
    if (json) {
        out << CheckReportJson(report) << '\n';
    } else {
        PrintFindings(report, out);
        out << "check of " << project.string() << ": " << SummaryLine(report) << '\n';
    }
    if (!report.Passed()) {
        if (json)
            err << "slabadapt: the project check found " << report.Errors() << " errors\n";
        return kExitDataError;
    }
    return 0;
}

// ---------------------------------------------------------------------------------------------
// results
// ---------------------------------------------------------------------------------------------

namespace {

// An envelope's store (slabadapt run --envelope) adds the columns envelope (1 for the
// envelope's rows, 0 for a pass's) and governing_pass; a single pass's store keeps its columns.
void PrintResultsCsv(const StoredResults& results, std::ostream& out) {
    const bool envelope = !results.envelopeLoadCases.empty();
    out << "slab,slab_name,result_case,row,element";
    for (const ColumnInfo& c : kColumns)
        out << ',' << c.name;
    out << (envelope ? ",envelope,governing_pass\n" : "\n");
    for (const SlabResult& s : results.slabs)
        for (std::size_t r = 0; r < s.rows.size(); ++r) {
            out << s.slab << ',' << CsvField(s.name) << ',' << s.resultCase << ',' << r << ','
                << s.elementIds[r];
            for (double v : s.rows[r])
                out << ',' << (std::isnan(v) ? std::string() : JsonNumber(v));
            if (envelope)
                out << ',' << (s.envelope ? 1 : 0) << ','
                    << (s.envelope && r < s.governing.size() && !std::isnan(s.governing[r])
                            ? std::to_string(static_cast<long>(s.governing[r]))
                            : std::string());
            out << '\n';
        }
}

void PrintResultsJson(const StoredResults& results, std::ostream& out) {
    out << "{\"file\": " << JsonString(results.garFile.string()) << ", \"columns\": [";
    for (std::size_t c = 0; c < kColumns.size(); ++c)
        out << (c ? ", " : "") << "{\"name\": " << JsonString(kColumns[c].name)
            << ", \"meaning\": " << JsonString(kColumns[c].meaning) << "}";
    out << "]";
    if (!results.envelopeLoadCases.empty()) {
        out << ", \"passes\": [";
        for (std::size_t k = 0; k < results.envelopeLoadCases.size(); ++k)
            out << (k ? ", " : "") << "{\"result_case\": " << k + 1
                << ", \"load_case\": " << results.envelopeLoadCases[k] << "}";
        out << "]";
    }
    out << ", \"results\": [";
    for (std::size_t i = 0; i < results.slabs.size(); ++i) {
        const SlabResult& s = results.slabs[i];
        out << (i ? ", " : "") << "{\"slab\": " << s.slab << ", \"name\": " << JsonString(s.name)
            << ", \"result_case\": " << s.resultCase;
        if (s.envelope)
            out << ", \"envelope\": true";
        out << ", \"rows\": [";
        for (std::size_t r = 0; r < s.rows.size(); ++r) {
            out << (r ? ", " : "") << "{\"row\": " << r << ", \"element\": " << s.elementIds[r];
            for (std::size_t c = 0; c < kColumns.size(); ++c)
                out << ", " << JsonString(kColumns[c].name) << ": " << JsonNumber(s.rows[r][c]);
            if (s.envelope && r < s.governing.size())
                out << ", \"governing_pass\": " << JsonNumber(s.governing[r]);
            out << "}";
        }
        out << "]}";
    }
    out << "]}\n";
}

void PrintResultsTable(const StoredResults& results, std::ostream& out) {
    std::size_t rows = 0;
    for (const SlabResult& s : results.slabs)
        rows += s.rows.size();
    out << results.garFile.string() << ": " << results.slabs.size() << " adaptivity results, "
        << rows << " rows\n";
    for (const ColumnInfo& c : kColumns)
        out << "  " << Padded(c.title, 14, false) << c.meaning << '\n';
    out << "slab  name         case    row  element  global error   local error  error density"
           "      new size\n";
    for (const SlabResult& s : results.slabs)
        for (std::size_t r = 0; r < s.rows.size(); ++r) {
            out << Padded(std::to_string(s.slab), 4) << "  " << Padded(s.name, 11, false)
                << Padded(s.envelope ? std::string("env") : std::to_string(s.resultCase), 6)
                << Padded(std::to_string(r), 7) << Padded(std::to_string(s.elementIds[r]), 9);
            for (double v : s.rows[r]) {
                char buffer[32];
                std::snprintf(buffer, sizeof buffer, "%.6g", v);
                out << Padded(std::isnan(v) ? "-" : buffer, 14);
            }
            out << '\n';
        }
}

} // namespace

namespace {
// A reader puts back what a killed run set aside, but only while no writer runs (a running
// one has set it aside on purpose).
void RecoverWhenNoWriter(const fs::path& project, std::ostream& err) {
    std::ostringstream quiet;
    const ProjectLock lock(QuietlyResolved(project), false, quiet);
    if (lock.Held())
        RecoverInterruptedRun(project, err);
}
} // namespace

int ResultsCommand(const fs::path& given, const std::string& format, std::ostream& out,
                   std::ostream& err) {
    RecoverWhenNoWriter(given, err);
    const fs::path project = ResolveProject(given, err);
    std::optional<host::outcome::Project> model;
    try {
        model = host::outcome::LoadProject(project);
    } catch (const std::exception&) {
        // The stored results stand on their own; names are left empty.
    }
    StoredResults results;
    try {
        results = ReadStoredResults(project, model ? &*model : nullptr);
    } catch (const std::exception& e) {
        ReportUnreadableStore(project, e, err);
        return kExitNoInput;
    }
    if (results.otherResults > 0)
        err << "slabadapt: " << results.otherResults
            << " stored results of other types are not listed\n";
    if (format == "csv")
        PrintResultsCsv(results, out);
    else if (format == "json")
        PrintResultsJson(results, out);
    else
        PrintResultsTable(results, out);
    return 0;
}

// ---------------------------------------------------------------------------------------------
// export
// ---------------------------------------------------------------------------------------------

int ExportVtuCommand(const fs::path& given, const fs::path& vtu, std::ostream& out,
                     std::ostream& err) {
    RecoverWhenNoWriter(given, err);
    if (vtu.empty()) {
        err << "slabadapt: --vtu needs the name of the file to write\n";
        return kExitUsage;
    }
    const fs::path project = ResolveProject(given, err);
    host::outcome::Project model;
    try {
        model = host::outcome::LoadProject(project);
    } catch (const std::exception& e) {
        err << "slabadapt: " << e.what() << '\n';
        return kExitNoInput;
    }
    StoredResults results;
    try {
        results = ReadStoredResults(project, &model);
    } catch (const std::exception& e) {
        ReportUnreadableStore(project, e, err);
        return kExitNoInput;
    }
    const std::size_t elements = model.mesh.elements.size();
    std::vector<std::array<double, 4>> columns;
    std::vector<double> sizes;
    std::vector<std::pair<std::string, std::vector<double>>> extra;
    if (results.envelopeLoadCases.empty()) {
        columns = ElementColumns(results, elements);
        sizes = NodalSizes(model.mesh, columns);
    } else {
        // An envelope: its own columns and nodal sizes (the smallest of the passes', as its
        // size field has them), the governing pass, and every pass's columns.
        columns = ElementColumns(results, elements, 0, true);
        std::vector<std::vector<double>> passSizes;
        for (std::size_t k = 0; k < results.envelopeLoadCases.size(); ++k) {
            const auto pass = ElementColumns(results, elements, static_cast<int>(k + 1));
            passSizes.push_back(NodalSizes(model.mesh, pass));
            for (std::size_t c = 0; c < kColumns.size(); ++c) {
                std::vector<double> values(elements);
                for (std::size_t e = 0; e < elements; ++e)
                    values[e] = pass[e][c];
                extra.emplace_back("load_case_" + std::to_string(results.envelopeLoadCases[k]) +
                                       "_" + kColumns[c].name,
                                   std::move(values));
            }
        }
        sizes = MergeNodalSizes(passSizes);
        extra.insert(extra.begin(), {"governing_pass", GoverningPasses(results, elements)});
    }
    try {
        WriteVtu(vtu, model.mesh, columns, sizes, extra);
    } catch (const std::exception& e) {
        const std::string problem = WriteProblem(vtu);
        err << "slabadapt: cannot write " << vtu.string() << ": "
            << (problem.empty() ? std::string(e.what()) : problem) << '\n';
        return kExitCannotWrite;
    }
    out << "wrote " << vtu.string() << ": " << model.mesh.elements.size() << " cells, "
        << model.mesh.nodes.size() << " points\n";
    return 0;
}

} // namespace slabadapt::cli
