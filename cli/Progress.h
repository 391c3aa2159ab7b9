#pragma once
// A run's progress on one line of a terminal: which stage the run is in, how far it has come
// where the stage says (host::framework::MarkProgress) and for how long,
// redrawn four times a second once the run has taken more than a second, wiped at each new
// stage (so that what the run prints starts on a clean line) and at the end.
// Nothing at all when the stream is no terminal (a file, a pipe, a test's string).
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

namespace slabadapt::cli {

class ProgressLine {
public:
    // `show`: whether to draw at all (standard error is a terminal and no JSON is asked for).
    ProgressLine(std::ostream& out, bool show);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // What a stage mark of the host kit means for the line: the stage that begins with it, or
    // empty for a mark that begins none.
    static std::string StageBegunBy(const std::string& mark);

private:
    void Run();

    std::ostream& m_out;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stop = false;
    bool m_drawn = false;
    std::string m_stage; // empty: nothing to draw (the run is printing)
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::thread m_thread;
};

// Whether standard error is a terminal.
bool StandardErrorIsATerminal();

} // namespace slabadapt::cli
