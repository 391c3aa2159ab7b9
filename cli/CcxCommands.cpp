// import-ccx and export --inp: the CalculiX side of the command.
#include "cli/Commands.h"
#include "cli/ProjectLock.h"
#include "cli/ccx/CcxImport.h"
#include "cli/ccx/InpWriter.h"

namespace slabadapt::cli {

namespace {

// The importer's failures as exit codes, each said in one line on `err`.
template <class Action> int Guarded(std::ostream& err, Action&& action) {
    try {
        action();
        return 0;
    } catch (const ccx::ImportError& e) {
        err << "slabadapt: " << e.what() << '\n';
        return kExitDataError;
    } catch (const ccx::WriteError& e) {
        err << "slabadapt: " << e.what() << '\n';
        return kExitCannotWrite;
    } catch (const std::exception& e) {
        err << "slabadapt: " << e.what() << '\n';
        return kExitInternal;
    }
}

} // namespace

int ImportCcxCommand(const ImportCcxOptions& options, std::ostream& out, std::ostream& err) {
    const ProjectLock lock(options.project, !options.noWait, err);
    if (!lock.Held())
        return kExitBusy;
    return Guarded(err, [&] {
        ccx::ImportOptions import;
        import.stress =
            options.planeStress ? ccx::StressSource::PlaneStress : ccx::StressSource::Printed;
        import.young = options.young;
        import.poisson = options.poisson;
        import.family = options.family == "plane"   ? ccx::ElementFamily::Plane
                        : options.family == "shell" ? ccx::ElementFamily::Shell
                                                    : ccx::ElementFamily::Auto;
        for (const auto& written : ccx::ImportCcx(options.project, options.dat, import))
            out << "step " << written.step << " (time " << written.time << ") -> load case "
                << written.loadCase.id << " (index " << written.loadCase.index
                << "): " << written.file.string() << '\n';
    });
}

int ExportInpCommand(const std::filesystem::path& project, const std::filesystem::path& file,
                     const std::string& type, std::ostream& out, std::ostream& err) {
    return Guarded(err, [&] {
        const bool shell = type != "plane-stress";
        ccx::ExportInp(project, file, shell ? ccx::InpFamily::Shell : ccx::InpFamily::PlaneStress);
        out << "wrote " << file.string() << " (CalculiX " << (shell ? "S3/S4" : "CPS3/CPS4")
            << " elements, project numbering)\n";
    });
}

} // namespace slabadapt::cli
