#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Clock.h"
#include "platform/FaultPoint.h"
#include "platform/Mutex.h"
#include "platform/NamedObject.h"

namespace System::Platform {

/// A lock word inside a region that processes share. All bits zero: free. Low 16 bits: the participant number
/// of the owner. Bit 31: somebody may sleep on the word. What a peer writes here can delay a taker or let two
/// of them in, never more: a number of nobody alive counts as a dead owner.
struct SharedLockRec {
    std::uint32_t word;
    std::uint32_t reserved;
};
static_assert(sizeof(SharedLockRec) == 8);

namespace Detail {
constexpr std::uint32_t kMaySleep = 0x8000'0000;
constexpr std::uint32_t kOwnerMask = 0xFFFF;
constexpr std::uint32_t kNobody = 0xFFFF;  // above every participant number: an owner that is never alive
inline bool TakeFree(SharedLockRec& rec, std::uint32_t participant) {
    std::uint32_t expected = 0;
    return participant != 0 &&
           std::atomic_ref(rec.word).compare_exchange_strong(expected, participant, std::memory_order_acquire,
                                                             std::memory_order_relaxed);
}
LockResult AcquireContended(SharedLockRec& rec, NamedObject const& object, Deadline const& deadline);
void WakeOne(SharedLockRec& rec);
}  // namespace Detail

/// Takes the lock for the calling thread, waiting until `deadline`. kAbandoned: taken from an owner that died
/// or gave it up unfinished, so that what it guards may be half done. kFailed: `object` is not open.
///
/// Not recursive, and not bound to a thread: threads of one process exclude each other as processes do, and
/// any thread of the owning process may release. `object` is what `rec` lies in; its participant number names
/// the owner. A waiter notices an owner's death within a few milliseconds. A word in which a peer has put the
/// number of a living participant that does not own it is waited for like a real owner, until that
/// participant closes or the word changes; who must not be held up by that gives a deadline.
inline LockResult AcquireShared(SharedLockRec& rec, NamedObject const& object, Deadline const& deadline) {
    if (Detail::TakeFree(rec, object.Participant())) [[likely]] {
        CORVALEN_FAULT("lock.taken");
        return LockResult::kAcquired;
    }
    return Detail::AcquireContended(rec, object, deadline);
}

/// Gives the lock back; requires that the caller's process owns it.
inline void ReleaseShared(SharedLockRec& rec) {
    CORVALEN_FAULT("lock.release");
    std::uint32_t const old = std::atomic_ref(rec.word).exchange(0, std::memory_order_release);
    if ((old & Detail::kMaySleep) != 0) [[unlikely]] {
        Detail::WakeOne(rec);
    }
}

/// Gives the lock back unfinished: the next taker is told kAbandoned.
void AbandonShared(SharedLockRec& rec);

/// To be called once for each lock in a region, right after it was opened: a word that a dead owner left with
/// the number that `object` has been given now is marked as abandoned, since that number is alive again.
void DisownShared(SharedLockRec& rec, NamedObject const& object);

namespace Detail {

enum class [[nodiscard]] Attempt{kAcquired, kAbandoned, kOccupied};

/// One attempt, without a wait. `othersMaySleep` says that the caller has waited: the word keeps its sleep
/// mark.
Attempt TryAcquire(SharedLockRec& rec, NamedObject const& object, bool othersMaySleep);
/// A look at a lock's word that costs less than to sleep and be woken: some microseconds from its making on.
/// Hardly any on a machine with one processor.
class ReleaseLook {
public:
    ReleaseLook();
    /// True as soon as the word is free, false once the time is over.
    [[nodiscard]] bool SeesFree(SharedLockRec& rec) const;

private:
    std::int64_t m_UntilNs;
};
/// Sleeps until the word changes, at most a few milliseconds and not beyond `deadline`. Takes nothing.
void SleepUntilChange(SharedLockRec& rec, Deadline const& deadline);

}  // namespace Detail

}  // namespace System::Platform
