#include "platform/OwnInbox.h"

#include <algorithm>
#include <cerrno>
#include <random>

#include "platform/Bell.h"
#include "platform/FaultPoint.h"
#include "platform/Futex.h"
#include "platform/InboxSweep.h"
#include "platform/StopDelay.h"

namespace System::Platform {

namespace {

constexpr int kCreateTries = 64;
constexpr std::uint32_t kTagMask = 0x3FFF'FFFF;

template <typename Value>
std::atomic_ref<Value> Shared(Value& field) {
    return std::atomic_ref<Value>(field);
}

std::uint64_t HighWord(std::uint32_t tag, ReplyState state) {
    return static_cast<std::uint64_t>(tag << 2 | static_cast<std::uint32_t>(state)) << 32;
}

void StoreText(char16_t* to, std::uint32_t capacity, std::u16string_view text) {
    std::size_t const length = std::min<std::size_t>(text.size(), capacity - 1);
    for (std::size_t i = 0; i < length; ++i) {
        Shared(to[i]).store(text[i], std::memory_order_relaxed);
    }
    Shared(to[length]).store(0, std::memory_order_relaxed);
}

}  // namespace

OwnInbox::~OwnInbox() {
    if (m_File.IsOpen()) {
        Close();
    }
}

// Numbers are drawn by lot, so that one that was given back is not soon given out again.
int OwnInbox::Create() {
    SweepDeadInboxes();
    std::random_device random;
    int error = EAGAIN;
    for (int i = 0; i < kCreateTries; ++i) {
        std::uint32_t const number = random() % kMaxInboxNumber + 1;
        error = m_File.Create(number);
        if (error == 0) {
            m_Number = number;
            m_LastSequence = random() & kWindowSequenceMask;
            InboxRec& rec = m_File.Rec();
            m_Posted = std::make_unique<RingReceiver>(rec.owner.postedHead, m_File.PostedSlots(),
                                                      kPostedSlots, false);
            m_Sent = std::make_unique<RingReceiver>(rec.owner.sentHead, m_File.SentSlots(), kSentSlots, true);
            return 0;
        }
        if (error != EEXIST) {
            return error;
        }
    }
    return error;
}

void OwnInbox::Close() {
    Shared(m_File.Rec().owner.isClosed).store(1);
    CORVALEN_FAULT("inbox.close.marked");
    RemoveBell(m_Number);
    InboxFile::RemoveName(m_Number);
    CORVALEN_FAULT("inbox.close.removed");
    m_File.Close();
}

// The numbers come round again while a window of long life may still have one of them.
std::uint32_t OwnInbox::NextWindowId() {
    WindowRec const* const records = m_File.Windows();
    std::uint32_t const count = std::min(Shared(m_File.Rec().head.windowCount).load(), kWindowSlots);
    std::uint32_t id = 0;
    auto const isTaken = [&id](WindowRec const& rec) {
        return Shared(const_cast<std::uint32_t&>(rec.window)).load(std::memory_order_relaxed) == id;
    };
    std::uint32_t tries = 0;
    do {
        m_LastSequence = (m_LastSequence + 1) & kWindowSequenceMask;
        id = m_Number << kWindowSequenceBits | m_LastSequence;
    } while (++tries <= kWindowSlots && std::any_of(records, records + count, isTaken));
    return id;
}

int OwnInbox::AddWindow(std::u16string_view className, std::u16string_view title, std::uint32_t& window) {
    WindowRec* const records = m_File.Windows();
    std::uint32_t const count = Shared(m_File.Rec().head.windowCount).load(std::memory_order_relaxed);
    std::uint32_t index = 0;
    while (index < std::min(count, kWindowSlots) && Shared(records[index].window).load() != 0) {
        ++index;
    }
    if (index == kWindowSlots) {
        return ENOSPC;
    }
    if (int const error = m_File.Object().ReserveRange(kWindowsOffset, (index + 1) * sizeof(WindowRec));
        error != 0) {
        return error;
    }
    window = NextWindowId();
    StoreText(records[index].className, kClassNameUnits, className);
    StoreText(records[index].title, kTitleUnits, title);
    CORVALEN_FAULT("inbox.window.written");
    Shared(records[index].window).store(window);
    Shared(m_File.Rec().head.windowCount).store(std::max(count, index + 1));
    CORVALEN_FAULT("inbox.window.published");
    return 0;
}

void OwnInbox::RemoveWindow(std::uint32_t window) {
    std::uint32_t const count = std::min(Shared(m_File.Rec().head.windowCount).load(), kWindowSlots);
    for (std::uint32_t i = 0; i < count; ++i) {
        std::uint32_t expected = window;
        Shared(m_File.Windows()[i].window).compare_exchange_strong(expected, 0);
    }
}

int OwnInbox::BeginReply(SlotRec& message) {
    if (m_ReplyDepth == kReplySlots) {
        return EAGAIN;
    }
    m_LastTag = (m_LastTag + 1) & kTagMask;
    message.replyInbox = m_Number;
    message.replySlot = m_ReplyDepth++;
    message.replyTag = m_LastTag;
    Shared(m_File.Rec().replies[message.replySlot].word).store(HighWord(m_LastTag, ReplyState::kPending));
    return 0;
}

ReplyState OwnInbox::Reply(SlotRec const& message, std::uint32_t& result) const {
    std::uint64_t const word =
        Shared(m_File.Rec().replies[message.replySlot].word).load(std::memory_order_acquire);
    // A word that none of our peers can have put there rightly counts as no answer yet.
    if (word >> 34 != message.replyTag) {
        return ReplyState::kPending;
    }
    result = static_cast<std::uint32_t>(word);
    return static_cast<ReplyState>(word >> 32 & 3);
}

ReplyState OwnInbox::EndReply(SlotRec const& message, std::uint32_t& result) {
    std::uint64_t const word = Shared(m_File.Rec().replies[message.replySlot].word).exchange(0);
    --m_ReplyDepth;
    if (word >> 34 != message.replyTag) {
        return ReplyState::kPending;
    }
    result = static_cast<std::uint32_t>(word);
    return static_cast<ReplyState>(word >> 32 & 3);
}

// Steps the count with the bit, so that a sender that is about to take the last sleep's bit back leaves this
// one.
std::uint32_t OwnInbox::SetSignal(SignalBits bit) {
    auto const signal = Shared(m_File.Rec().signal.word);
    std::uint32_t seen = signal.load(std::memory_order_relaxed);
    std::uint32_t next = 0;
    do {
        next = (seen + kSignalStep) | bit;
    } while (!signal.compare_exchange_weak(seen, next));
    std::atomic_thread_fence(std::memory_order_seq_cst);
    return next;
}

std::uint32_t OwnInbox::PrepareSleep() {
    return SetSignal(kSignalAsleep);
}

void OwnInbox::Sleep(std::uint32_t prepared, std::int64_t timeoutNs) {
    FutexWait(m_File.Rec().signal.word, prepared, timeoutNs, true);
}

void OwnInbox::EndSleep() {
    Shared(m_File.Rec().signal.word).fetch_and(~static_cast<std::uint32_t>(kSignalAsleep));
}

void OwnInbox::ArmBell() {
    static_cast<void>(SetSignal(kSignalArmed));
}

void OwnInbox::TellProcessor(std::uint32_t processor) {
    auto told = Shared(m_File.Rec().owner.processor);
    if (told.load(std::memory_order_relaxed) != processor) {
        told.store(processor, std::memory_order_relaxed);
    }
}

void OwnInbox::RecoverRings() {
    InboxRec& rec = m_File.Rec();
    RecoverRing(rec.posted, *m_Posted,
                {rec.posted, rec.owner.postedHead, m_File.PostedSlots(), kPostedSlots});
    RecoverRing(rec.sent, *m_Sent, {rec.sent, rec.owner.sentHead, m_File.SentSlots(), kSentSlots});
}

// Senders count a message after they have published it, so that a ring which counts another number than we
// have taken was left by a sender that died before it had counted, or written to by somebody who must not.
// Then a message's stamp must not come a second time, so we go on behind every position that can have been
// given out.
void OwnInbox::RecoverRing(RingRec& ring, RingReceiver& receiver, RingSender sender) {
    if (Shared(ring.tail).load() == receiver.Position() || receiver.HasNext()) {
        return;
    }
    StopDelay const stopDelay;
    LockResult const taken = AcquireShared(ring.lock, m_File.Object(), Deadline(0));
    if (taken != LockResult::kAcquired && taken != LockResult::kAbandoned) {
        return;
    }
    if (taken == LockResult::kAbandoned) {
        sender.Repair();
    }
    if (Shared(ring.tail).load() != receiver.Position() && !receiver.HasNext()) {
        std::uint64_t const fresh = receiver.Position() + kPostedSlots + 1;
        Shared(ring.limit).store(kFirstLimit);
        Shared(ring.tailSlot).store(0);
        Shared(ring.tail).store(fresh);
        receiver.SkipTo(fresh, 0);
        Shared(ring.knownHead).store(fresh);
    }
    ReleaseShared(ring.lock);
}

}  // namespace System::Platform
