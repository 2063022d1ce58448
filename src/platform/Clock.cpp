#include "platform/Clock.h"

#include <atomic>

namespace System::Platform {

namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;

std::int64_t Read(clockid_t clock) {
    timespec now{};
    // These clocks exist on every Linux, so that the call can't fail.
    static_cast<void>(::clock_gettime(clock, &now));
    return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

std::uint32_t RealTickCount() {
    return static_cast<std::uint32_t>(Read(CLOCK_BOOTTIME) / Deadline::kNsPerMs);
}

std::time_t RealWallSeconds() {
    return ::time(nullptr);
}

std::atomic<std::uint32_t (*)()> s_TickCount{RealTickCount};
std::atomic<std::time_t (*)()> s_WallSeconds{RealWallSeconds};

}  // namespace

std::uint32_t Clock::TickCount() {
    return s_TickCount.load(std::memory_order_relaxed)();
}

std::time_t Clock::WallSeconds() {
    return s_WallSeconds.load(std::memory_order_relaxed)();
}

std::int64_t Clock::MonotonicNs() {
    return Read(CLOCK_MONOTONIC);
}

std::int64_t Clock::CoarseNs() {
    return Read(CLOCK_MONOTONIC_COARSE);
}

void Clock::ReplaceTickCount(std::uint32_t (*source)()) {
    s_TickCount = source != nullptr ? source : RealTickCount;
}

void Clock::ReplaceWallSeconds(std::time_t (*source)()) {
    s_WallSeconds = source != nullptr ? source : RealWallSeconds;
}

}  // namespace System::Platform
