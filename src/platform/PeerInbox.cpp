#include "platform/PeerInbox.h"

#include <algorithm>
#include <cerrno>

#include "platform/Bell.h"
#include "platform/FaultPoint.h"
#include "platform/Futex.h"
#include "platform/StopDelay.h"

namespace System::Platform {

namespace {

// A system call per message would cost as much as the message.
constexpr std::int64_t kSeenAliveNs = 4'000'000;

template <typename Value>
Value Load(Value const& field) {
    return std::atomic_ref(const_cast<Value&>(field)).load(std::memory_order_acquire);
}

bool IsText(char16_t const* units, std::uint32_t capacity, std::u16string_view text) {
    if (text.size() >= capacity) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (Load(units[i]) != text[i]) {
            return false;
        }
    }
    return Load(units[text.size()]) == 0;
}

}  // namespace

int PeerInbox::Open(std::uint32_t number) {
    m_Number = number;
    return m_File.Open(number);
}

bool PeerInbox::IsAlive() const {
    return !IsClosed() && m_File.Object().IsAlive(Load(m_File.Rec().head.owner));
}

bool PeerInbox::WasLatelyAlive() {
    std::int64_t const nowNs = Clock::CoarseNs();
    if (nowNs - m_SeenAliveNs.load(std::memory_order_relaxed) < kSeenAliveNs) {
        return true;
    }
    bool const isAlive = IsAlive();
    m_SeenAliveNs.store(isAlive ? nowNs : 0, std::memory_order_relaxed);
    return isAlive;
}

bool PeerInbox::IsClosed() const {
    return Load(m_File.Rec().owner.isClosed) != 0;
}

std::uint32_t PeerInbox::Processor() const {
    return Load(m_File.Rec().owner.processor);
}

bool PeerInbox::HasWindow(std::uint32_t window, std::u16string_view const* className) const {
    std::uint32_t const count = std::min(Load(m_File.Rec().head.windowCount), kWindowSlots);
    for (std::uint32_t i = 0; i < count; ++i) {
        WindowRec const& rec = m_File.Windows()[i];
        if (Load(rec.window) == window) {
            return className == nullptr || IsText(rec.className, kClassNameUnits, *className);
        }
    }
    return false;
}

LockResult PeerInbox::Acquire(RingRec& ring, Deadline const& deadline) {
    // The clock is read only if the lock is not free at once.
    if (Detail::TakeFree(ring.lock, m_File.Object().Participant())) [[likely]] {
        CORVALEN_FAULT("lock.taken");
        return LockResult::kAcquired;
    }
    Deadline const limit(kLockLimitMs);
    return AcquireShared(ring.lock, m_File.Object(), limit.Ns() < deadline.Ns() ? limit : deadline);
}

int PeerInbox::Push(RingRec& ring, RingSender sender, std::size_t offset, SlotRec const& message,
                    SlotPlace& place, Deadline const& deadline) {
    RingMemory memory(m_File.Object(), offset);
    // A thread stopped by force in here would leave the lock with a process that lives.
    StopDelay const stopDelay;
    LockResult const result = Acquire(ring, deadline);
    if (result == LockResult::kTimedOut) {
        return deadline.HasPassed() ? ETIMEDOUT : EAGAIN;
    }
    if (result == LockResult::kFailed) {
        return ESRCH;
    }
    if (result == LockResult::kAbandoned) {
        sender.Repair();
    }
    CORVALEN_FAULT("inbox.push.locked");
    int const error = sender.Push(message, memory, place);
    CORVALEN_FAULT("inbox.push.done");
    ReleaseShared(ring.lock);
    CORVALEN_FAULT("inbox.push.unlocked");
    if (error == 0) {
        Signal(kSignalAsleep | kSignalArmed);
    }
    return error;
}

int PeerInbox::Post(SlotRec const& message) {
    InboxRec& rec = m_File.Rec();
    SlotPlace place;
    return Push(rec.posted, {rec.posted, rec.owner.postedHead, m_File.PostedSlots(), kPostedSlots},
                kPostedOffset, message, place, Deadline(-1));
}

int PeerInbox::Send(SlotRec const& message, SlotPlace& place, Deadline const& deadline) {
    InboxRec& rec = m_File.Rec();
    return Push(rec.sent, {rec.sent, rec.owner.sentHead, m_File.SentSlots(), kSentSlots}, kSentOffset,
                message, place, deadline);
}

bool PeerInbox::Reply(std::uint32_t slot, std::uint32_t tag, ReplyState state, std::uint32_t result) {
    if (slot >= kReplySlots) {
        return false;
    }
    auto const high = [tag](ReplyState of) {
        return static_cast<std::uint64_t>(tag << 2 | static_cast<std::uint32_t>(of)) << 32;
    };
    std::uint64_t expected = high(ReplyState::kPending);
    if (!std::atomic_ref(m_File.Rec().replies[slot].word)
             .compare_exchange_strong(expected, high(state) | result)) {
        return false;
    }
    CORVALEN_FAULT("inbox.reply.published");
    // Who waits for an answer sleeps on its inbox and does not poll.
    Signal(kSignalAsleep);
    return true;
}

// The message is published before the owner's word is read here; the owner writes that word before it looks
// for messages a last time. So one of the two sees the other. The count is raised before the wake-up, so that
// an owner that is only about to sleep does not, also if we die in between. Afterwards the bits are taken
// back, so that further senders need not wake it again; but only if the word is as we left it: an owner that
// has meanwhile gone to sleep anew has set them for its next sleep.
void PeerInbox::Signal(std::uint32_t bits) {
    std::atomic_thread_fence(std::memory_order_seq_cst);
    std::uint32_t& word = m_File.Rec().signal.word;
    std::atomic_ref<std::uint32_t> const signal(word);
    std::uint32_t seen = signal.load(std::memory_order_relaxed);
    if ((seen & bits) == 0) [[likely]] {
        return;
    }
    seen = signal.fetch_add(kSignalStep) + kSignalStep;
    CORVALEN_FAULT("inbox.signal.counted");
    if ((seen & bits & kSignalArmed) != 0 && !RingOwnersBell()) {
        // The next sender tries again.
        bits &= ~static_cast<std::uint32_t>(kSignalArmed);
    }
    if ((seen & kSignalAsleep) != 0) {
        FutexWake(word, 1, true);
    }
    CORVALEN_FAULT("inbox.signal.woken");
    signal.compare_exchange_strong(seen, seen & ~bits);
}

bool PeerInbox::RingOwnersBell() {
    std::lock_guard const guard(m_BellGuard);
    int error = m_Bell.IsOpen() ? 0 : OpenBell(m_Number, m_Bell);
    while (error == EMFILE && PeerInboxes::DropOldest()) {
        error = OpenBell(m_Number, m_Bell);
    }
    if (error != 0) {
        return false;
    }
    RingBell(m_Bell);
    return true;
}

}  // namespace System::Platform
