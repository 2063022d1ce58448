#include "corvalen/system/Framework.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "corvalen/diagnostics/Trace.h"
#include "platform/Clock.h"
#include "tests/support/FakeClock.h"
#include "tests/support/LogCapture.h"

namespace {

using System::Diagnostics::CTrace;

bool IsStarted() {
    return CTrace::GetListeners() != nullptr;
}

TEST(Framework, RunsUntilTheLastExitAndCanBeStartedAgain) {
    Support::LogCapture log;
    for (int round = 0; round < 2; ++round) {
        EXPECT_FALSE(IsStarted());
        EXPECT_TRUE(InitFramework());
        EXPECT_TRUE(InitFramework());
        EXPECT_TRUE(ExitFramework());
        EXPECT_TRUE(IsStarted());
        EXPECT_TRUE(ExitFramework());
    }
    EXPECT_FALSE(IsStarted());
    EXPECT_EQ(log.Lines().size(), 0u);
}

TEST(Framework, ReportsAnExitTooManyAndStartsNothingUntilItIsMadeUpFor) {
    Support::LogCapture log;
    EXPECT_TRUE(ExitFramework());
    EXPECT_EQ(log.Asserted(0, "s_InitCount > 0", "Framework"), 1u);
    EXPECT_TRUE(InitFramework());
    EXPECT_FALSE(IsStarted());
    EXPECT_TRUE(InitFramework());
    EXPECT_TRUE(IsStarted());
    EXPECT_TRUE(ExitFramework());
    EXPECT_FALSE(IsStarted());
    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST(FBootTime, CountsAWrapOfTheTickCountAndNeverFalls) {
    Support::FakeClock const clock;
    Support::FakeClock::s_Tick = 4294967290u;
    std::uint64_t const before = FBootTime();
    EXPECT_EQ(static_cast<std::uint32_t>(before), 4294967290u);
    EXPECT_EQ(FBootTime(), before);
    Support::FakeClock::s_Tick = 5;
    EXPECT_EQ(FBootTime(), before + 11);
}

std::atomic<std::uint32_t> s_NextTick{0};

TEST(FBootTime, CountsAWrapOnceForAllThreads) {
    constexpr std::uint32_t kReadings = 40000;
    constexpr int kThreads = 4;
    s_NextTick = 0u - kReadings * kThreads / 2;
    System::Platform::Clock::ReplaceTickCount([] { return s_NextTick++; });
    std::uint64_t const first = FBootTime();
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([] {
            std::uint64_t last = 0;
            for (std::uint32_t reading = 0; reading < kReadings; ++reading) {
                std::uint64_t const now = FBootTime();
                ASSERT_GE(now, last);
                last = now;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::uint64_t const steps = s_NextTick - static_cast<std::uint32_t>(first);
    EXPECT_EQ(FBootTime(), first + steps);
    System::Platform::Clock::ReplaceTickCount(nullptr);
}

struct CopyCase {
    unsigned size;
    char const* expected;  // what five bytes of '#' become
};

constexpr CopyCase kCopies[] = {{5, "abc\0#"}, {4, "abc\0#"}, {3, "ab\0##"}, {1, "\0####"}, {0, "#####"}};

TEST(Strlcpy, CutsWhatDoesNotFitAndWritesNoByteMore) {
    for (CopyCase const& copy : kCopies) {
        char bytes[] = "#####";
        EXPECT_EQ(strlcpy(bytes, "abc", copy.size), bytes);
        EXPECT_EQ(std::memcmp(bytes, copy.expected, sizeof bytes - 1), 0) << copy.size;
    }
}

}  // namespace
