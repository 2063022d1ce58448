#pragma once

#include "corvalen/threading/Monitor.h"

namespace System::Collection {

// Holds a monitor for the length of a block, so that a failed allocation gives it back as well.
class MonitorGuard {
public:
    explicit MonitorGuard(System::Threading::CMonitor& monitor) : m_Monitor(monitor) { m_Monitor.Lock(); }
    ~MonitorGuard() { m_Monitor.Unlock(); }
    MonitorGuard(MonitorGuard const&) = delete;
    MonitorGuard& operator=(MonitorGuard const&) = delete;

private:
    System::Threading::CMonitor& m_Monitor;
};

}  // namespace System::Collection
