#include "platform/Mutex.h"

#include <cerrno>

#include "platform/Clock.h"

namespace System::Platform {

namespace {

constexpr long kNsPerSecond = 1'000'000'000;

}  // namespace

Mutex::Mutex() noexcept {
    pthread_mutexattr_t attributes;
    if (::pthread_mutexattr_init(&attributes) != 0) {
        return;
    }
    m_IsUsable = ::pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0 &&
                 ::pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
                 ::pthread_mutex_init(&m_Native, &attributes) == 0;
    static_cast<void>(::pthread_mutexattr_destroy(&attributes));
}

Mutex::~Mutex() {
    if (m_IsUsable) {
        // Fails only while somebody holds it, which is that holder's fault and changes nothing here.
        static_cast<void>(::pthread_mutex_destroy(&m_Native));
    }
}

LockResult Mutex::Interpret(int error) noexcept {
    switch (error) {
        case 0:
            return LockResult::kAcquired;
        case EOWNERDEAD:
            // The last owner ended inside the critical section. The lock is ours, and usable again only if we
            // say so now; what it guards is suspect, and the caller is told.
            return ::pthread_mutex_consistent(&m_Native) == 0 ? LockResult::kAbandoned : LockResult::kFailed;
        case ETIMEDOUT:
            return LockResult::kTimedOut;
        default:
            return LockResult::kFailed;
    }
}

LockResult Mutex::Lock(std::int64_t timeoutMs) noexcept {
    if (!m_IsUsable) [[unlikely]] {
        return LockResult::kFailed;
    }
    // The plain attempt costs less than half of the timed call.
    int const atOnce = ::pthread_mutex_trylock(&m_Native);
    if (atOnce != EBUSY) {
        return Interpret(atOnce);
    }
    if (timeoutMs < 0) {
        return Interpret(::pthread_mutex_lock(&m_Native));
    }
    Deadline const deadline(timeoutMs);
    timespec const until{deadline.Ns() / kNsPerSecond, deadline.Ns() % kNsPerSecond};
    return Interpret(::pthread_mutex_clocklock(&m_Native, CLOCK_MONOTONIC, &until));
}

bool Mutex::Unlock() noexcept {
    return m_IsUsable && ::pthread_mutex_unlock(&m_Native) == 0;
}

}  // namespace System::Platform
