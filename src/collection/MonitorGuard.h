#pragma once

#include "corvalen/threading/Monitor.h"
#include "platform/StopDelay.h"

namespace System::Collection {

// Holds a monitor for the length of a block, so that a failed allocation gives it back as well, and keeps the
// thread from being stopped half way through a change of what it guards. A stop while it waits is not put
// off.
class MonitorGuard {
public:
    explicit MonitorGuard(System::Threading::CMonitor& monitor) : m_Monitor(Locked(monitor)) {}
    ~MonitorGuard() { m_Monitor.Unlock(); }
    MonitorGuard(MonitorGuard const&) = delete;
    MonitorGuard& operator=(MonitorGuard const&) = delete;

private:
    static System::Threading::CMonitor& Locked(System::Threading::CMonitor& monitor) {
        monitor.Lock();
        return monitor;
    }

    System::Threading::CMonitor& m_Monitor;
    Platform::StopDelay m_StopDelay;
};

}  // namespace System::Collection
