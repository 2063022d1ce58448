#pragma once

#include <atomic>
#include <cstdint>

#include "platform/InboxLayout.h"

namespace System::Platform {

// The two ends of a ring of messages in an inbox.
//
// Senders place messages under the ring's lock; the receiver takes them without it. A message is published by
// its stamp alone, which no other message of that ring ever bears, so the receiver needs nothing that the
// senders share. A ring uses few slots while few messages wait, and more as they pile up.

constexpr std::uint64_t StampOf(std::uint64_t position, SlotState state) {
    return (position + 1) * 4 + static_cast<std::uint64_t>(state);
}

/// Gives memory to the slots below `count`, before they are written. Returns false if there is none to have.
class SlotMemory {
public:
    virtual bool Reserve(std::uint32_t count) = 0;

protected:
    ~SlotMemory() = default;
};

struct SlotPlace {
    std::uint64_t position = 0;
    std::uint32_t slot = 0;
};

/// The senders' end. Every call needs the ring's lock.
class RingSender {
public:
    /// `head` is the receiver's position; `slots` has room for `maxSlots` + 1.
    RingSender(RingRec& ring, std::uint64_t& head, SlotRec* slots, std::uint32_t maxSlots)
        : m_Ring(ring), m_Head(head), m_Slots(slots), m_MaxSlots(maxSlots) {}

    /// Finishes what a sender that died with the lock had begun: its message counts if it was published.
    void Repair();
    /// Publishes `message` (its stamp is not looked at). Returns 0 and its place, EAGAIN when the ring is
    /// full or its memory can't grow, EBADMSG when the ring can't be trusted.
    int Push(SlotRec const& message, SlotMemory& memory, SlotPlace& place);

private:
    int MakeRoom(std::uint64_t tail, std::uint32_t limit, SlotMemory& memory, std::uint32_t& slot);

    RingRec& m_Ring;
    std::uint64_t& m_Head;
    SlotRec* m_Slots;
    std::uint32_t m_MaxSlots;
};

/// The receiver's end; the owning thread alone uses it.
class RingReceiver {
public:
    /// `canWithdraw`: whether senders take messages back; claiming one then costs an atomic exchange.
    RingReceiver(std::uint64_t& head, SlotRec* slots, std::uint32_t maxSlots, bool canWithdraw)
        : m_Head(head), m_Slots(slots), m_MaxSlots(maxSlots), m_CanWithdraw(canWithdraw) {}

    /// Whether a message is there, a withdrawn one included.
    [[nodiscard]] bool HasNext() const { return IsAt(m_NextSlot) || (m_NextSlot != 0 && IsAt(0)); }
    /// Whether a message waits; drops withdrawn ones.
    [[nodiscard]] bool HasMessage() {
        while (HasNext()) {
            if (!IsWithdrawn()) {
                return true;
            }
            Advance(NextSlot() + 1);
        }
        return false;
    }
    /// Takes the oldest message that was not withdrawn. False if none waits.
    bool Take(SlotRec& message);
    /// Goes on behind `tail` after a ring whose bytes have been overwritten: what waited there is lost.
    void SkipTo(std::uint64_t tail, std::uint32_t tailSlot);
    [[nodiscard]] std::uint64_t Position() const { return m_Position; }

private:
    [[nodiscard]] bool IsAt(std::uint32_t slot) const {
        return std::atomic_ref(m_Slots[slot].stamp).load(std::memory_order_acquire) / 4 == m_Position + 1;
    }
    // Where the next message is, once HasNext() holds.
    [[nodiscard]] std::uint32_t NextSlot() const { return IsAt(m_NextSlot) ? m_NextSlot : 0; }
    [[nodiscard]] bool IsWithdrawn() const {
        return std::atomic_ref(m_Slots[NextSlot()].stamp).load(std::memory_order_acquire) ==
               StampOf(m_Position, SlotState::kWithdrawn);
    }
    bool Claim(SlotRec& slot) const;
    void Advance(std::uint32_t nextSlot);

    std::uint64_t& m_Head;
    SlotRec* m_Slots;
    std::uint32_t m_MaxSlots;
    bool m_CanWithdraw;
    std::uint64_t m_Position = 0;
    std::uint32_t m_NextSlot = 0;
};

/// Takes a message back that nobody has taken yet. False if it has been taken, or is gone.
inline bool Withdraw(SlotRec* slots, SlotPlace const& place) {
    std::uint64_t expected = StampOf(place.position, SlotState::kReady);
    return std::atomic_ref(slots[place.slot].stamp)
        .compare_exchange_strong(expected, StampOf(place.position, SlotState::kWithdrawn));
}

}  // namespace System::Platform
