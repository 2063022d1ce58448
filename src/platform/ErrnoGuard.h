#pragma once

#include <cerrno>

namespace System::Platform {

/// Brings errno back at the end of its scope to what it was at the start.
class ErrnoGuard {
public:
    ErrnoGuard() : m_Errno(errno) {}
    ~ErrnoGuard() { errno = m_Errno; }
    ErrnoGuard(ErrnoGuard const&) = delete;
    ErrnoGuard& operator=(ErrnoGuard const&) = delete;

private:
    int m_Errno;
};

}  // namespace System::Platform
