#pragma once
// Where a run's time and memory go. The host kit marks the moments a pass goes through it (the
// project opened, a result being saved and saved, the size field begun and written); the
// command marks its own and turns the marks into stages. Each mark holds the wall time from a
// steady clock, the process's peak resident memory so far and the heap in use at the mark.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace host::framework {

struct StageMark {
    std::string name;
    double seconds = 0.0;       // since an arbitrary start, steady
    double peakMegabytes = 0.0; // the largest resident set of the process up to the mark
    double heapMegabytes = 0.0; // allocated and not yet freed at the mark (malloc's count)
};

// Records a mark (thread-safe). Of marks never taken, the newest few thousand are kept.
void MarkStage(const std::string& name);
// The marks recorded since the last call, in order; the list starts again empty.
std::vector<StageMark> TakeStageMarks();

// How far the stage under way has come: `done` of `total` (bytes of a file read, rows stored),
// for a progress display. Thread-safe and cheap (two atomic stores): call it whenever a block of
// work ends. Each stage mark starts the count again at nothing.
void MarkProgress(std::uint64_t done, std::uint64_t total);
struct Progress {
    std::uint64_t done = 0;
    std::uint64_t total = 0; // 0: the stage under way has said nothing of its progress
};
Progress CurrentProgress();

// Called with each mark as it is recorded (a progress display, say); an empty function removes
// it. Returns the previous one. The observer must be quick and must not mark stages itself.
using StageObserver = std::function<void(const StageMark&)>;
StageObserver SetStageObserver(StageObserver observer);

} // namespace host::framework
