#include "corvalen/threading/Monitor.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/LogCapture.h"

namespace {

using System::Threading::CMonitor;

constexpr char kNotOwner[] = "m_Thread == GetCurrentThreadId()";

TEST(Monitor, BelongsToItsOwnerUntilTheLastUnlock) {
    CMonitor monitor;
    EXPECT_FALSE(monitor.Init());
    EXPECT_FALSE(monitor.Locked());
    monitor.Lock();
    monitor.Enter();
    EXPECT_TRUE(monitor.Locked());
    EXPECT_EQ(monitor.LockCount(), 2u);
    std::atomic<bool> isTaken{false};
    std::thread other([&] {
        EXPECT_FALSE(monitor.Locked());
        monitor.Lock();
        isTaken = true;
        monitor.Unlock();
    });
    monitor.Leave();
    EXPECT_FALSE(Support::WaitUntil([&] { return isTaken.load(); }, std::chrono::milliseconds(20)));
    monitor.Unlock();
    other.join();
    EXPECT_TRUE(isTaken);
    EXPECT_EQ(monitor.LockCount(), 0u);
}

TEST(Monitor, StartsAfreshBehindAThreadThatEndedWithIt) {
    Support::LogCapture log;
    CMonitor monitor;
    std::thread([&] {
        monitor.Lock();
        monitor.Lock();
    }).join();
    monitor.Lock();
    EXPECT_EQ(log.Asserted(0, kNotOwner, "Monitor"), 1u);
    EXPECT_TRUE(monitor.Locked());
    EXPECT_EQ(monitor.LockCount(), 1u);
    monitor.Unlock();
    monitor.Lock();
    monitor.Unlock();
    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST(Monitor, ReportsAnUnlockTooManyAndRecoversAtTheNextLock) {
    Support::LogCapture log;
    CMonitor monitor;
    monitor.Unlock();
    EXPECT_EQ(log.Asserted(0, kNotOwner, "Monitor"), 1u);
    EXPECT_EQ(monitor.LockCount(), 4294967295u);
    monitor.Lock();
    EXPECT_EQ(log.Asserted(0, kNotOwner, "Monitor"), 2u);
    EXPECT_EQ(monitor.LockCount(), 1u);
    monitor.Unlock();
    EXPECT_EQ(monitor.LockCount(), 0u);
}

TEST(Monitor, StaysLockedThroughAnUnlockByAnotherThread) {
    Support::LogCapture log;
    CMonitor monitor;
    monitor.Lock();
    monitor.Lock();
    std::thread([&] { monitor.Unlock(); }).join();
    EXPECT_EQ(log.Asserted(0, kNotOwner, "Monitor"), 1u);
    EXPECT_EQ(monitor.LockCount(), 1u);
    EXPECT_TRUE(monitor.Locked());
    monitor.Unlock();
}

TEST(Monitor, HasNoOwnerAnyMoreWhenOtherThreadsHaveCountedItDown) {
    Support::LogCapture log;
    CMonitor monitor;
    monitor.Lock();
    std::thread([&] { monitor.Unlock(); }).join();
    EXPECT_EQ(monitor.LockCount(), 0u);
    EXPECT_FALSE(monitor.Locked());
    monitor.Unlock();
    EXPECT_EQ(log.Asserted(0, kNotOwner, "Monitor"), 2u);
    monitor.Lock();
    EXPECT_EQ(log.Asserted(0, kNotOwner, "Monitor"), 3u);
    std::thread([&] {
        monitor.Unlock();
        monitor.Unlock();
    }).join();
    monitor.Lock();
    EXPECT_EQ(log.Asserted(0, kNotOwner, "Monitor"), 6u);
    EXPECT_TRUE(monitor.Locked());
    EXPECT_EQ(monitor.LockCount(), 1u);
    monitor.Unlock();
}

TEST(Monitor, ReportsItsDestructionWhileOwned) {
    Support::LogCapture log;
    auto monitor = std::make_unique<CMonitor>();
    monitor->Lock();
    monitor.reset();
    EXPECT_EQ(log.Asserted(0, "m_LockCount == 0", "Monitor"), 1u);
    EXPECT_EQ(log.Asserted(0, "m_Thread == 0", "Monitor"), 1u);
}

TEST(Monitor, ExcludesThreadsFromOneAnother) {
    constexpr int kThreads = 4;
    constexpr int kTurns = 20000;
    CMonitor monitor;
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int turn = 0; turn < kTurns; ++turn) {
                monitor.Lock();
                ++count;
                monitor.Unlock();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, kThreads * kTurns);
}

// 0, or the number of the first step that does not hold.
int LookFromForkedOwner(CMonitor& asked, CMonitor& locked, CMonitor& unlocked) {
    if (!asked.Locked() || asked.LockCount() != 1) {
        return 1;
    }
    locked.Lock();
    if (locked.LockCount() != 2) {
        return 2;
    }
    unlocked.Unlock();
    if (unlocked.LockCount() != 0 || unlocked.Locked()) {
        return 3;
    }
    unlocked.Lock();
    return unlocked.LockCount() == 1 && unlocked.Locked() ? 0 : 4;
}

TEST(Monitor, IsTheChildsIfItsOwnerForks) {
    CMonitor monitors[3];
    for (auto& monitor : monitors) {
        monitor.Lock();
    }
    pid_t const child = ::fork();
    if (child == 0) {
        ::_exit(LookFromForkedOwner(monitors[0], monitors[1], monitors[2]));
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    for (auto& monitor : monitors) {
        EXPECT_TRUE(monitor.Locked());
        monitor.Unlock();
    }
}

}  // namespace
