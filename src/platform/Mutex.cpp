#include "platform/Mutex.h"

#include <algorithm>

#include "platform/Clock.h"
#include "platform/ErrnoGuard.h"
#include "platform/Futex.h"
#include "platform/Processor.h"
#include "platform/StopDelay.h"

namespace System::Platform {

constinit Mutex::SleeperSlot Mutex::s_Sleepers[kSleeperSlots] = {};

namespace {

// Some thirty microseconds in all, about what a sleep and its wake-up cost; so close together that a lock
// which its owner gives back and takes again at once is seen free.
constexpr int kLooks = 400;
constexpr int kPausesBetweenLooks = 4;
// How long a death can go unnoticed by who sleeps for the lock.
constexpr std::int64_t kDeathSliceNs = 10'000'000;

}  // namespace

// Takes the lock if it is free or its owner has ended.
bool Mutex::TryTake(std::uint32_t mark, LockResult& result) noexcept {
    std::uint32_t seen = m_Owner.load(std::memory_order_relaxed);
    if (seen != 0 && IsThreadAlive(seen)) {
        return false;
    }
    result = seen == 0 ? LockResult::kAcquired : LockResult::kAbandoned;
    if (!m_Owner.compare_exchange_strong(seen, mark, std::memory_order_acquire, std::memory_order_relaxed)) {
        return false;
    }
    m_Depth = 1;
    return true;
}

// Most sections are shorter than a sleep and the wake-up that ends it, which costs the owner a call as well.
// Only the owner's word is read meanwhile, so that it can go on.
bool Mutex::TryWhileLooking(std::uint32_t mark, LockResult& result) noexcept {
    int const looks = MachineProcessors() > 1 ? kLooks : 1;
    for (int look = 0; look < looks; ++look) {
        if (TryTake(mark, result)) {
            return true;
        }
        for (int i = 0; i < kPausesBetweenLooks; ++i) {
            Relax();
        }
    }
    return false;
}

LockResult Mutex::Wait(std::uint32_t mark, std::int64_t timeoutMs) noexcept {
    ErrnoGuard const keepErrno;
    LockResult result = LockResult::kTimedOut;
    if (TryTake(mark, result)) {
        return result;
    }
    if (timeoutMs == 0) {
        return LockResult::kTimedOut;
    }
    Deadline const deadline(timeoutMs);
    while (!TryWhileLooking(mark, result)) {
        std::int64_t const leftNs = deadline.LeftNs();
        if (leftNs == 0) {
            return LockResult::kTimedOut;
        }
        Sleep(std::min(leftNs, kDeathSliceNs));
    }
    return result;
}

// Counted before the barrier: behind it either the lock is seen free here, or who frees it sees the count.
void Mutex::Sleep(std::int64_t limitNs) noexcept {
    // A thread that is stopped by force must not stay in the count. The stop interrupts the sleep.
    StopDelay const stopDelay;
    auto& sleepers = SleepersAt(this);
    sleepers.fetch_add(1, std::memory_order_relaxed);
    HeavyBarrier();
    std::uint32_t const seen = m_Owner.load(std::memory_order_relaxed);
    if (seen != 0) {
        FutexWait(reinterpret_cast<std::uint32_t&>(m_Owner), seen, limitNs, false);
    }
    sleepers.fetch_sub(1, std::memory_order_relaxed);
}

// Only the address is used: a sleeper that is woken for another lock which lies there by now looks again.
void Mutex::WakeOne(Mutex* mutex) noexcept {
    ErrnoGuard const keepErrno;
    FutexWake(reinterpret_cast<std::uint32_t&>(mutex->m_Owner), 1, false);
}

}  // namespace System::Platform
