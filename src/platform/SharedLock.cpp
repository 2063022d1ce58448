#include "platform/SharedLock.h"

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "platform/FaultPoint.h"

namespace System::Platform {

namespace {

constexpr std::int64_t kSliceNs = 4 * Deadline::kNsPerMs;
constexpr std::int64_t kLookNs = 8'000;

bool HasSeveralProcessors() {
    static bool const s_HasSeveral = [] {
        cpu_set_t usable;
        CPU_ZERO(&usable);
        return ::sched_getaffinity(0, sizeof usable, &usable) == 0 && CPU_COUNT(&usable) > 1;
    }();
    return s_HasSeveral;
}

void Relax() {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

std::uint32_t Load(SharedLockRec& rec) {
    return std::atomic_ref(rec.word).load(std::memory_order_relaxed);
}

bool Replace(SharedLockRec& rec, std::uint32_t expected, std::uint32_t desired) {
    return std::atomic_ref(rec.word).compare_exchange_strong(expected, desired, std::memory_order_acquire,
                                                             std::memory_order_relaxed);
}

}  // namespace

Detail::Attempt Detail::TryAcquire(SharedLockRec& rec, NamedObject const& object, bool othersMaySleep) {
    std::uint32_t const seen = Load(rec);
    std::uint32_t const owner = seen & kOwnerMask;
    if (owner != 0 && object.IsAlive(owner)) {
        return Attempt::kOccupied;
    }
    // A dead owner's word keeps its mark: those who sleep there must be woken by us.
    std::uint32_t const mark = (othersMaySleep ? kMaySleep : 0) | (seen & kMaySleep);
    if (!Replace(rec, seen, object.Participant() | mark)) {
        return Attempt::kOccupied;
    }
    CORVALEN_FAULT("lock.taken");
    return owner == 0 ? Attempt::kAcquired : Attempt::kAbandoned;
}

void Detail::LookForRelease(SharedLockRec& rec) {
    if (!HasSeveralProcessors()) {
        return;
    }
    constexpr int kLooksBetweenClocks = 32;
    std::int64_t const until = Clock::MonotonicNs() + kLookNs;
    do {
        for (int look = 0; look < kLooksBetweenClocks; ++look) {
            if ((Load(rec) & kOwnerMask) == 0) {
                return;
            }
            Relax();
        }
    } while (Clock::MonotonicNs() < until);
}

void Detail::SleepUntilChange(SharedLockRec& rec, Deadline const& deadline) {
    std::uint32_t const seen = Load(rec);
    if ((seen & kOwnerMask) == 0) {
        return;
    }
    if ((seen & kMaySleep) == 0 && !Replace(rec, seen, seen | kMaySleep)) {
        return;
    }
    timespec const slice{0, static_cast<long>(std::min(kSliceNs, deadline.LeftNs()))};
    // Whatever ends the sleep, the caller looks again; so its result says nothing.
    static_cast<void>(::syscall(SYS_futex, &rec.word, FUTEX_WAIT, seen | kMaySleep, &slice, nullptr, 0));
}

LockResult Detail::AcquireContended(SharedLockRec& rec, NamedObject const& object, Deadline const& deadline) {
    if (!object.IsOpen()) {
        return LockResult::kFailed;
    }
    for (bool hasSlept = false;; hasSlept = true) {
        if (!hasSlept) {
            LookForRelease(rec);
        }
        switch (TryAcquire(rec, object, hasSlept)) {
            case Attempt::kAcquired:
                return LockResult::kAcquired;
            case Attempt::kAbandoned:
                return LockResult::kAbandoned;
            case Attempt::kOccupied:
                break;
        }
        if (deadline.HasPassed()) {
            return LockResult::kTimedOut;
        }
        SleepUntilChange(rec, deadline);
    }
}

void Detail::WakeOne(SharedLockRec& rec) {
    CORVALEN_FAULT("lock.released");
    // A death before the wake costs the sleeper the rest of its slice.
    static_cast<void>(::syscall(SYS_futex, &rec.word, FUTEX_WAKE, 1, nullptr, nullptr, 0));
}

void AbandonShared(SharedLockRec& rec) {
    std::uint32_t const old = std::atomic_ref(rec.word).exchange(Detail::kNobody, std::memory_order_release);
    if ((old & Detail::kMaySleep) != 0) {
        Detail::WakeOne(rec);
    }
}

void DisownShared(SharedLockRec& rec, NamedObject const& object) {
    std::uint32_t const seen = Load(rec);
    if ((seen & Detail::kOwnerMask) == object.Participant()) {
        // If a peer has changed it meanwhile it was not ours to mark.
        static_cast<void>(Replace(rec, seen, (seen & Detail::kMaySleep) | Detail::kNobody));
    }
}

}  // namespace System::Platform
