#pragma once

#include <cstdint>
#include <vector>

#include "corvalen/platform/MessageQueue.h"

namespace System::Platform {

/// The timers of one thread.
class ThreadTimers {
public:
    /// 0 if there is no procedure to call.
    std::uint32_t Add(std::uint32_t periodMs, TimerProc proc);
    bool Remove(std::uint32_t id);
    [[nodiscard]] TimerProc ProcOf(std::uint32_t id) const;

    [[nodiscard]] bool IsEmpty() const { return m_Timers.empty(); }
    /// When the next tick is due, in nanoseconds of the monotonic clock; Deadline::kNever without a timer.
    [[nodiscard]] std::int64_t NextDueNs() const;
    /// Takes a tick that is due, and counts all that are due for that timer as one.
    bool TakeDue(Message& message);

private:
    struct Timer {
        std::uint32_t id;
        std::int64_t periodNs;
        std::int64_t dueNs;
        TimerProc proc;
    };

    std::vector<Timer> m_Timers;
    std::uint32_t m_LastId = 0;
};

}  // namespace System::Platform
