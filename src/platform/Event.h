#pragma once

#include <atomic>
#include <cstdint>

namespace System::Platform {

enum class EventReset : bool { kAuto, kManual };

/// A flag of one process that threads wait for. kAuto: each Set lets one waiter through, who takes it down
/// again. kManual: it stays up until Reset, and lets everybody through.
///
/// Threads: any thread may call any method. A waiter that has been let through may destroy the event at once:
/// Set does not touch it after that.
class Event {
public:
    explicit Event(EventReset reset, bool isSet = false) : m_Reset(reset), m_Word(isSet ? kSet : 0) {}
    Event(Event const&) = delete;
    Event& operator=(Event const&) = delete;

    void Set();
    void Reset();
    /// Waits at most `timeoutMs` milliseconds (below 0: without limit); whether it was let through.
    [[nodiscard]] bool Wait(std::int64_t timeoutMs);

private:
    static constexpr std::uint32_t kSet = 1;
    static constexpr std::uint32_t kWaiter = 2;

    [[nodiscard]] bool TryPass(std::uint32_t leaving);

    EventReset const m_Reset;
    std::atomic<std::uint32_t> m_Word;  // kSet, and kWaiter as often as threads sleep or are about to
};

}  // namespace System::Platform
