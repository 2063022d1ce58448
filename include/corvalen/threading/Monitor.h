#pragma once

#include <atomic>
#include <cstdint>

#include "corvalen/Export.h"

namespace System::Platform {
class Mutex;
}

namespace System::Threading {

/// The recursive lock of the library: one thread owns it at a time, and gives it back as often as it has
/// taken it.
///
/// Threads: any thread may call any method. A thread that ends, or is ended, while it owns the monitor leaves
/// it to the next one, whose Lock reports that and starts afresh at depth 1.
/// Processes: a forked child that was forked by the owner owns its copy at the same depth.
/// Errors: nothing throws. A broken rule is reported through CDebug::Assert with the source name "Monitor",
/// and the call goes on. A monitor for which the system had no lock to give counts, and excludes nobody.
class CORVALEN_API CMonitor {
public:
    CMonitor();
    /// Requires: nobody owns it, which is reported otherwise.
    virtual ~CMonitor();
    CMonitor(CMonitor const&) = delete;
    CMonitor& operator=(CMonitor const&) = delete;

    /// Waits without limit until the calling thread owns the monitor.
    void Lock();
    /// Gives one level back. A call by another thread than the owner is reported, and counts down all the
    /// same.
    void Unlock();
    /// Lock and Unlock under other names.
    void Enter();
    void Leave();

    /// Whether the calling thread is the owner; says nothing about other threads.
    [[nodiscard]] bool Locked() const;
    /// How often the owner has taken it, 0 when it is free; a snapshot if the caller is not the owner.
    [[nodiscard]] unsigned LockCount() const;
    /// Does nothing, and returns false.
    bool Init();

private:
    [[nodiscard]] bool IsOwner(std::uint32_t thread) const;
    [[nodiscard]] bool IsTakenAgain() const;

    Platform::Mutex* m_Mutex;
    std::atomic<std::uint32_t> m_LockCount{0};
    std::atomic<std::uint32_t> m_Thread{0};
};

}  // namespace System::Threading
