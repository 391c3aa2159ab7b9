#pragma once
// One writer at a time on a project: the commands that write a project's files (run, adapt,
// import-ccx) hold an advisory lock (flock) on its P.toml, or on P.msh where there is no
// P.toml, for as long as they run; no file is made for it. A second writer waits, saying so, or
// with --no-wait gives up at once (kExitBusy). Readers (results, export, check) take no lock:
// the store is replaced whole, so they never see half of it.
#include <filesystem>
#include <ostream>

namespace slabadapt::cli {

class ProjectLock {
public:
    // Takes the lock of `project` (a path without extension). With `wait` false, gives up when
    // another process holds it. Without any file to lock there is nothing to guard: Held() is
    // true.
    ProjectLock(const std::filesystem::path& project, bool wait, std::ostream& err);
    ~ProjectLock();
    ProjectLock(const ProjectLock&) = delete;
    ProjectLock& operator=(const ProjectLock&) = delete;

    bool Held() const { return m_held; }

private:
    int m_fd = -1;
    bool m_held = false;
};

} // namespace slabadapt::cli
