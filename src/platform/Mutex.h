#pragma once

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "platform/ThreadId.h"

namespace System::Platform {

class Mutex;

namespace Detail {
// What the calling thread holds, newest first.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local Mutex* t_FirstHeld;
}  // namespace Detail

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
/// Processes: in a forked child the thread that forked owns what it owned before, at the same depth; what
/// other threads of the parent held counts as left behind by the dead.
class Mutex {
public:
    Mutex() noexcept;
    ~Mutex();
    Mutex(Mutex const&) = delete;
    Mutex& operator=(Mutex const&) = delete;

    /// Takes the lock, waiting at most `timeoutMs` milliseconds (below 0: without limit).
    LockResult Lock(std::int64_t timeoutMs) noexcept {
        // The plain attempt costs less than half of the timed call.
        int const atOnce = m_IsUsable ? ::pthread_mutex_trylock(&m_Native) : EINVAL;
        if (atOnce != 0) [[unlikely]] {
            return atOnce == EBUSY ? Wait(timeoutMs) : Interpret(atOnce);
        }
        NoteTaken();
        return LockResult::kAcquired;
    }
    /// Gives one level back; false if the caller is not the owner.
    bool Unlock() noexcept {
        if (m_Owner.load(std::memory_order_relaxed) != CurrentThreadId()) [[unlikely]] {
            return false;
        }
        if (--m_Depth == 0) {
            NoteFree();
        }
        return ::pthread_mutex_unlock(&m_Native) == 0;
    }

    /// True once, in a forked child, for the thread that owns the lock since before the fork: for whoever
    /// keeps the owner's id beside the lock, since the thread has another one now.
    [[nodiscard]] bool TakeInheritance() noexcept;

private:
    void NoteTaken() noexcept {
        if (m_Depth++ != 0) {
            return;
        }
        m_Owner.store(CurrentThreadId(), std::memory_order_relaxed);
        m_PrevHeld = nullptr;
        m_NextHeld = Detail::t_FirstHeld;
        if (m_NextHeld != nullptr) {
            m_NextHeld->m_PrevHeld = this;
        }
        Detail::t_FirstHeld = this;
    }
    void NoteFree() noexcept {
        m_Owner.store(0, std::memory_order_relaxed);
        (m_PrevHeld != nullptr ? m_PrevHeld->m_NextHeld : Detail::t_FirstHeld) = m_NextHeld;
        if (m_NextHeld != nullptr) {
            m_NextHeld->m_PrevHeld = m_PrevHeld;
        }
    }
    static void InheritAll();
    [[gnu::constructor]] static void RegisterForkHandler();

    [[nodiscard]] bool InitNative() noexcept;
    LockResult Interpret(int error) noexcept;
    [[nodiscard]] bool TryWhileLooking() noexcept;
    LockResult Wait(std::int64_t timeoutMs) noexcept;
    void ReleaseFromLostHolder() noexcept;
    void Inherit(std::uint32_t thread) noexcept;

    pthread_mutex_t m_Native;
    bool m_IsUsable = false;
    unsigned m_Depth = 0;                         // the owner's
    std::atomic<std::uint32_t> m_Owner{0};        // thread id; stays behind when its thread ends
    std::atomic<std::uint32_t> m_InheritedBy{0};  // thread id in a forked child until it has been told
    Mutex* m_NextHeld = nullptr;                  // links in the owner's list of what it holds
    Mutex* m_PrevHeld = nullptr;
};

}  // namespace System::Platform
