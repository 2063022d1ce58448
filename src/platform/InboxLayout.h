#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/SharedLock.h"

namespace System::Platform {

// The bytes of an inbox, one file for each thread that takes messages. Other processes, of other builds, read
// and write them: they never change. docs/formats/inbox.md draws them.

constexpr std::uint32_t kInboxSignature = 0x584F4249;  // "IBOX"
constexpr std::uint32_t kInboxVersion = 1;
constexpr std::size_t kCacheLine = 64;
constexpr std::size_t kInboxPage = 4096;

constexpr std::uint32_t kPostedSlots = 10000;
constexpr std::uint32_t kSentSlots = 4096;
constexpr std::uint32_t kReplySlots = 16;
constexpr std::uint32_t kWindowSlots = 128;
constexpr std::uint32_t kClassNameUnits = 64;
constexpr std::uint32_t kTitleUnits = 256;

// One message in a ring. Its cache line is all that travels from sender to receiver.
struct alignas(kCacheLine) SlotRec {
    std::uint64_t stamp;  // (position + 1) * 4 + SlotState; written last. 0: never used
    std::uint32_t window;
    std::uint32_t message;
    std::uint32_t wParam;
    std::uint32_t replyInbox;  // number of the inbox that waits for the result; 0 in a posted message
    std::int64_t lParam;
    std::uint32_t replySlot;
    std::uint32_t replyTag;
    std::uint32_t processor;  // where the sender ran, plus 1
    std::uint32_t filler[5];
};
static_assert(sizeof(SlotRec) == kCacheLine && offsetof(SlotRec, lParam) == 24);

enum class SlotState : std::uint64_t { kReady = 0, kTaken = 1, kWithdrawn = 2 };

// What the senders of a ring share, under its lock.
struct alignas(kCacheLine) RingRec {
    SharedLockRec lock;
    std::uint64_t tail;       // position of the next message, counted from 0 for ever
    std::uint32_t tailSlot;   // the slot that it goes to
    std::uint32_t limit;      // slots in use of those that there may be; one more has memory
    std::uint64_t knownHead;  // what a sender last saw of the receiver's head
};
static_assert(sizeof(RingRec) == kCacheLine);

// Written by the owner alone.
struct alignas(kCacheLine) InboxOwnerRec {
    std::uint64_t postedHead;  // position of the next posted message to take
    std::uint64_t sentHead;
    std::uint32_t processor;  // where the owner last waited, plus 1
    std::uint32_t isClosed;
};
static_assert(sizeof(InboxOwnerRec) == kCacheLine);

// The word that the owner sleeps on; senders look at it after each message.
struct alignas(kCacheLine) InboxSignalRec {
    std::uint32_t word;  // SignalBits, and a count above them that each wake-up raises
};

enum SignalBits : std::uint32_t {
    kSignalAsleep = 1,  // the owner sleeps, or is about to: wake it
    kSignalArmed = 2,   // the owner watches its descriptor: write to the bell
    kSignalStep = 4,
};

// Where the result of a request goes: tag * 4 + ReplyState above, the result in the low 32 bits.
struct alignas(kCacheLine) ReplyRec {
    std::uint64_t word;
};

enum class ReplyState : std::uint32_t { kFree = 0, kPending = 1, kDone = 2, kRefused = 3 };

struct alignas(kCacheLine) InboxHeadRec {
    std::uint32_t signature;
    std::uint32_t version;
    std::uint32_t number;
    std::uint32_t owner;        // the owner's participant number in the file
    std::uint32_t windowCount;  // records of the window table in use, closed ones included
};
static_assert(sizeof(InboxHeadRec) == kCacheLine);

struct InboxRec {
    InboxHeadRec head;
    InboxSignalRec signal;
    InboxOwnerRec owner;
    RingRec posted;
    RingRec sent;
    ReplyRec replies[kReplySlots];
};
static_assert(sizeof(InboxRec) <= kInboxPage);

struct WindowRec {
    std::uint32_t window;  // its id; 0 while the record is free. Written last, cleared first
    std::uint32_t filler;
    char16_t className[kClassNameUnits];  // ends in 0
    char16_t title[kTitleUnits];
};
static_assert(sizeof(WindowRec) == 648);

constexpr std::size_t RoundUpToPage(std::size_t bytes) {
    return (bytes + kInboxPage - 1) / kInboxPage * kInboxPage;
}

// Each area begins on a page of its own. A ring has memory for one slot more than its limit, so that the
// receiver may look at the slot behind the last.
constexpr std::size_t kSentOffset = kInboxPage;
constexpr std::size_t kPostedOffset = kSentOffset + RoundUpToPage((kSentSlots + 1) * sizeof(SlotRec));
constexpr std::size_t kWindowsOffset = kPostedOffset + RoundUpToPage((kPostedSlots + 1) * sizeof(SlotRec));
constexpr std::size_t kInboxSize = kWindowsOffset + RoundUpToPage(kWindowSlots * sizeof(WindowRec));

// A ring starts with a page.
constexpr std::uint32_t kFirstLimit = kInboxPage / sizeof(SlotRec) - 1;

// A window's id is its inbox's number above and a running number of that inbox below.
constexpr unsigned kWindowSequenceBits = 12;
constexpr std::uint32_t kWindowSequenceMask = (1U << kWindowSequenceBits) - 1;
constexpr std::uint32_t kMaxInboxNumber = (1U << (32 - kWindowSequenceBits)) - 1;

constexpr std::uint32_t InboxOfWindow(std::uint32_t window) {
    return window >> kWindowSequenceBits;
}

}  // namespace System::Platform
