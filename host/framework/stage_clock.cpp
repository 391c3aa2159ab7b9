#include "host/framework/stage_clock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>

#include <malloc.h>
#include <sys/resource.h>

namespace host::framework {

namespace {
constexpr std::size_t kMaxMarks = 4096;
std::mutex g_mutex;
std::vector<StageMark> g_marks;
StageObserver g_observer;
std::atomic<std::uint64_t> g_done{0};
std::atomic<std::uint64_t> g_total{0};
} // namespace

void MarkProgress(std::uint64_t done, std::uint64_t total) {
    g_done.store(std::min(done, total), std::memory_order_relaxed);
    g_total.store(total, std::memory_order_relaxed);
}

Progress CurrentProgress() {
    Progress progress;
    progress.total = g_total.load(std::memory_order_relaxed);
    progress.done = std::min(g_done.load(std::memory_order_relaxed), progress.total);
    return progress;
}

void MarkStage(const std::string& name) {
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    struct rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    const double peak = static_cast<double>(usage.ru_maxrss) / 1024.0; // kB on Linux
    // What the program holds, as opposed to what the process has touched: freed memory stays
    // in the resident set until it is used again.
    const struct mallinfo2 heap = ::mallinfo2();
    const double inUse = static_cast<double>(heap.uordblks + heap.hblkhd) / (1024.0 * 1024.0);
    StageObserver observer;
    g_total.store(0, std::memory_order_relaxed);
    g_done.store(0, std::memory_order_relaxed);
    {
        std::lock_guard lock(g_mutex);
        // A program that never takes the marks keeps only the newest ones.
        if (g_marks.size() >= kMaxMarks)
            g_marks.erase(g_marks.begin(), g_marks.begin() + kMaxMarks / 2);
        g_marks.push_back({name, seconds, peak, inUse});
        observer = g_observer;
    }
    if (observer)
        observer(StageMark{name, seconds, peak, inUse});
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
