#include "platform/SharedLock.h"

#include <algorithm>

#include "platform/FaultPoint.h"
#include "platform/Futex.h"
#include "platform/Processor.h"

namespace System::Platform {

namespace {

constexpr std::int64_t kSliceNs = 4 * Deadline::kNsPerMs;
constexpr std::int64_t kLookNs = 8'000;

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

Detail::ReleaseLook::ReleaseLook()
    : m_UntilNs(MachineProcessors() > 1 ? Clock::MonotonicNs() + kLookNs : 0) {}

bool Detail::ReleaseLook::SeesFree(SharedLockRec& rec) const {
    constexpr int kLooksBetweenClocks = 32;
    do {
        for (int look = 0; look < kLooksBetweenClocks; ++look) {
            if ((Load(rec) & kOwnerMask) == 0) {
                return true;
            }
            Relax();
        }
    } while (m_UntilNs != 0 && Clock::MonotonicNs() < m_UntilNs);
    return false;
}

void Detail::SleepUntilChange(SharedLockRec& rec, Deadline const& deadline) {
    std::uint32_t const seen = Load(rec);
    if ((seen & kOwnerMask) == 0) {
        return;
    }
    if ((seen & kMaySleep) == 0 && !Replace(rec, seen, seen | kMaySleep)) {
        return;
    }
    FutexWait(rec.word, seen | kMaySleep, std::min(kSliceNs, deadline.LeftNs()), true);
}

LockResult Detail::AcquireContended(SharedLockRec& rec, NamedObject const& object, Deadline const& deadline) {
    if (!object.IsOpen()) {
        return LockResult::kFailed;
    }
    // While others take it before us we look again: sleeping and being woken costs more than most of them
    // hold it.
    for (ReleaseLook const look; look.SeesFree(rec);) {
        if (TryAcquire(rec, object, false) == Attempt::kAcquired) {
            return LockResult::kAcquired;
        }
    }
    for (bool hasSlept = false;; hasSlept = true) {
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
    FutexWake(rec.word, 1, true);
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
