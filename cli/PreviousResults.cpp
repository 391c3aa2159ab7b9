// The results a run replaces, kept aside until the run has ended, and put back when it failed or
// was killed.
#include "adaptivity/AdaptiveMeshData.h"
#include "cli/Commands.h"
#include "cli/ExitCodes.h"
#include "host/outcome/gar.h"
#include "host/outcome/project.h"
#include "host/win32/files.h"

#include <fstream>
#include <sstream>

namespace slabadapt::cli {

namespace fs = std::filesystem;

namespace {

struct ProjectFiles {
    explicit ProjectFiles(const fs::path& project)
        : gar(host::outcome::ProjectFile(project, ".GAR")),
          journal(host::outcome::ProjectFile(project, ".GAR-journal")),
          garBackup(project.parent_path() / ("backup_" + project.filename().string() + ".GAR")),
          pos(host::outcome::ProjectFile(project, ".refine.pos")),
          posBackup(host::outcome::ProjectFile(project, ".refine.pos.backup")),
          marker(host::outcome::ProjectFile(project, ".run-pending")) {}
    fs::path gar, journal, garBackup, pos, posBackup, marker;
};

// The marker's text: which of the two files existed before the run.
std::string MarkerText(bool gar, bool pos) {
    return std::string("gar=") + (gar ? "previous" : "none") +
           "\npos=" + (pos ? "previous" : "none") + "\n";
}

// Written aside and renamed, so that a marker is whole or absent.
bool WriteMarker(const fs::path& marker, const std::string& text) {
    const fs::path temporary = host::win32::TemporaryPathBeside(marker);
    {
        std::ofstream out(temporary, std::ios::binary);
        out << text;
        out.flush();
        if (!out) {
            std::error_code ec;
            fs::remove(temporary, ec);
            return false;
        }
    }
    std::error_code ec;
    fs::rename(temporary, marker, ec);
    if (ec)
        fs::remove(temporary, ec);
    return !ec;
}

// Puts the size field set aside back. Where the run did not replace it, the name set aside is a
// second name of the file in place, which a rename would leave as it is.
void PutBackSizeField(const ProjectFiles& files, std::error_code& ec) {
    if (fs::equivalent(files.posBackup, files.pos, ec))
        fs::remove(files.posBackup, ec);
    else
        fs::rename(files.posBackup, files.pos, ec);
}

// Puts the backed-up store back. SQLite's journal of the pass belongs to the store being
// replaced: left beside the copy, it would be played into it.
bool RestoreStore(const fs::path& project, const ProjectFiles& files) {
    std::error_code ec;
    fs::remove(files.journal, ec);
    return CAdaptiveMeshData::RestoreGARFileFromBackup(CString(project.string()));
}

// A store the killed run began where there was none: its journal rolls it back on opening, and
// what is then empty goes. True when something was removed.
bool RemoveUnfinishedStore(const ProjectFiles& files) {
    std::error_code ec;
    if (!fs::exists(files.gar, ec))
        return false;
    try {
        const host::outcome::GarStore store(files.gar, false);
        if (!store.List().empty())
            return false; // the run committed its results before it was killed
    } catch (const std::exception&) {
        // Not readable as a store: the run's, half made; nothing of the user's was there.
    }
    fs::remove(files.gar, ec);
    fs::remove(files.journal, ec);
    return true;
}

// The temporary files of writers that were killed: "<name>.<anything>.tmp-<pid>-<n>".
void RemoveTemporaries(const fs::path& project) {
    std::error_code ec;
    const std::string prefix = project.filename().string() + ".";
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(project.parent_path(), ec)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind(prefix, 0) == 0 && name.find(".tmp-") != std::string::npos)
            found.push_back(entry.path());
    }
    for (const fs::path& file : found)
        fs::remove(file, ec);
}

} // namespace

PreviousResults::PreviousResults(const fs::path& given, std::ostream&)
    : m_project(QuietlyResolved(given)), m_problem(ResultsWriteProblem(m_project)) {
    if (!m_problem.empty())
        return; // what cannot be replaced is not set aside either
    const ProjectFiles files(m_project);
    std::error_code ec;
    if (fs::exists(files.gar, ec)) {
        CString backup;
        m_gar = CAdaptiveMeshData::CreateGARFileBackup(CString(m_project.string()), backup);
        if (!m_gar)
            m_problem = "cannot copy " + files.gar.string() + " aside to " +
                        files.garBackup.string() + " (a full disk?)";
    }
    if (m_problem.empty() && fs::is_regular_file(files.pos, ec)) {
        // A second name for the file is enough: the size field is never changed in place (its
        // writer puts a new file in its place), so the old one stays as it is under that name.
        // A copy where the file system has no such names.
        fs::remove(files.posBackup, ec);
        fs::create_hard_link(files.pos, files.posBackup, ec);
        if (ec)
            fs::copy_file(files.pos, files.posBackup, fs::copy_options::overwrite_existing, ec);
        m_pos = !ec;
        if (!m_pos)
            m_problem = "cannot copy " + files.pos.string() + " aside (" + ec.message() + ")";
    }
    if (m_problem.empty()) {
        m_pending = WriteMarker(files.marker, MarkerText(m_gar, m_pos));
        if (!m_pending)
            m_problem = "cannot write " + files.marker.string() + " (a full disk?)";
    }
    if (!m_problem.empty()) { // nothing may run: drop what was set aside
        fs::remove(files.garBackup, ec);
        fs::remove(files.posBackup, ec);
        m_gar = m_pos = false;
    }
}

void PreviousResults::Settle(int code, std::ostream& err) {
    const ProjectFiles files(m_project);
    std::error_code ec;
    const bool failed = code != 0 && code != kExitDataError && code != kExitUsage;
    if (!failed && m_pending) // the run's results are the project's from here on
        fs::remove(files.marker, ec);
    if (failed && m_gar && RestoreStore(m_project, files))
        err << "slabadapt: the previous results in " << files.gar.string() << " were restored\n";
    else if (m_gar)
        fs::remove(files.garBackup, ec);
    if (failed && m_pos)
        PutBackSizeField(files, ec);
    else if (m_pos)
        fs::remove(files.posBackup, ec);
    if (m_pending)
        fs::remove(files.marker, ec);
    m_gar = m_pos = m_pending = false;
}

PreviousResults::~PreviousResults() {
    std::ostringstream ignored;
    if (m_gar || m_pos || m_pending)
        Settle(kExitInternal, ignored);
}

void RecoverInterruptedRun(const fs::path& given, std::ostream& err) {
    const fs::path project = QuietlyResolved(given);
    const ProjectFiles files(project);
    std::error_code ec;
    if (!fs::exists(files.marker, ec)) {
        // Backups of a run that ended (killed while it dropped them) or that was killed while
        // it made them: P.GAR and P.refine.pos are as they should be.
        if (fs::exists(files.garBackup, ec) || fs::exists(files.posBackup, ec)) {
            fs::remove(files.garBackup, ec);
            fs::remove(files.posBackup, ec);
        }
        return;
    }
    std::ifstream in(files.marker);
    std::stringstream text;
    text << in.rdbuf();
    const bool hadGar = text.str().find("gar=previous") != std::string::npos;
    const bool hadPos = text.str().find("pos=previous") != std::string::npos;
    bool changed = false;
    bool keptNew = false; // the run had committed its results where there were none
    if (hadGar && fs::exists(files.garBackup, ec)) {
        changed = RestoreStore(project, files);
    } else if (!hadGar) {
        changed = RemoveUnfinishedStore(files);
        keptNew = fs::exists(files.gar, ec);
    }
    if (keptNew) {
        fs::remove(files.posBackup, ec);
    } else if (hadPos && fs::exists(files.posBackup, ec)) {
        const bool replaced = !fs::equivalent(files.posBackup, files.pos, ec);
        PutBackSizeField(files, ec);
        changed = changed || replaced;
    } else if (!hadPos && fs::exists(files.pos, ec)) {
        fs::remove(files.pos, ec); // the killed run's, whose results are gone
        changed = true;
    }
    RemoveTemporaries(project);
    fs::remove(files.marker, ec);
    if (!changed)
        return;
    if (hadGar)
        err << "slabadapt: a run on " << project.string()
            << " did not end; the results it had set aside are back in " << files.gar.string()
            << '\n';
    else
        err << "slabadapt: a run on " << project.string()
            << " did not end; what it had begun to write is removed (there were no results "
               "before it)\n";
}

} // namespace slabadapt::cli
