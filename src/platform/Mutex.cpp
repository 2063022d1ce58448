#include "platform/Mutex.h"

#include <linux/futex.h>
#include <signal.h>
#include <unistd.h>

#include "platform/Clock.h"
#include "platform/ErrnoGuard.h"
#include "platform/ProcessEpoch.h"
#include "platform/Processor.h"
#include "platform/ThreadId.h"

namespace System::Platform {

namespace {

constexpr long kNsPerSecond = 1'000'000'000;
constexpr int kMaxPauses = 64;

timespec ToTimespec(std::int64_t ns) {
    return {ns / kNsPerSecond, ns % kNsPerSecond};
}

#ifdef __SANITIZE_THREAD__
// ThreadSanitizer does not watch the call that waits by the monotonic clock, and so what the mutex guards
// would look like a race. It watches the one that waits by the wall clock.
int LockUntil(pthread_mutex_t& mutex, Deadline const& deadline) {
    int error = ETIMEDOUT;
    do {
        timespec now;
        static_cast<void>(::clock_gettime(CLOCK_REALTIME, &now));
        timespec const until = ToTimespec(now.tv_sec * kNsPerSecond + now.tv_nsec + deadline.LeftNs());
        error = ::pthread_mutex_timedlock(&mutex, &until);
    } while (error == ETIMEDOUT && !deadline.HasPassed());
    return error;
}
#else
int LockUntil(pthread_mutex_t& mutex, Deadline const& deadline) {
    timespec const until = ToTimespec(deadline.Ns());
    return ::pthread_mutex_clocklock(&mutex, CLOCK_MONOTONIC, &until);
}
#endif

}  // namespace

constinit thread_local Mutex* Detail::t_FirstHeld = nullptr;

// A forked child takes over what its only thread holds before anything else runs there: the system's lock
// names its owner by a thread id, and that has changed.
void Mutex::InheritAll() {
    // Not the cached id: whether its own fork handler has run by now is open.
    auto const thread = static_cast<std::uint32_t>(::gettid());
    for (Mutex* mutex = Detail::t_FirstHeld; mutex != nullptr; mutex = mutex->m_NextHeld) {
        mutex->Inherit(thread);
    }
}

// At load, for the reason that ProcessEpoch has. Want of memory is the only failure there.
void Mutex::RegisterForkHandler() {
    static_cast<void>(::pthread_atfork(nullptr, nullptr, InheritAll));
}

Mutex::Mutex() noexcept : m_IsUsable(InitNative()) {}

Mutex::~Mutex() {
    // The owner's list and the system's own would keep pointing here.
    while (Unlock()) {
    }
    if (m_IsUsable) {
        // Fails only while another thread holds it, which is that holder's fault and changes nothing here.
        static_cast<void>(::pthread_mutex_destroy(&m_Native));
    }
}

bool Mutex::InitNative() noexcept {
    pthread_mutexattr_t attributes;
    if (::pthread_mutexattr_init(&attributes) != 0) {
        return false;
    }
    bool const isUsable = ::pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0 &&
                          ::pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
                          ::pthread_mutex_init(&m_Native, &attributes) == 0;
    static_cast<void>(::pthread_mutexattr_destroy(&attributes));
    return isUsable;
}

LockResult Mutex::Interpret(int error) noexcept {
    switch (error) {
        case 0:
            NoteTaken();
            return LockResult::kAcquired;
        case EOWNERDEAD:
            // The last owner ended inside the critical section. The lock is ours, and usable again only if we
            // say so now; what it guards is suspect, and the caller is told. The list that it stood in went
            // with its thread.
            if (::pthread_mutex_consistent(&m_Native) != 0) {
                return LockResult::kFailed;
            }
            m_Depth = 0;
            NoteTaken();
            return LockResult::kAbandoned;
        case EBUSY:
        case ETIMEDOUT:
            return LockResult::kTimedOut;
        default:
            return LockResult::kFailed;
    }
}

LockResult Mutex::Wait(std::int64_t timeoutMs) noexcept {
    if (ProcessEpoch() != kFirstProcessEpoch) {
        ReleaseFromLostHolder();
    }
    if (timeoutMs == 0) {
        return Interpret(::pthread_mutex_trylock(&m_Native));
    }
    if (TryWhileLooking()) {
        return LockResult::kAcquired;
    }
    if (timeoutMs < 0) {
        return Interpret(::pthread_mutex_lock(&m_Native));
    }
    return Interpret(LockUntil(m_Native, Deadline(timeoutMs)));
}

// Most sections are shorter than a sleep and the wake-up that ends it, which costs the owner a call as well.
// The pauses grow to a few microseconds in all; only the owner's word is read meanwhile, so that it can go
// on.
bool Mutex::TryWhileLooking() noexcept {
    for (int pauses = 1; pauses <= kMaxPauses; pauses *= 2) {
        for (int i = 0; i < pauses; ++i) {
            Relax();
        }
        if (__atomic_load_n(&m_Native.__data.__lock, __ATOMIC_RELAXED) == 0 &&
            ::pthread_mutex_trylock(&m_Native) == 0) {
            NoteTaken();
            return true;
        }
    }
    return false;
}

// The kernel marks the locks of a thread that ends. A thread of the parent that does not exist in a forked
// child never ends there, so that the mark has to be made for it.
void Mutex::ReleaseFromLostHolder() noexcept {
    ErrnoGuard const keepErrno;
    int word = __atomic_load_n(&m_Native.__data.__lock, __ATOMIC_RELAXED);
    auto const holder = static_cast<pid_t>(static_cast<unsigned>(word) & FUTEX_TID_MASK);
    if (holder == 0 || ::tgkill(::getpid(), holder, 0) == 0 || errno != ESRCH) {
        return;
    }
    auto const marked = static_cast<int>((static_cast<unsigned>(word) & FUTEX_WAITERS) | FUTEX_OWNER_DIED);
    // Fails if the word has changed, and then the lock is in the hands of somebody who is here.
    static_cast<void>(__atomic_compare_exchange_n(&m_Native.__data.__lock, &word, marked, false,
                                                  __ATOMIC_ACQ_REL, __ATOMIC_RELAXED));
}

void Mutex::Inherit(std::uint32_t thread) noexcept {
    // The bytes are this process's own copy: nobody else is here who could wait at them.
    m_IsUsable = InitNative();
    for (unsigned level = 0; m_IsUsable && level < m_Depth; ++level) {
        m_IsUsable = ::pthread_mutex_lock(&m_Native) == 0;
    }
    m_Owner.store(thread, std::memory_order_relaxed);
    m_InheritedBy.store(thread, std::memory_order_relaxed);
}

bool Mutex::TakeInheritance() noexcept {
    std::uint32_t const heir = m_InheritedBy.load(std::memory_order_relaxed);
    if (heir == 0 || heir != CurrentThreadId()) {
        return false;
    }
    m_InheritedBy.store(0, std::memory_order_relaxed);
    return true;
}

}  // namespace System::Platform
