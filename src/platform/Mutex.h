#pragma once

#include <pthread.h>

#include <cstdint>

namespace System::Platform {

enum class [[nodiscard]] LockResult{
    kAcquired,
    kAbandoned,  // acquired, and the last owner ended without giving it back: what it guards is suspect
    kTimedOut,
    kFailed,
};

/// A recursive lock of one process. A thread that ends or is ended while it holds it leaves it to the next
/// taker.
///
/// Threads: any thread may call any method; only the owner may unlock.
class Mutex {
public:
    Mutex() noexcept;
    ~Mutex();
    Mutex(Mutex const&) = delete;
    Mutex& operator=(Mutex const&) = delete;

    /// Takes the lock, waiting at most `timeoutMs` milliseconds (below 0: without limit).
    LockResult Lock(std::int64_t timeoutMs) noexcept;
    /// Gives one level back; false if the caller is not the owner.
    bool Unlock() noexcept;

private:
    LockResult Interpret(int error) noexcept;

    pthread_mutex_t m_Native;
    bool m_IsUsable = false;
};

}  // namespace System::Platform
