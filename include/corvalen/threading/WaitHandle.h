#pragma once

#include <atomic>
#include <cstdint>

#include "corvalen/Export.h"

namespace System::Platform {
class Event;
}

namespace System::Threading {

/// Holds one event of this process: a flag that threads wait for. CAutoResetEvent and CManualResetEvent are
/// its concrete forms.
///
/// Threads: Set, Reset and both WaitOne may come from any thread at the same time; Close must not race with
/// them. A waiter that has been let through may destroy the object while Set is still returning.
/// Errors: nothing throws and nothing is reported. Without an event Set and Reset do nothing, WaitOne(int)
/// gives false and WaitOne() returns at once.
class CORVALEN_API CWaitHandle {
public:
    static constexpr int kForever = -1;

    CWaitHandle();
    virtual ~CWaitHandle();
    CWaitHandle(CWaitHandle const&) = delete;
    CWaitHandle& operator=(CWaitHandle const&) = delete;

    /// Gives the event up, if there is one; it stays away.
    virtual void Close();
    virtual void Reset();
    /// Waits up to `timeoutMs` milliseconds, 0 only looks, kForever has no limit, and any other value below 0
    /// is some 49 days. True only if the event was signalled within that time.
    virtual bool WaitOne(int timeoutMs);
    /// Waits without a limit.
    virtual void WaitOne();
    virtual void Set();

protected:
    /// The text "ManualResetEvent_" and the present WaitHandleEventCount, NUL-terminated, for either kind of
    /// event. The caller releases it with free(); null if there is no memory. Events are not found by it.
    [[nodiscard]] char16_t const* GenerateUniqueName() const;

    /// How many wait handles this process has constructed.
    static std::atomic<std::uint32_t> WaitHandleEventCount;

    Platform::Event* m_Handle = nullptr;

    /// Makes the event of a derived class; leaves m_Handle null if there is no memory for it.
    void Create(bool isManualReset, bool isSignalled);
};

/// An event that lets one waiter through and is then no longer signalled.
class CORVALEN_API CAutoResetEvent : public CWaitHandle {
public:
    explicit CAutoResetEvent(bool isSignalled = false);
    ~CAutoResetEvent() override;
};

/// An event that stays signalled until Reset.
class CORVALEN_API CManualResetEvent : public CWaitHandle {
public:
    explicit CManualResetEvent(bool isSignalled = false);
    ~CManualResetEvent() override;
};

}  // namespace System::Threading
