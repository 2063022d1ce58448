#include "platform/Event.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "tests/support/ChildProcess.h"

namespace {

using System::Platform::Deadline;
using System::Platform::Event;
using System::Platform::EventReset;
using System::Platform::Clock::MonotonicNs;

TEST(Event, LetsOneThroughForEachSetIfItResetsItself) {
    Event event(EventReset::kAuto);
    EXPECT_FALSE(event.Wait(0));
    event.Set();
    event.Set();
    EXPECT_TRUE(event.Wait(-1));
    EXPECT_FALSE(event.Wait(1));
}

TEST(Event, StaysUpUntilItIsReset) {
    Event event(EventReset::kManual, true);
    EXPECT_TRUE(event.Wait(0));
    EXPECT_TRUE(event.Wait(-1));
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
}

TEST(Event, DoesNotTimeOutEarly) {
    Event event(EventReset::kAuto);
    std::int64_t const start = MonotonicNs();
    EXPECT_FALSE(event.Wait(30));
    EXPECT_GE(MonotonicNs() - start, 30 * Deadline::kNsPerMs);
}

TEST(Event, WakesEverySleeperOnceOrAllAtOnce) {
    constexpr int kSleepers = 8;
    for (auto const reset : {EventReset::kAuto, EventReset::kManual}) {
        Event event(reset);
        std::atomic<int> passed{0};
        std::vector<std::thread> sleepers;
        for (int i = 0; i < kSleepers; ++i) {
            sleepers.emplace_back([&] { passed += event.Wait(-1) ? 1 : 0; });
        }
        for (int set = 1; set <= (reset == EventReset::kAuto ? kSleepers : 1); ++set) {
            event.Set();
            int const expected = reset == EventReset::kAuto ? set : kSleepers;
            EXPECT_TRUE(Support::WaitUntil([&] { return passed == expected; })) << passed;
        }
        for (auto& sleeper : sleepers) {
            sleeper.join();
        }
        EXPECT_EQ(event.Wait(0), reset == EventReset::kManual);
    }
}

// Two threads hand a turn back and forth, with sleeps and time-outs that meet the other's Set at all moments.
TEST(Event, LosesNoSetThatMeetsATimeOut) {
    constexpr int kTurns = 20000;
    Event ping(EventReset::kAuto);
    Event pong(EventReset::kAuto);
    auto const play = [](Event& mine, Event& other, bool begins) {
        for (int turn = 0; turn < kTurns; ++turn) {
            if (begins) {
                other.Set();
            }
            for (int look = 0; !mine.Wait(look % 3 == 0 ? 0 : -1); ++look) {
            }
            if (!begins) {
                other.Set();
            }
        }
    };
    std::thread second([&] { play(pong, ping, false); });
    play(ping, pong, true);
    second.join();
    EXPECT_FALSE(ping.Wait(0) || pong.Wait(0));
}

TEST(Event, MayBeDestroyedByTheWaiterThatSetLetsThrough) {
    for (int round = 0; round < 2000; ++round) {
        auto event = std::make_unique<Event>(round % 2 == 0 ? EventReset::kAuto : EventReset::kManual);
        std::thread setter([raw = event.get()] { raw->Set(); });
        ASSERT_TRUE(event->Wait(-1));
        event.reset();
        setter.join();
    }
}

}  // namespace
