#include "cli/Progress.h"

#include "host/framework/stage_clock.h"

#include <cstdio>
#include <utility>

#include <unistd.h>

namespace slabadapt::cli {

std::string ProgressLine::StageBegunBy(const std::string& mark) {
    // A mark not listed begins no stage of its own.
    static const std::pair<const char*, const char*> stages[] = {
        {"start", "checking the project"},
        {"project checked", "checking the STRINTG files"},
        {"pass", "opening the project"},
        {"project opened", "reading the STRINTG files"},
        {"setting up the estimator", "setting up the estimator"},
        {"estimating", "estimating the errors"},
        {"estimated", "storing the results in P.GAR"},
        {"saving", "storing the results in P.GAR"},
        {"writing the size field", "writing the size field, committing P.GAR"},
        {"committed", "reading the summary back"},
    };
    for (const auto& [name, stage] : stages)
        if (mark == name)
            return stage;
    return {};
}

ProgressLine::ProgressLine(std::ostream& out, bool show) : m_out(out) {
    if (!show)
        return;
    host::framework::SetStageObserver([this](const host::framework::StageMark& mark) {
        // Each mark wipes the line, so that what the run prints next starts on a clean one.
        std::lock_guard lock(m_mutex);
        if (m_drawn)
            m_out << "\r\033[K" << std::flush;
        m_drawn = false;
        // A mark that begins no stage leaves the one under way (the check's end, say, which
        // comes while the pass reads), except "checked": the findings come next.
        if (std::string stage = StageBegunBy(mark.name); !stage.empty() || mark.name == "checked")
            m_stage = std::move(stage);
    });
    m_thread = std::thread([this] { Run(); });
}

ProgressLine::~ProgressLine() {
    if (!m_thread.joinable())
        return;
    host::framework::SetStageObserver({});
    {
        std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    m_thread.join();
    if (m_drawn)
        m_out << "\r\033[K" << std::flush; // the line goes before the summary comes
}

void ProgressLine::Run() {
    std::unique_lock lock(m_mutex);
    while (!m_wake.wait_for(lock, std::chrono::milliseconds(250), [this] { return m_stop; })) {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
        if (seconds < 1.0 || m_stage.empty())
            continue;
        // How far the stage is, where it says (bytes of a STRINTG file read, rows stored).
        char done[32] = "";
        if (const host::framework::Progress p = host::framework::CurrentProgress(); p.total > 0)
            std::snprintf(done, sizeof done, ", %.0f %%",
                          100.0 * static_cast<double>(p.done) / static_cast<double>(p.total));
        char elapsed[32];
        std::snprintf(elapsed, sizeof elapsed, " (%.0f s)", seconds);
        m_out << "\r\033[Kslabadapt: " << m_stage << done << elapsed << std::flush;
        m_drawn = true;
    }
}

bool StandardErrorIsATerminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

} // namespace slabadapt::cli
