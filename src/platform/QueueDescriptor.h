#pragma once

#include <cstdint>

#include "platform/FileDescriptor.h"

namespace System::Platform {

/// A descriptor that is readable while the bell has been rung or a moment has passed, for hosts that poll.
class QueueDescriptor {
public:
    /// Opens it; 0 or errno.
    int Open(std::uint32_t inboxNumber);
    [[nodiscard]] bool IsOpen() const { return m_Poll.IsOpen(); }
    [[nodiscard]] int Get() const { return m_Poll.Get(); }

    void Ring();
    /// Makes it unreadable until the next ring, or until `dueNs` of the monotonic clock (Deadline::kNever:
    /// none).
    void Silence(std::int64_t dueNs);

private:
    FileDescriptor m_Bell;
    FileDescriptor m_Timer;
    FileDescriptor m_Poll;
};

}  // namespace System::Platform
