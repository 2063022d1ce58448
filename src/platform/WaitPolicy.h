#pragma once

#include <algorithm>
#include <cstdint>

namespace System::Platform {

/// Decides for one inbox how long a wait looks before it sleeps: as long as a wake-up costs if looking has
/// lately paid, or would have; not at all if it has not, or if the peer runs on our own processor, which it
/// can't use while we look.
class WaitPolicy {
public:
    /// About what a wake-up across processors costs: to look longer than that never wins.
    static constexpr std::int64_t kLookNs = 50'000;

    /// How long to look now. `here` and `peer` are processors plus 1, 0 where unknown.
    /// `usable`: how many processors this thread may run on, which decides where the peer's is unknown.
    [[nodiscard]] std::int64_t LookNs(std::uint32_t here, std::uint32_t peer, unsigned usable) const {
        bool const isShared = here != 0 && peer != 0 ? here == peer : usable < 2;
        return isShared || m_Credit <= 0 ? 0 : kLookNs;
    }
    /// Tells how long the wait was, from its begin to the arrival.
    void Learn(std::int64_t waitedNs) {
        // A wait that slept has its wake-up in it: what took up to two of them would have been seen by
        // looking.
        m_Credit = waitedNs <= 2 * kLookNs ? std::min(m_Credit + kPaid, kMaxCredit)
                                           : std::max(m_Credit - kMissed, -kPaid);
    }

private:
    static constexpr int kMaxCredit = 8;
    static constexpr int kPaid = 2;
    static constexpr int kMissed = 1;

    int m_Credit = kMaxCredit / 2;
};

}  // namespace System::Platform
