#include "cli/ExternalTool.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace slabadapt::cli {

namespace fs = std::filesystem;

fs::path FindProgram(const std::string& name) {
    if (name.empty())
        return {};
    if (name.find('/') != std::string::npos)
        return ::access(name.c_str(), X_OK) == 0 && !fs::is_directory(name) ? fs::path(name)
                                                                            : fs::path();
    const char* path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin");
    std::string folder;
    while (std::getline(folders, folder, ':')) {
        const fs::path candidate = fs::path(folder.empty() ? "." : folder) / name;
        if (::access(candidate.c_str(), X_OK) == 0 && !fs::is_directory(candidate))
            return candidate;
    }
    return {};
}

int RunProgram(const std::vector<std::string>& args, const fs::path& folder, const fs::path& log) {
    const fs::path program = args.empty() ? fs::path() : FindProgram(args[0]);
    if (program.empty())
        return 127;
    std::vector<char*> argv;
    std::vector<std::string> copies(args);
    for (std::string& a : copies)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    const int out = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (out < 0)
        return 127;
    const pid_t child = ::fork();
    if (child < 0) {
        ::close(out);
        return 127;
    }
    if (child == 0) {
        // Only async-signal-safe calls from here on.
        if (::chdir(folder.c_str()) != 0 || ::dup2(out, 1) < 0 || ::dup2(out, 2) < 0)
            ::_exit(127);
        const int in = ::open("/dev/null", O_RDONLY);
        if (in >= 0)
            ::dup2(in, 0);
        ::execv(program.c_str(), argv.data());
        ::_exit(127);
    }
    ::close(out);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return 127;
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return 127;
}

} // namespace slabadapt::cli
