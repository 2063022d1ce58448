#pragma once

#include <algorithm>
#include <cstdint>

namespace System::Platform {

/// Decides for one inbox what a wait does before it sleeps. Where the peer runs on another processor it looks
/// for as long as a wake-up costs, if looking has lately paid, or would have. On our own processor the peer
/// can't do anything while we look: there the wait yields the processor, which spares both a sleep and a
/// wake-up, unless that has lately ended without a message, or late because somebody else used the processor.
class WaitPolicy {
public:
    /// About what a wake-up across processors costs: to look longer than that never wins.
    static constexpr std::int64_t kLookNs = 50'000;

    /// How long to look now. `here` and `peer` are processors plus 1, 0 where unknown.
    /// `usable`: how many processors this thread may run on, which decides where the peer's is unknown.
    [[nodiscard]] std::int64_t LookNs(std::uint32_t here, std::uint32_t peer, unsigned usable) const {
        return IsShared(here, peer, usable) || m_Credit <= 0 ? 0 : kLookNs;
    }
    /// How often to yield now, with a look after each time. Who yields tells the end by LearnYield.
    [[nodiscard]] int Yields(std::uint32_t here, std::uint32_t peer, unsigned usable) {
        if (!IsShared(here, peer, usable)) {
            return 0;
        }
        if (m_YieldBudgetNs < 0) {
            m_YieldBudgetNs += kYieldRegainNs;
            return 0;
        }
        return kYields;
    }
    /// Tells whether the message was there after a yield, and how long that took.
    void LearnYield(bool hasCome, std::int64_t waitedNs) {
        bool const hasPaid = hasCome && waitedNs <= 2 * kLookNs;
        m_YieldBudgetNs = hasPaid ? std::min(m_YieldBudgetNs + kYieldSavesNs, kMaxYieldBudgetNs)
                                  : m_YieldBudgetNs - waitedNs;
    }
    /// Tells how long the wait was, from its begin to the arrival.
    void Learn(std::int64_t waitedNs) {
        // A wait that slept has its wake-up in it: what took up to two of them would have been seen by
        // looking.
        m_Credit = waitedNs <= 2 * kLookNs ? std::min(m_Credit + kPaid, kMaxCredit)
                                           : std::max(m_Credit - kMissed, -kPaid);
    }

private:
    static constexpr int kYields = 2;
    // What a yield may lose to others who run on the processor is what yields have saved, and what each wait
    // without one adds, little enough not to be noticed.
    static constexpr std::int64_t kYieldSavesNs = 2'000;
    static constexpr std::int64_t kYieldRegainNs = 1'000;
    static constexpr std::int64_t kMaxYieldBudgetNs = 4'000'000;
    static constexpr int kMaxCredit = 8;
    static constexpr int kPaid = 2;
    static constexpr int kMissed = 1;

    [[nodiscard]] static bool IsShared(std::uint32_t here, std::uint32_t peer, unsigned usable) {
        return here != 0 && peer != 0 ? here == peer : usable < 2;
    }

    int m_Credit = kMaxCredit / 2;
    std::int64_t m_YieldBudgetNs = 0;
};

}  // namespace System::Platform
