#pragma once

#include <cstdint>
#include <ctime>

namespace System::Platform {

/// The times that the library goes by; tests replace the first two.
namespace Clock {

/// Milliseconds since the machine started, sleep included; wraps after 2^32.
[[nodiscard]] std::uint32_t TickCount();
/// Seconds since 1970.
[[nodiscard]] std::time_t WallSeconds();
/// Nanoseconds on the monotonic clock that waits with a limit count on. Never replaced.
[[nodiscard]] std::int64_t MonotonicNs();

/// The same clock as it stood at the last tick of the system, some milliseconds ago; cheaper to read.
[[nodiscard]] std::int64_t CoarseNs();

/// Puts other sources in the place of TickCount and WallSeconds, for tests; null brings the real one back.
void ReplaceTickCount(std::uint32_t (*source)());
void ReplaceWallSeconds(std::time_t (*source)());

}  // namespace Clock

/// The moment when a wait is over; made once, on entry, so that every retry waits for the rest.
class Deadline {
public:
    static constexpr std::int64_t kNever = INT64_MAX;

    /// A limit of `timeoutMs` milliseconds from now; below 0 means none.
    explicit Deadline(std::int64_t timeoutMs)
        : m_Ns(timeoutMs < 0 ? kNever : Clock::MonotonicNs() + timeoutMs * kNsPerMs) {}

    /// The moment `ns` of the monotonic clock; kNever means none.
    static Deadline AtNs(std::int64_t ns) {
        Deadline deadline(-1);
        deadline.m_Ns = ns;
        return deadline;
    }

    [[nodiscard]] bool IsNever() const { return m_Ns == kNever; }
    [[nodiscard]] bool HasPassed() const { return !IsNever() && Clock::MonotonicNs() >= m_Ns; }
    /// Nanoseconds on the monotonic clock, or kNever.
    [[nodiscard]] std::int64_t Ns() const { return m_Ns; }
    /// Nanoseconds that are left, 0 when it has passed, kNever without a limit.
    [[nodiscard]] std::int64_t LeftNs() const {
        if (IsNever()) {
            return kNever;
        }
        std::int64_t const left = m_Ns - Clock::MonotonicNs();
        return left > 0 ? left : 0;
    }

    static constexpr std::int64_t kNsPerMs = 1'000'000;

private:
    std::int64_t m_Ns;
};

}  // namespace System::Platform
