#include "platform/ThreadTimers.h"

#include <algorithm>

#include "platform/Clock.h"
#include "platform/StopDelay.h"

namespace System::Platform {

std::uint32_t ThreadTimers::Add(std::uint32_t periodMs, TimerProc proc) {
    if (proc == nullptr) {
        return 0;
    }
    // The end of a thread that is stopped by force frees its timers too: it must not find them half moved.
    StopDelay const stopDelay;
    std::int64_t const periodNs = std::max<std::int64_t>(periodMs, 1) * Deadline::kNsPerMs;
    do {
        ++m_LastId;
    } while (m_LastId == 0 || ProcOf(m_LastId) != nullptr);
    m_Timers.push_back({m_LastId, periodNs, Clock::MonotonicNs() + periodNs, proc});
    return m_LastId;
}

bool ThreadTimers::Remove(std::uint32_t id) {
    StopDelay const stopDelay;
    return std::erase_if(m_Timers, [id](Timer const& timer) { return timer.id == id; }) != 0;
}

TimerProc ThreadTimers::ProcOf(std::uint32_t id) const {
    auto const found =
        std::find_if(m_Timers.begin(), m_Timers.end(), [id](Timer const& timer) { return timer.id == id; });
    return found != m_Timers.end() ? found->proc : nullptr;
}

std::int64_t ThreadTimers::NextDueNs() const {
    std::int64_t next = Deadline::kNever;
    for (Timer const& timer : m_Timers) {
        next = std::min(next, timer.dueNs);
    }
    return next;
}

bool ThreadTimers::TakeDue(Message& message) {
    if (m_Timers.empty()) {
        return false;
    }
    std::int64_t const now = Clock::MonotonicNs();
    auto const next = std::min_element(m_Timers.begin(), m_Timers.end(),
                                       [](Timer const& a, Timer const& b) { return a.dueNs < b.dueNs; });
    if (next->dueNs > now) {
        return false;
    }
    next->dueNs += ((now - next->dueNs) / next->periodNs + 1) * next->periodNs;
    message = {0, MessageQueue::kTimerMessage, next->id, 0};
    return true;
}

}  // namespace System::Platform
