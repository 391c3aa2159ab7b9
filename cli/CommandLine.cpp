// The command line of `slabadapt`: one registration per command, each binding its options to
// the command's function in Commands.h.
#include "adaptivity/Version.h"
#include "cli/Adapt.h"
#include "cli/Commands.h"
#include "cli/Envelope.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <stdexcept>

#include <unistd.h>

namespace slabadapt::cli {

namespace fs = std::filesystem;

namespace {

// Where a command's outcome goes: the exit code and the two streams.
struct Sink {
    int& exitCode;
    std::ostream& out;
    std::ostream& err;
};

// Runs a command; an exception that escapes it is said in one line and ends with kExitInternal.
template <class Command> void RunGuarded(const Sink& sink, Command&& command) {
    try {
        sink.exitCode = command();
    } catch (const std::exception& e) {
        sink.err << "slabadapt: " << e.what() << '\n';
        sink.exitCode = kExitInternal;
    }
}

// --each: every valid load case of P.toml, in file order; empty (said on `err`) when P.toml
// cannot be read or has none.
std::vector<long> EveryValidLoadCase(const fs::path& given, std::ostream& err) {
    const fs::path project = ResolveProject(given, err);
    try {
        std::vector<long> ids;
        for (const auto& lc :
             host::outcome::ReadProjectData(host::outcome::ProjectFile(project, ".toml")).loadCases)
            if (lc.valid)
                ids.push_back(lc.id);
        if (ids.empty())
            err << "slabadapt: " << host::outcome::ProjectFile(project, ".toml").string()
                << " has no valid load case for --each\n";
        return ids;
    } catch (const std::exception& e) {
        err << "slabadapt: " << e.what() << '\n';
        return {};
    }
}

// What --load-case, --envelope and --each say in a command's help.
struct PassSelectionHelp {
    const char* loadCase;
    const char* envelope;
    const char* each;
};

// --load-case (summed), --envelope (one pass each, merged) and --each: one of them, each
// excluding the others.
void AddPassSelection(CLI::App& command, std::vector<long>& loadCases, std::vector<long>& envelope,
                      bool& each, const PassSelectionHelp& help) {
    CLI::Option* loadCase =
        command.add_option("--load-case", loadCases, help.loadCase)->take_all()->delimiter(',');
    CLI::Option* envelopeOption = command.add_option("--envelope", envelope, help.envelope)
                                      ->take_all()
                                      ->delimiter(',')
                                      ->excludes(loadCase);
    command.add_flag("--each", each, help.each)->excludes(loadCase)->excludes(envelopeOption);
}

// True, with the complaint on `err`, when none of the three was given.
bool NoPassSelected(const std::string& command, const std::vector<long>& loadCases,
                    const std::vector<long>& envelope, bool each, std::ostream& err) {
    if (!loadCases.empty() || !envelope.empty() || each)
        return false;
    err << "slabadapt " << command
        << ": --load-case is required (or --envelope ID ID ... or --each)\nSee `slabadapt "
        << command << " --help`.\n";
    return true;
}

void AddProjectArgument(CLI::App& command, fs::path& project) {
    command.add_option("project", project, "the project path P, without extension")->required();
}

void RegisterHelp(CLI::App& app, const Sink& sink) {
    // help: the same text as --help, on standard output; `help COMMAND` gives a command's.
    auto topic = std::make_shared<std::string>();
    CLI::App* help =
        app.add_subcommand("help", "Print this help, or the help of one command (help run)");
    help->add_option("command", *topic, "the command to explain");
    help->footer("Example:\n  slabadapt help results");
    help->callback([topic, &app, sink] {
        if (topic->empty()) {
            // app.help() would explain the command that runs, this one.
            sink.out << app.get_formatter()->make_help(&app, app.get_name(),
                                                       CLI::AppFormatMode::Normal);
            sink.exitCode = 0;
            return;
        }
        CLI::App* command = nullptr;
        for (CLI::App* sub : app.get_subcommands({}))
            if (sub->get_name() == *topic)
                command = sub;
        if (command == nullptr) {
            sink.err << "slabadapt help: there is no command " << *topic
                     << "\nSee `slabadapt --help`.\n";
            sink.exitCode = kExitUsage;
            return;
        }
        sink.out << command->help(app.get_name());
        sink.exitCode = 0;
    });
}

CLI::Validator TargetFraction() {
    return CLI::Validator(
        [](const std::string& text) -> std::string {
            const double value = std::strtod(text.c_str(), nullptr);
            if (value > 0.0 && value <= 1.0)
                return {};
            return "the target is a fraction between 0 and 1 (0.05 means 5 %), not " + text;
        },
        "FRACTION");
}

void RegisterRun(CLI::App& app, const Sink& sink) {
    auto options = std::make_shared<RunOptions>();
    CLI::App* run = app.add_subcommand(
        "run", "Estimate the discretisation error of project P and write the size field");
    AddProjectArgument(*run, options->project);
    run->add_option("--target", options->target,
                    "required relative error as a fraction (0.05 means 5 %)")
        ->required()
        ->check(TargetFraction());
    auto envelope = std::make_shared<std::vector<long>>();
    auto each = std::make_shared<bool>(false);
    AddPassSelection(*run, options->loadCases, *envelope, *each,
                     {"a load-case id of P.toml to evaluate; repeat for several, or 101,102 "
                      "(summed)",
                      "one pass per load case or combination given, merged: the largest errors "
                      "and the smallest sizes of all",
                      "an envelope over every valid load case of P.toml, each taken alone"});
    run->add_option("--solver-type", options->solverType,
                    "the solver type handed to the result store")
        ->check(CLI::NonNegativeNumber);
    run->add_option("--source-flag", options->sourceFlag,
                    "the source flag handed to the result store")
        ->check(CLI::Range(0, 255));
    run->add_flag("--no-check", options->noCheck, "run without checking the project first");
    run->add_flag("--no-wait", options->noWait,
                  "give up at once (exit 75) when another slabadapt writes the project");
    run->add_flag("--json", options->json, "print the summary as JSON");
    run->add_flag("--timings", options->timings,
                  "print each stage's wall time and the peak memory (also in --json)");
    run->footer("Example:\n  slabadapt run examples/floor/floor --target 0.05 --load-case 101 "
                "--load-case 102\nExits with the run's result code (0 success, 1-6 the failed "
                "stage) or 65 when the check fails.");
    run->callback([options, envelope, each, sink] {
        RunGuarded(sink, [&] {
            if (NoPassSelected("run", options->loadCases, *envelope, *each, sink.err))
                return kExitUsage;
            if (envelope->empty() && !*each)
                return RunCommand(*options, sink.out, sink.err);
            RunOptions passes = *options;
            passes.loadCases = *each ? EveryValidLoadCase(options->project, sink.err) : *envelope;
            if (passes.loadCases.empty())
                return kExitDataError;
            return EnvelopeCommand(passes, sink.out, sink.err);
        });
    });
}

void RegisterCheck(CLI::App& app, const Sink& sink) {
    struct Options {
        fs::path project;
        std::vector<long> loadCases;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    CLI::App* check = app.add_subcommand(
        "check", "Check project P for everything that would stop or mislead a run");
    AddProjectArgument(*check, options->project);
    check
        ->add_option("--load-case", options->loadCases,
                     "a load-case id to check; repeat for several (default: all of P.toml)")
        ->take_all()
        ->delimiter(',');
    check->add_flag("--json", options->json, "print the report as JSON");
    check->footer("Example:\n  slabadapt check examples/floor/floor --load-case 101\n"
                  "Exits with 0 when no error was found, 65 otherwise.");
    check->callback([options, sink] {
        RunGuarded(sink, [&] {
            return CheckCommand(options->project, options->loadCases, options->json, sink.out,
                                sink.err);
        });
    });
}

void RegisterResults(CLI::App& app, const Sink& sink) {
    struct Options {
        fs::path project;
        std::string format = "table";
    };
    auto options = std::make_shared<Options>();
    CLI::App* results =
        app.add_subcommand("results", "Print the errors and sizes a run stored in P.GAR");
    AddProjectArgument(*results, options->project);
    results->add_option("--format", options->format, "table (default), csv or json")
        ->check(CLI::IsMember({"table", "csv", "json"}));
    results->footer("Example:\n  slabadapt results examples/floor/floor --format csv > errors.csv");
    results->callback([options, sink] {
        RunGuarded(sink, [&] {
            return ResultsCommand(options->project, options->format, sink.out, sink.err);
        });
    });
}

void RegisterExport(CLI::App& app, const Sink& sink) {
    struct Options {
        fs::path project;
        fs::path vtu;
        fs::path inp;
        std::string inpType = "shell";
    };
    auto options = std::make_shared<Options>();
    CLI::App* exportCmd =
        app.add_subcommand("export", "Write P's mesh with the stored results for other programs");
    AddProjectArgument(*exportCmd, options->project);
    CLI::Option* vtu = exportCmd->add_option(
        "--vtu", options->vtu,
        "a VTK XML unstructured grid for ParaView: stored errors and sizes per cell, nodal "
        "sizes per point");
    CLI::Option* inp = exportCmd->add_option("--inp", options->inp,
                                             "a CalculiX input part of the mesh in the project's "
                                             "numbering: element sets SLAB1.., node sets of the "
                                             "physical curves and points");
    exportCmd
        ->add_option("--inp-type", options->inpType,
                     "the CalculiX elements of --inp: shell (S3/S4, slabs) or "
                     "plane-stress (CPS3/CPS4, walls)")
        ->check(CLI::IsMember({"shell", "plane-stress"}))
        ->capture_default_str();
    exportCmd->footer("Example:\n  slabadapt export examples/floor/floor --vtu floor.vtu");
    exportCmd->callback([options, vtu, inp, sink] {
        RunGuarded(sink, [&] {
            if (vtu->count() == 0 && inp->count() == 0) {
                sink.err << "slabadapt: export needs a format, e.g. --vtu FILE (see slabadapt "
                            "export --help)\n";
                return kExitUsage;
            }
            // The CalculiX part first: when it fails, nothing else is written.
            if (inp->count() > 0) {
                const int code = ExportInpCommand(options->project, options->inp, options->inpType,
                                                  sink.out, sink.err);
                if (code != 0 || vtu->count() == 0)
                    return code;
            }
            return ExportVtuCommand(options->project, options->vtu, sink.out, sink.err);
        });
    });
}

void RegisterImportCcx(CLI::App& app, const Sink& sink) {
    struct Options {
        ImportCcxOptions import;
        double young = 0.0;
        double poisson = 0.0;
    };
    auto options = std::make_shared<Options>();
    CLI::App* cmd = app.add_subcommand(
        "import-ccx", "Write P's STRINTG files from CalculiX *EL PRINT results (S, E, COORD)");
    AddProjectArgument(*cmd, options->import.project);
    cmd->add_option("dat", options->import.dat,
                    "the CalculiX results JOB.dat, with *EL PRINT of S, E and COORD")
        ->required()
        ->check(CLI::ExistingFile);
    cmd->add_flag("--no-wait", options->import.noWait,
                  "give up at once (exit 75) when another slabadapt writes the project");
    cmd->add_flag("--plane-stress", options->import.planeStress,
                  "recompute the stresses from the printed strains with the "
                  "plane-stress law (default: the stresses as printed)");
    CLI::Option* young = cmd->add_option("--young", options->young,
                                         "Young's modulus for --plane-stress (default: the "
                                         "*ELASTIC of the deck JOB.inp)");
    CLI::Option* poisson = cmd->add_option(
        "--poisson", options->poisson, "Poisson's ratio for --plane-stress (default: the deck's)");
    cmd->add_option("--family", options->import.family,
                    "auto: slabs where CalculiX printed a shell orientation, else "
                    "walls; plane: membrane values only; shell: all sixteen values")
        ->check(CLI::IsMember({"auto", "plane", "shell"}))
        ->capture_default_str();
    cmd->footer("Example:\n"
                "  slabadapt export examples/square-plate/plate --inp plate_mesh.inp\n"
                "  ccx -i plate      (plate.inp *INCLUDEs plate_mesh.inp, *EL PRINT S, E, COORD)\n"
                "  slabadapt import-ccx examples/square-plate/plate plate.dat\n"
                "Step k of JOB.dat goes to P.STRINTG<index> of the k-th load case of P.toml in\n"
                "ascending index. Exit codes: 65 input that does not fit, 74 file not written.");
    cmd->callback([options, young, poisson, sink] {
        if (young->count() > 0)
            options->import.young = options->young;
        if (poisson->count() > 0)
            options->import.poisson = options->poisson;
        RunGuarded(sink, [&] { return ImportCcxCommand(options->import, sink.out, sink.err); });
    });
}

void RegisterAdapt(CLI::App& app, const Sink& sink) {
    auto options = std::make_shared<AdaptOptions>();
    CLI::App* adapt = app.add_subcommand(
        "adapt", "Mesh P.geo, solve with CalculiX and refine until the error meets the target");
    AddProjectArgument(*adapt, options->project);
    adapt
        ->add_option("--target", options->target,
                     "required global relative error as a fraction (0.05 means 5 %)")
        ->required()
        ->check(TargetFraction());
    AddPassSelection(*adapt, options->loadCases, options->envelope, options->each,
                     {"a load-case id of P.toml to estimate; repeat for several (summed)",
                      "one pass per load case or combination given, until every pass meets the "
                      "target; the next mesh is their envelope",
                      "--envelope over every valid load case of P.toml"});
    adapt
        ->add_option("--h0", options->h0,
                     "element size of the first mesh (default: the sizes of P.geo)")
        ->check(CLI::PositiveNumber);
    adapt->add_flag("--triangles", options->triangles,
                    "mesh with triangles (default: quadrilaterals)");
    adapt->add_flag("--plane-stress", options->planeStress,
                    "plane-stress elements CPS3/CPS4 (walls in the x-y plane) instead of shells");
    adapt->add_option("--max-cycles", options->maxCycles, "stop after this many cycles")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    adapt
        ->add_option("--max-elements", options->maxElements,
                     "stop when the next mesh would have more elements")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    adapt
        ->add_option("--gradation", options->gradation,
                     "limit the size ratio of neighbouring nodes in the next mesh's field to R "
                     "(> 1; default: the module's field as it is)")
        ->check(CLI::Range(1.0, 100.0));
    adapt->add_option("--deck-command", options->deckCommand,
                      "a shell command run in each cycle's folder after the mesh part "
                      "P_mesh.inp is written, which writes the deck P.inp (P in $SLABADAPT_P)");
    auto* resume = adapt->add_flag("--resume", options->resume,
                                   "continue the record P.adapt after its last complete cycle");
    adapt
        ->add_flag("--fresh", options->fresh,
                   "start again; an earlier record P.adapt is moved aside to P.adapt.1, ...")
        ->excludes(resume);
    adapt->add_flag("--no-wait", options->noWait,
                    "give up at once (exit 75) when another slabadapt writes the project");
    adapt->add_option("--gmsh", options->gmsh, "the Gmsh program")->capture_default_str();
    adapt->add_option("--ccx", options->ccx, "the CalculiX program")->capture_default_str();
    adapt->footer(
        "Example:\n  slabadapt adapt examples/flat-slab/flat-slab --target 0.05 --load-case 101 "
        "--h0 1.0\nThe project needs P.geo (each physical surface a slab of P.toml; named "
        "physical curves\nand points for supports and loads) and P.toml with materials, supports "
        "and loads\n(docs/project-files.md); a P.inp beside them is used as the deck instead.\n"
        "Exit codes: 0 target met; 80 --max-cycles reached, 81 --max-elements would be exceeded,"
        "\n82 the error no longer falls; 1-6 a pass failed; 65 the project does not fit; 69 gmsh "
        "or\nccx missing or failed (its log is named).");
    adapt->callback([options, sink] {
        options->progress = &sink.err == &std::cerr && ::isatty(2) != 0;
        RunGuarded(sink, [&] {
            if (NoPassSelected("adapt", options->loadCases, options->envelope, options->each,
                               sink.err))
                return kExitUsage;
            return AdaptCommand(*options, sink.out, sink.err);
        });
    });
}

void RegisterReport(CLI::App& app, const Sink& sink) {
    auto project = std::make_shared<fs::path>();
    CLI::App* report = app.add_subcommand(
        "report", "Write P.adapt/report.html again from the record of an adaptive analysis");
    AddProjectArgument(*report, *project);
    report->footer("Example:\n  slabadapt report examples/flat-slab/flat-slab");
    report->callback([project, sink] {
        RunGuarded(sink, [&] { return ReportCommand(*project, sink.out, sink.err); });
    });
}

} // namespace

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
    const Sink sink{exitCode, out, err};
    RegisterHelp(app, sink);
    RegisterRun(app, sink);
    RegisterCheck(app, sink);
    RegisterResults(app, sink);
    RegisterExport(app, sink);
    RegisterImportCcx(app, sink);
    RegisterAdapt(app, sink);
    RegisterReport(app, sink);
}

int Main(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
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
    if (argc <= 1) {
        // No command: what there is to choose from, as a complaint.
        err << app.help();
        return kExitUsage;
    }
    if (const std::string first = argv[1]; !first.empty() && first[0] != '-') {
        bool known = false;
        std::string names;
        for (const CLI::App* sub : app.get_subcommands({})) {
            known = known || sub->get_name() == first;
            names += (names.empty() ? "" : ", ") + sub->get_name();
        }
        if (!known) {
            err << "slabadapt: there is no command \"" << first << "\" (the commands: " << names
                << ")\nSee `slabadapt --help`.\n";
            return kExitUsage;
        }
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int code = app.exit(e, out, err);
        return code == 0 ? 0 : kExitUsage;
    } catch (const std::bad_alloc&) {
        // Caught here, so that what the command set aside is put back as the stack unwinds.
        err << "slabadapt: out of memory: the model, or a count in one of its files, is larger "
               "than this machine can hold (slabadapt check names counts that do not fit)\n";
        return kExitInternal;
    } catch (const std::logic_error& e) {
        err << "slabadapt: internal error (please report it with the project's files): " << e.what()
            << '\n';
        return kExitInternal;
    } catch (const std::exception& e) {
        err << "slabadapt: unexpected failure: " << e.what() << '\n';
        return kExitInternal;
    }
    return exitCode;
}

} // namespace slabadapt::cli
