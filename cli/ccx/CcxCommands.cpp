#include "cli/ccx/CcxCommands.h"

#include "cli/ccx/CcxImport.h"
#include "cli/ccx/InpWriter.h"

#include <iostream>
#include <map>
#include <memory>
#include <string>

namespace slabadapt::ccx {

namespace {

// Exit codes as the other commands use them: 65 input that does not fit (a project, deck or
// results file), 74 an output file not written, 70 anything else.
constexpr int kExitDataError = 65;
constexpr int kExitInternal = 70;
constexpr int kExitOutput = 74;

template <class F> void Guarded(F&& action) {
    int code = 0;
    try {
        action();
        return;
    } catch (const CLI::Error&) {
        throw;
    } catch (const ImportError& e) {
        std::cerr << "slabadapt: " << e.what() << '\n';
        code = kExitDataError;
    } catch (const WriteError& e) {
        std::cerr << "slabadapt: " << e.what() << '\n';
        code = kExitOutput;
    } catch (const std::exception& e) {
        std::cerr << "slabadapt: " << e.what() << '\n';
        code = kExitInternal;
    }
    throw CLI::RuntimeError(code);
}

const std::map<std::string, InpFamily> kInpTypes = {{"shell", InpFamily::Shell},
                                                    {"plane-stress", InpFamily::PlaneStress}};

struct ImportArgs {
    std::string project;
    std::string dat;
    bool planeStress = false;
    double young = 0.0;
    double poisson = 0.0;
    std::string family = "auto";
};

struct InpArgs {
    std::string project;
    std::string file;
    std::string type = "shell";
};

void RunImport(const ImportArgs& a, const CLI::App& cmd) {
    ImportOptions options;
    options.stress = a.planeStress ? StressSource::PlaneStress : StressSource::Printed;
    if (cmd.count("--young"))
        options.young = a.young;
    if (cmd.count("--poisson"))
        options.poisson = a.poisson;
    options.family = a.family == "plane"   ? ElementFamily::Plane
                     : a.family == "shell" ? ElementFamily::Shell
                                           : ElementFamily::Auto;
    const auto written = ImportCcx(a.project, a.dat, options);
    for (const auto& w : written)
        std::cout << "step " << w.step << " (time " << w.time << ") -> load case " << w.loadCase.id
                  << " (index " << w.loadCase.index << "): " << w.file.string() << '\n';
}

void RunInp(const InpArgs& a) {
    ExportInp(a.project, a.file, kInpTypes.at(a.type));
    std::cout << "wrote " << a.file << " (CalculiX " << (a.type == "shell" ? "S3/S4" : "CPS3/CPS4")
              << " elements, project numbering)\n";
}

} // namespace

CLI::Option* AddInpExportOptions(CLI::App& exportCommand) {
    auto args = std::make_shared<InpArgs>();
    auto* inp = exportCommand.add_option("--inp", args->file,
                                         "a CalculiX input part of the mesh in the project's "
                                         "numbering: element sets SLAB1.., node sets of the "
                                         "physical curves and points");
    exportCommand
        .add_option("--inp-type", args->type,
                    "the CalculiX elements of --inp: shell (S3/S4, slabs) or "
                    "plane-stress (CPS3/CPS4, walls)")
        ->check(CLI::IsMember({"shell", "plane-stress"}))
        ->capture_default_str();
    CLI::App* cmd = &exportCommand;
    exportCommand.parse_complete_callback([cmd, inp, args] {
        if (inp->count() == 0)
            return;
        // The project is the subcommand's first positional.
        for (const CLI::Option* opt : cmd->get_options())
            if (opt->get_positional() && opt->count() > 0) {
                args->project = opt->as<std::string>();
                break;
            }
        Guarded([&] { RunInp(*args); });
    });
    return inp;
}

void RegisterCcxCommands(CLI::App& app) {
    auto imp = std::make_shared<ImportArgs>();
    CLI::App* cmd = app.add_subcommand(
        "import-ccx", "Write P's STRINTG files from CalculiX *EL PRINT results (S, E, COORD)");
    cmd->add_option("project", imp->project, "the project path P, without extension")->required();
    cmd->add_option("dat", imp->dat,
                    "the CalculiX results JOB.dat, with *EL PRINT of S, E and COORD")
        ->required()
        ->check(CLI::ExistingFile);
    cmd->add_flag("--plane-stress", imp->planeStress,
                  "recompute the stresses from the printed strains with the "
                  "plane-stress law (default: the stresses as printed)");
    cmd->add_option("--young", imp->young,
                    "Young's modulus for --plane-stress (default: the "
                    "*ELASTIC of the deck JOB.inp)");
    cmd->add_option("--poisson", imp->poisson,
                    "Poisson's ratio for --plane-stress (default: the deck's)");
    cmd->add_option("--family", imp->family,
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
    cmd->callback([imp, cmd] { Guarded([&] { RunImport(*imp, *cmd); }); });

    CLI::App* exportCommand = nullptr;
    try {
        exportCommand = app.get_subcommand("export");
    } catch (const CLI::OptionNotFound&) {
        exportCommand = nullptr;
    }
    if (exportCommand) {
        AddInpExportOptions(*exportCommand);
        return;
    }
    auto inp = std::make_shared<InpArgs>();
    CLI::App* exp = app.add_subcommand("export-inp", "Write P's mesh as a CalculiX input part in "
                                                     "the project's numbering");
    exp->add_option("project", inp->project, "the project path P, without extension")->required();
    exp->add_option("file", inp->file, "the CalculiX input file to write")->required();
    exp->add_option("--inp-type", inp->type, "shell (S3/S4) or plane-stress (CPS3/CPS4)")
        ->check(CLI::IsMember({"shell", "plane-stress"}))
        ->capture_default_str();
    exp->footer("Example:\n  slabadapt export-inp plate plate_mesh.inp --inp-type plane-stress");
    exp->callback([inp] { Guarded([&] { RunInp(*inp); }); });
}

} // namespace slabadapt::ccx
