#pragma once

#include <ctime>

#include "platform/Clock.h"

namespace Support {

/// Puts settable values in the place of the clock's tick count and wall seconds for its lifetime. One at a
/// time.
class FakeClock {
public:
    FakeClock() {
        s_Tick = System::Platform::Clock::TickCount();
        s_Wall = System::Platform::Clock::WallSeconds();
        System::Platform::Clock::ReplaceTickCount([] { return s_Tick; });
        System::Platform::Clock::ReplaceWallSeconds([] { return s_Wall; });
    }
    ~FakeClock() {
        System::Platform::Clock::ReplaceTickCount(nullptr);
        System::Platform::Clock::ReplaceWallSeconds(nullptr);
    }
    FakeClock(FakeClock const&) = delete;
    FakeClock& operator=(FakeClock const&) = delete;

    static inline std::uint32_t s_Tick = 0;
    static inline std::time_t s_Wall = 0;
};

}  // namespace Support
