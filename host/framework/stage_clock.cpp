#include "host/framework/stage_clock.h"

#include <chrono>
#include <mutex>

#include <sys/resource.h>

namespace host::framework {

namespace {
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
