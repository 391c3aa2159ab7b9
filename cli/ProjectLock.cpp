#include "cli/ProjectLock.h"

#include "host/outcome/project.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace slabadapt::cli {

namespace fs = std::filesystem;

ProjectLock::ProjectLock(const fs::path& project, bool wait, std::ostream& err) {
    std::error_code ec;
    fs::path file = host::outcome::ProjectFile(project, ".toml");
    if (!fs::is_regular_file(file, ec))
        file = host::outcome::ProjectFile(project, ".msh");
    if (!fs::is_regular_file(file, ec)) {
        m_held = true; // nothing there to write over; the command says what is missing
        return;
    }
    m_fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_fd < 0) {
        m_held = true; // unreadable: the command itself will say so
        return;
    }
    if (::flock(m_fd, LOCK_EX | LOCK_NB) == 0) {
        m_held = true;
        return;
    }
    if (!wait) {
        err << "slabadapt: another slabadapt is writing to the project " << project.string()
            << " (it holds " << file.filename().string() << "); try again when it has ended\n";
        return;
    }
    err << "slabadapt: another slabadapt is writing to the project " << project.string()
        << "; waiting for it to end (--no-wait gives up instead)\n";
    while (::flock(m_fd, LOCK_EX) != 0)
        if (errno != EINTR)
            return;
    m_held = true;
}

ProjectLock::~ProjectLock() {
    if (m_fd >= 0)
        ::close(m_fd); // closing releases the lock
}

} // namespace slabadapt::cli
