#include "host/framework/stage_clock.h"

#include <chrono>
#include <mutex>

#include <sys/resource.h>

namespace host::framework {

namespace {
constexpr std::size_t kMaxMarks = 4096;
std::mutex g_mutex;
std::vector<StageMark> g_marks;
StageObserver g_observer;
} // namespace

void MarkStage(const std::string& name) {
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    struct rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    const double peak = static_cast<double>(usage.ru_maxrss) / 1024.0; // kB on Linux
    StageObserver observer;
    {
        std::lock_guard lock(g_mutex);
        // A program that never takes the marks keeps only the newest ones.
        if (g_marks.size() >= kMaxMarks)
            g_marks.erase(g_marks.begin(), g_marks.begin() + kMaxMarks / 2);
        g_marks.push_back({name, seconds, peak});
        observer = g_observer;
    }
    if (observer)
        observer(StageMark{name, seconds, peak});
}

StageObserver SetStageObserver(StageObserver observer) {
    std::lock_guard lock(g_mutex);
    std::swap(g_observer, observer);
    return observer;
}

std::vector<StageMark> TakeStageMarks() {
    std::lock_guard lock(g_mutex);
    std::vector<StageMark> marks;
    marks.swap(g_marks);
    return marks;
}

} // namespace host::framework
