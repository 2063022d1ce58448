#include "platform/InboxRing.h"

#include <algorithm>
#include <cerrno>

#include "platform/FaultPoint.h"

namespace System::Platform {

namespace {

template <typename Value>
Value Load(Value& field) {
    return std::atomic_ref(field).load(std::memory_order_relaxed);
}

template <typename Value>
void Store(Value& field, Value value) {
    std::atomic_ref(field).store(value, std::memory_order_relaxed);
}

// Everything but the stamp, field by field: a peer may write to either side while we copy.
void CopyContent(SlotRec& to, SlotRec& from) {
    Store(to.window, Load(from.window));
    Store(to.message, Load(from.message));
    Store(to.wParam, Load(from.wParam));
    Store(to.replyInbox, Load(from.replyInbox));
    Store(to.lParam, Load(from.lParam));
    Store(to.replySlot, Load(from.replySlot));
    Store(to.replyTag, Load(from.replyTag));
    Store(to.processor, Load(from.processor));
}

}  // namespace

void RingSender::Repair() {
    std::uint64_t const tail = Load(m_Ring.tail);
    std::uint32_t const slot = Load(m_Ring.tailSlot);
    if (slot > m_MaxSlots) {
        return;
    }
    std::uint64_t const published = std::atomic_ref(m_Slots[slot].stamp).load(std::memory_order_acquire) / 4;
    // Died behind the stamp, or between the two counters.
    if (published == tail + 1) {
        Store(m_Ring.tail, tail + 1);
    }
    if (published == tail + 1 || (published == tail && tail != 0)) {
        Store(m_Ring.tailSlot, slot + 1);
    }
}

// Called when the slot behind the last one in use is needed. What waits lies in one piece below `limit` until
// the ring has its full size, so the ring may start over only when nothing waits, and must grow otherwise.
int RingSender::MakeRoom(std::uint64_t tail, std::uint32_t limit, SlotMemory& memory, std::uint32_t& slot) {
    std::uint64_t const head = std::atomic_ref(m_Head).load(std::memory_order_acquire);
    Store(m_Ring.knownHead, head);
    if (head == tail || limit == m_MaxSlots) {
        slot = 0;
        Store(m_Ring.tailSlot, slot);
        return 0;
    }
    std::uint32_t const wider = std::min(m_MaxSlots, limit * 2 + 1);
    if (!memory.Reserve(wider + 1)) {
        return EAGAIN;
    }
    Store(m_Ring.limit, wider);
    return 0;
}

int RingSender::Push(SlotRec const& message, SlotMemory& memory, SlotPlace& place) {
    std::uint64_t const tail = Load(m_Ring.tail);
    std::uint32_t const limit = Load(m_Ring.limit);
    std::uint32_t slot = Load(m_Ring.tailSlot);
    if (limit > m_MaxSlots || slot > limit) {
        return EBADMSG;
    }
    if (tail - Load(m_Ring.knownHead) >= m_MaxSlots) {
        std::uint64_t const head = std::atomic_ref(m_Head).load(std::memory_order_acquire);
        Store(m_Ring.knownHead, head);
        if (tail - head >= m_MaxSlots) {
            return EAGAIN;
        }
    }
    if (slot == limit) {
        if (int const error = MakeRoom(tail, limit, memory, slot); error != 0) {
            return error;
        }
    }
    // A death up to the stamp leaves nothing; from the stamp on the message is there, and Repair counts it.
    SlotRec& target = m_Slots[slot];
    CORVALEN_FAULT("inbox.push.begun");
    CopyContent(target, const_cast<SlotRec&>(message));
    CORVALEN_FAULT("inbox.push.written");
    std::atomic_ref(target.stamp).store(StampOf(tail, SlotState::kReady), std::memory_order_release);
    CORVALEN_FAULT("inbox.push.published");
    Store(m_Ring.tail, tail + 1);
    CORVALEN_FAULT("inbox.push.counted");
    Store(m_Ring.tailSlot, slot + 1);
    place = {tail, slot};
    return 0;
}

bool RingReceiver::Claim(SlotRec& slot) const {
    if (!m_CanWithdraw) {
        return true;
    }
    std::uint64_t expected = StampOf(m_Position, SlotState::kReady);
    return std::atomic_ref(slot.stamp)
        .compare_exchange_strong(expected, StampOf(m_Position, SlotState::kTaken), std::memory_order_acq_rel,
                                 std::memory_order_acquire);
}

void RingReceiver::Advance(std::uint32_t nextSlot) {
    ++m_Position;
    m_NextSlot = nextSlot <= m_MaxSlots ? nextSlot : 0;
    std::atomic_ref(m_Head).store(m_Position, std::memory_order_release);
}

bool RingReceiver::Take(SlotRec& message) {
    while (HasNext()) {
        std::uint32_t const slot = NextSlot();
        bool const isOurs = Claim(m_Slots[slot]);
        if (isOurs) {
            CopyContent(message, m_Slots[slot]);
        }
        CORVALEN_FAULT("inbox.take.claimed");
        Advance(slot + 1);
        if (isOurs) {
            return true;
        }
    }
    return false;
}

void RingReceiver::SkipTo(std::uint64_t tail, std::uint32_t tailSlot) {
    m_Position = tail;
    m_NextSlot = tailSlot <= m_MaxSlots ? tailSlot : 0;
    std::atomic_ref(m_Head).store(m_Position, std::memory_order_release);
}

}  // namespace System::Platform
