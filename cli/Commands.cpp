#include "cli/Commands.h"

#include "adaptivity/AdaptExecute.h"
#include "adaptivity/Version.h"
#include "cli/Json.h"
#include "cli/ProjectCheck.h"
#include "cli/StoredResults.h"
#include "cli/VtuExport.h"
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
#include <limits>
#include <optional>
#include <regex>
#include <sstream>
#include <string_view>

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
        if (::access(file.c_str(), W_OK) != 0)
            return std::string("it is read-only (") + std::strerror(errno) + ")";
    } else if (::access(folder.c_str(), W_OK) != 0) {
        return "the folder " + folder.string() + " is not writable (" + std::strerror(errno) + ")";
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
        err << "slabadapt: " << gar.string() << " does not exist: the project has no stored "
            << "results yet (`slabadapt run` writes them)\n";
        return true;
    }
    err << "slabadapt: " << e.what() << '\n';
    return false;
}

struct WrittenFile {
    fs::path path;
    std::string content;
};

// What the run reports, in either form.
struct RunReport {
    RunOptions options;
    std::optional<CheckReport> check;
    int code = -1;
    double globalError = 0.0;
    std::vector<SlabSummary> slabs;
    std::vector<WrittenFile> files;
    std::string resultsProblem; // why the stored results could not be read back
    double seconds = 0.0;
};

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
        for (const WrittenFile& f : r.files)
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

int RunCommand(const RunOptions& options, std::ostream& out, std::ostream& err) {
    RunReport report;
    report.options = options;
    report.options.project = fs::absolute(ResolveProject(options.project, err)).lexically_normal();
    const fs::path& project = report.options.project;

    if (!options.noCheck) {
        report.check = CheckProject(project, options.loadCases);
        PrintFindings(*report.check, err);
        if (!report.check->Passed()) {
            err << "slabadapt: the project check found " << report.check->Errors()
                << (report.check->Errors() == 1 ? " error" : " errors")
                << "; nothing was run (--no-check runs anyway)\n";
            if (options.json)
                PrintRunJson(report, out);
            return kExitCheckFailed;
        }
    }

    const fs::path gar = host::outcome::ProjectFile(project, ".GAR");
    const fs::path pos = host::outcome::ProjectFile(project, ".refine.pos");
    const FileState garBefore = StateOf(gar);
    const FileState posBefore = StateOf(pos);
    const auto wallStart = std::chrono::steady_clock::now();
    CAdaptExecute execute;
    try {
        report.code = execute.Execute(CString(project.string()),
                                      static_cast<unsigned char>(options.sourceFlag),
                                      options.solverType, options.target, options.loadCases);
    } catch (const std::exception& e) {
        err << "slabadapt: the run failed before the estimator started: " << e.what() << '\n';
        return kExitInternal;
    } catch (...) {
        err << "slabadapt: the run failed before the estimator started\n";
        return kExitInternal;
    }
    report.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
    report.globalError = execute.GetAdaptivityResult();

    if (WrittenSince(gar, garBefore)) {
        report.files.push_back({gar, "errors and new sizes per element: slabadapt results"});
        try {
            const host::outcome::Project* model =
                report.check && report.check->model ? &*report.check->model : nullptr;
            std::optional<host::outcome::Project> loaded;
            if (model == nullptr) {
                try {
                    loaded = host::outcome::LoadProject(project);
                    model = &*loaded;
                } catch (const std::exception&) {
                    // Names are a nicety; the numbers come from P.GAR alone.
                }
            }
            report.slabs = Summarize(ReadStoredResults(project, model));
        } catch (const std::exception& e) {
            report.resultsProblem = e.what();
        }
    }
    if (report.code == Success && WrittenSince(pos, posBefore)) {
        const fs::path geo = host::outcome::ProjectFile(project, ".geo");
        report.files.push_back(
            {pos, "size field for the mesher: gmsh " +
                      (fs::exists(geo) ? geo.string() : std::string("GEOMETRY.geo")) + " -2 -bgm " +
                      pos.string()});
    }

    if (options.json)
        PrintRunJson(report, out);
    else
        PrintRunText(report, out);
    if (report.code != Success) {
        err << "slabadapt: the run ended with result " << report.code << " ("
            << ResultCodeName(report.code) << ")";
        // The module gives no reason for a file it could not write; the usual ones are here.
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
        return kExitCheckFailed;
    }
    return 0;
}

// ---------------------------------------------------------------------------------------------
// results
// ---------------------------------------------------------------------------------------------

int ResultsCommand(const fs::path& given, const std::string& format, std::ostream& out,
                   std::ostream& err) {
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

    if (format == "csv") {
        out << "slab,slab_name,result_case,row,element";
        for (const ColumnInfo& c : kColumns)
            out << ',' << c.name;
        out << '\n';
        for (const SlabResult& s : results.slabs)
            for (std::size_t r = 0; r < s.rows.size(); ++r) {
                out << s.slab << ',' << CsvField(s.name) << ',' << s.resultCase << ',' << r << ','
                    << s.elementIds[r];
                for (double v : s.rows[r])
                    out << ',' << (std::isnan(v) ? std::string() : JsonNumber(v));
                out << '\n';
            }
        return 0;
    }
    if (format == "json") {
        out << "{\"file\": " << JsonString(results.garFile.string()) << ", \"columns\": [";
        for (std::size_t c = 0; c < kColumns.size(); ++c)
            out << (c ? ", " : "") << "{\"name\": " << JsonString(kColumns[c].name)
                << ", \"meaning\": " << JsonString(kColumns[c].meaning) << "}";
        out << "], \"results\": [";
        for (std::size_t i = 0; i < results.slabs.size(); ++i) {
            const SlabResult& s = results.slabs[i];
            out << (i ? ", " : "") << "{\"slab\": " << s.slab
                << ", \"name\": " << JsonString(s.name) << ", \"result_case\": " << s.resultCase
                << ", \"rows\": [";
            for (std::size_t r = 0; r < s.rows.size(); ++r) {
                out << (r ? ", " : "") << "{\"row\": " << r << ", \"element\": " << s.elementIds[r];
                for (std::size_t c = 0; c < kColumns.size(); ++c)
                    out << ", " << JsonString(kColumns[c].name) << ": " << JsonNumber(s.rows[r][c]);
                out << "}";
            }
            out << "]}";
        }
        out << "]}\n";
        return 0;
    }
    // table
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
                << Padded(std::to_string(s.resultCase), 6) << Padded(std::to_string(r), 7)
                << Padded(std::to_string(s.elementIds[r]), 9);
            for (double v : s.rows[r]) {
                char buffer[32];
                std::snprintf(buffer, sizeof buffer, "%.6g", v);
                out << Padded(std::isnan(v) ? "-" : buffer, 14);
            }
            out << '\n';
        }
    return 0;
}

// ---------------------------------------------------------------------------------------------
// export
// ---------------------------------------------------------------------------------------------

int ExportVtuCommand(const fs::path& given, const fs::path& vtu, std::ostream& out,
                     std::ostream& err) {
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
    const auto columns = ElementColumns(results, model.mesh.elements.size());
    const auto sizes = NodalSizes(model.mesh, columns);
    try {
        WriteVtu(vtu, model.mesh, columns, sizes);
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

// ---------------------------------------------------------------------------------------------
// The command line
// ---------------------------------------------------------------------------------------------

void RegisterCommands(CLI::App& app, int& exitCode, std::ostream& out, std::ostream& err) {
    app.require_subcommand(1);
    app.footer(
        "Examples:\n"
        "  slabadapt check examples/floor/floor\n"
        "  slabadapt run examples/floor/floor --target 0.05 --load-case 101 --load-case 102\n"
        "  slabadapt results examples/floor/floor --format csv > errors.csv\n"
        "  slabadapt export examples/floor/floor --vtu floor.vtu\n"
        "A project P is a path without extension: P.msh (mesh), P.toml (slabs, load "
        "cases),\nP.STRINTG0001... (integration-point results); a run writes P.GAR and "
        "P.refine.pos.\nExit codes: run: its result code 0-6; 64 usage, 65 the project "
        "check failed,\n66 input missing, 70 internal failure, 74 output not written.");

    // help: the same text as --help, on standard output; `help COMMAND` gives a command's.
    auto helpTopic = std::make_shared<std::string>();
    CLI::App* helpCmd =
        app.add_subcommand("help", "Print this help, or the help of one command (help run)");
    helpCmd->add_option("command", *helpTopic, "the command to explain");
    helpCmd->footer("Example:\n  slabadapt help results");
    helpCmd->callback([helpTopic, &app, &exitCode, &out, &err] {
        if (helpTopic->empty()) {
            // app.help() would explain the command that runs, this one.
            out << app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
            exitCode = 0;
            return;
        }
        CLI::App* command = nullptr;
        for (CLI::App* sub : app.get_subcommands({}))
            if (sub->get_name() == *helpTopic)
                command = sub;
        if (command == nullptr) {
            err << "slabadapt help: there is no command " << *helpTopic
                << "\nSee `slabadapt --help`.\n";
            exitCode = kExitUsage;
            return;
        }
        out << command->help(app.get_name());
        exitCode = 0;
    });

    // run
    auto run = std::make_shared<RunOptions>();
    CLI::App* runCmd = app.add_subcommand(
        "run", "Estimate the discretisation error of project P and write the size field");
    runCmd->add_option("project", run->project, "the project path P, without extension")
        ->required();
    runCmd
        ->add_option("--target", run->target,
                     "required relative error as a fraction (0.05 means 5 %)")
        ->required()
        ->check(CLI::Validator(
            [](const std::string& text) -> std::string {
                const double value = std::strtod(text.c_str(), nullptr);
                if (value > 0.0 && value <= 1.0)
                    return {};
                return "the target is a fraction between 0 and 1 (0.05 means 5 %), not " + text;
            },
            "FRACTION"));
    runCmd
        ->add_option("--load-case", run->loadCases,
                     "a load-case id of P.toml to evaluate; repeat for several, or 101,102 (summed)")
        ->required()
        ->take_all()
        ->delimiter(',');
    runCmd
        ->add_option("--solver-type", run->solverType, "the solver type handed to the result store")
        ->check(CLI::NonNegativeNumber);
    runCmd
        ->add_option("--source-flag", run->sourceFlag, "the source flag handed to the result store")
        ->check(CLI::Range(0, 255));
    runCmd->add_flag("--no-check", run->noCheck, "run without checking the project first");
    runCmd->add_flag("--json", run->json, "print the summary as JSON");
    runCmd->footer("Example:\n  slabadapt run examples/floor/floor --target 0.05 --load-case 101 "
                   "--load-case 102\nExits with the run's result code (0 success, 1-6 the failed "
                   "stage) or 65 when the check fails.");
    runCmd->callback([run, &exitCode, &out, &err] {
        try {
            exitCode = RunCommand(*run, out, err);
        } catch (const std::exception& e) {
            err << "slabadapt: " << e.what() << '\n';
            exitCode = kExitInternal;
        }
    });

    // check
    auto checkProject = std::make_shared<fs::path>();
    auto checkCases = std::make_shared<std::vector<long>>();
    auto checkJson = std::make_shared<bool>(false);
    CLI::App* checkCmd = app.add_subcommand(
        "check", "Check project P for everything that would stop or mislead a run");
    checkCmd->add_option("project", *checkProject, "the project path P, without extension")
        ->required();
    checkCmd
        ->add_option("--load-case", *checkCases,
                     "a load-case id to check; repeat for several (default: all of P.toml)")
        ->take_all()
        ->delimiter(',');
    checkCmd->add_flag("--json", *checkJson, "print the report as JSON");
    checkCmd->footer("Example:\n  slabadapt check examples/floor/floor --load-case 101\n"
                     "Exits with 0 when no error was found, 65 otherwise.");
    checkCmd->callback([=, &exitCode, &out, &err] {
        try {
            exitCode = CheckCommand(*checkProject, *checkCases, *checkJson, out, err);
        } catch (const std::exception& e) {
            err << "slabadapt: " << e.what() << '\n';
            exitCode = kExitInternal;
        }
    });

    // results
    auto resultsProject = std::make_shared<fs::path>();
    auto format = std::make_shared<std::string>("table");
    CLI::App* resultsCmd =
        app.add_subcommand("results", "Print the errors and sizes a run stored in P.GAR");
    resultsCmd->add_option("project", *resultsProject, "the project path P, without extension")
        ->required();
    resultsCmd->add_option("--format", *format, "table (default), csv or json")
        ->check(CLI::IsMember({"table", "csv", "json"}));
    resultsCmd->footer(
        "Example:\n  slabadapt results examples/floor/floor --format csv > errors.csv");
    resultsCmd->callback([=, &exitCode, &out, &err] {
        try {
            exitCode = ResultsCommand(*resultsProject, *format, out, err);
        } catch (const std::exception& e) {
            err << "slabadapt: " << e.what() << '\n';
            exitCode = kExitInternal;
        }
    });

    // export
    auto exportProject = std::make_shared<fs::path>();
    auto vtu = std::make_shared<fs::path>();
    CLI::App* exportCmd =
        app.add_subcommand("export", "Write P's mesh with the stored results for other programs");
    exportCmd->add_option("project", *exportProject, "the project path P, without extension")
        ->required();
    CLI::Option* vtuOption = exportCmd->add_option(
        "--vtu", *vtu,
        "a VTK XML unstructured grid for ParaView: stored errors and sizes per cell, nodal "
        "sizes per point");
    exportCmd->footer("Example:\n  slabadapt export examples/floor/floor --vtu floor.vtu");
    exportCmd->callback([=, &exitCode, &out, &err] {
        try {
            if (vtuOption->count() > 0) {
                exitCode = ExportVtuCommand(*exportProject, *vtu, out, err);
                return;
            }
            // Other parts of the program may add export formats of their own to this command;
            // they do their work before this callback.
            for (const CLI::Option* option : exportCmd->get_options())
                if (option != vtuOption && option->count() > 0 && option->get_name() != "project" &&
                    !option->get_lnames().empty())
                    return;
            err << "slabadapt: export needs a format, e.g. --vtu FILE (see slabadapt export "
                   "--help)\n";
            exitCode = kExitUsage;
        } catch (const std::exception& e) {
            err << "slabadapt: " << e.what() << '\n';
            exitCode = kExitInternal;
        }
    });
}

int Main(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
         const std::function<void(CLI::App&)>& extend) {
    CLI::App app("slabadapt: error estimation and mesh adaptivity for slab models", "slabadapt");
    app.set_version_flag("--version", std::string("slabadapt ") + slabadapt::Version());
    // Complaints about the command line name the command they concern and its help.
    app.failure_message([](const CLI::App* root, const CLI::Error& e) {
        std::string command = "slabadapt";
        for (const CLI::App* at = root; at != nullptr;) {
            const auto parsed = at->get_subcommands();
            at = parsed.empty() ? nullptr : parsed.front();
            if (at != nullptr)
                command += " " + at->get_name();
        }
        return command + ": " + e.what() + "\nSee `" + command + " --help`.\n";
    });
    int exitCode = 0;
    RegisterCommands(app, exitCode, out, err);
    if (extend)
        extend(app);
    if (argc <= 1) {
        // No command: what there is to choose from, as a complaint.
        err << app.help();
        return kExitUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::RuntimeError& e) {
        // A command's own failure; it has already said why.
        return e.get_exit_code();
    } catch (const CLI::ParseError& e) {
        const int code = app.exit(e, out, err);
        return code == 0 ? 0 : kExitUsage;
    }
    return exitCode;
}

} // namespace slabadapt::cli
