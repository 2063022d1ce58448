#include "platform/Event.h"

#include <climits>

#include "platform/Clock.h"
#include "platform/Futex.h"
#include "platform/StopDelay.h"

namespace System::Platform {

namespace {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

std::uint32_t& FutexWord(std::atomic<std::uint32_t>& word) {
    return reinterpret_cast<std::uint32_t&>(word);
}

}  // namespace

void Event::Set() {
    // All that is needed later is read before the flag goes up: a waiter may be gone with the event by then.
    int const count = m_Reset == EventReset::kManual ? INT_MAX : 1;
    auto& word = FutexWord(m_Word);
    std::uint32_t const before = m_Word.fetch_or(kSet);
    if ((before & kSet) == 0 && before >= kWaiter) {
        FutexWake(word, count, false);
    }
}

void Event::Reset() {
    m_Word.fetch_and(~kSet);
}

// Takes the flag down if it resets itself, and `leaving` waiters off the count, in one step.
bool Event::TryPass(std::uint32_t leaving) {
    std::uint32_t const taken = leaving + (m_Reset == EventReset::kAuto ? kSet : 0);
    std::uint32_t word = m_Word.load();
    while ((word & kSet) != 0) {
        if (m_Word.compare_exchange_weak(word, word - taken)) {
            return true;
        }
    }
    return false;
}

bool Event::Wait(std::int64_t timeoutMs) {
    if (TryPass(0)) {
        return true;
    }
    if (timeoutMs == 0) {
        return false;
    }
    Deadline const deadline(timeoutMs);
    // A waiter that is stopped by force takes itself off, and hands on a wake-up that it may have got. The
    // stop interrupts the sleep, and comes again if it came just before.
    StopDelay const stopDelay;
    m_Word.fetch_add(kWaiter);
    while (!stopDelay.IsStopDue()) {
        if (TryPass(kWaiter)) {
            return true;
        }
        if (deadline.HasPassed()) {
            // A Set that comes now finds one waiter too many, which costs it a call and nothing else.
            m_Word.fetch_sub(kWaiter);
            return false;
        }
        if (std::uint32_t const word = m_Word.load(); (word & kSet) == 0) {
            FutexWait(FutexWord(m_Word), word, deadline.LeftNs(), false);
        }
    }
    auto& word = FutexWord(m_Word);
    if ((m_Word.fetch_sub(kWaiter) & kSet) != 0) {
        FutexWake(word, 1, false);
    }
    return false;
}

}  // namespace System::Platform
