#include "corvalen/system/CommTimer.h"

#include <gtest/gtest.h>

#include <string>

#include "corvalen/platform/MessageQueue.h"
#include "platform/Clock.h"
#include "platform/Window.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Unique.h"

namespace {

using System::CCommTimer;
using namespace System::Platform;

// A clock that moves by a millisecond at each look, so that a delay has as many passes on every machine.
class SteppingClock {
public:
    SteppingClock() {
        s_Tick = 0u - 20;
        Clock::ReplaceTickCount([] { return s_Tick++; });
    }
    ~SteppingClock() { Clock::ReplaceTickCount(nullptr); }

private:
    static inline std::uint32_t s_Tick = 0;
};

int s_Handled = 0;

long CountMessage(std::uint32_t, unsigned, unsigned, long) {
    return ++s_Handled;
}

TEST(CommTimer, TakesOneMessageInEachPassOfADelayThatPumps) {
    constexpr int kMessages = 60;
    constexpr unsigned kDelay = 50;
    std::u16string const name = Support::UniqueWideName();
    std::uint32_t window = 0;
    ASSERT_EQ(RegisterWindowClass(name, CountMessage), 0);
    ASSERT_EQ(CreateMessageWindow(name, name, nullptr, window), 0);
    for (int i = 0; i < kMessages; ++i) {
        ASSERT_EQ(PostToWindow(window, 1024, 0, 0), 0);
    }
    s_Handled = 0;
    {
        SteppingClock const clock;
        CCommTimer::myDelay(0, 1);
        CCommTimer::myDelay(kDelay, 0);
        EXPECT_EQ(s_Handled, 0);
        CCommTimer::myDelay(kDelay, 1);
        EXPECT_EQ(s_Handled, static_cast<int>(kDelay) - 1);
    }
    // The rest is still there; it goes now, so that it does not meet the next test.
    Message left;
    int waiting = 0;
    while (MessageQueue::Current().Peek(left)) {
        ++waiting;
    }
    EXPECT_EQ(waiting, kMessages - s_Handled);
    EXPECT_EQ(DestroyMessageWindow(window), 0);
}

TEST(CommTimer, DelaysForTheWholeTimeThoughNoMessageIsThere) {
    std::int64_t const start = Clock::MonotonicNs();
    CCommTimer::myDelay(30, 1);
    // The tick count moves in whole milliseconds.
    EXPECT_GT(Clock::MonotonicNs() - start, 28 * Deadline::kNsPerMs);
}

TEST(CommTimer, GivesBackTheFlagOfTheLastChange) {
    CCommTimer timer;
    EXPECT_EQ(timer.IsTimeOut(), 0);
    timer.Change(CCommTimer::TIMEOUT_5SEC, 1);
    EXPECT_EQ(timer.IsTimeOut(), 1);
    timer.Change(CCommTimer::TIMEOUT_5MIN, 0);
    EXPECT_EQ(timer.IsTimeOut(), 0);
}

TEST(CommTimer, TicksWhileItsThreadTakesMessagesAndItLives) {
    MessageQueue& queue = MessageQueue::Current();
    testing::internal::CaptureStdout();
    {
        CCommTimer const timer;
        Message message;
        EXPECT_TRUE(queue.Wait(static_cast<int>(std::chrono::milliseconds(Support::kLimit).count())));
        EXPECT_TRUE(queue.Peek(message));
        queue.Dispatch(message);
    }
    EXPECT_FALSE(queue.Wait(150));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "tick\n");
}

}  // namespace
