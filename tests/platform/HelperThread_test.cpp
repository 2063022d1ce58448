#include "platform/HelperThread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>

#include "platform/Event.h"
#include "platform/Processor.h"
#include "platform/Thread.h"
#include "platform/ThreadId.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Unique.h"

namespace {

using namespace System::Platform;

class Call : public HelperThread::Task {
public:
    explicit Call(std::function<void()> work) : m_Work(std::move(work)) {}
    void Run() override { m_Work(); }

private:
    std::function<void()> m_Work;
};

// The system may list a thread for a moment after it has been joined.
bool AreHelpersGone() {
    namespace fs = std::filesystem;
    return Support::WaitUntil([] {
        return std::none_of(fs::directory_iterator("/proc/self/task"), fs::directory_iterator(),
                            [](fs::directory_entry const& thread) {
                                return Support::ReadFile(thread.path() / "comm") == "corvalen helper\n";
                            });
    });
}

class HelperThreadTest : public testing::Test {
protected:
    void SetUp() override {
        if (UsableProcessors() < 2) {
            GTEST_SKIP() << "one processor, no helper";
        }
    }

    void Give(std::function<void()> work) {
        ASSERT_TRUE(m_Helper.HasRoom());
        m_Helper.Give(std::make_unique<Call>(std::move(work)));
    }

    HelperThread m_Helper;
};

TEST_F(HelperThreadTest, RunsEveryTaskOnceAndIsGoneAfterwards) {
    std::atomic<int> runs{0};
    int given = 0;
    {
        HelperThread helper;
        for (int i = 0; i < 10000; ++i) {
            if (helper.HasRoom()) {
                helper.Give(std::make_unique<Call>([&] { ++runs; }));
                ++given;
            }
            if (i % 100 == 0) {
                helper.Finish();
                ASSERT_EQ(runs, given);
            }
        }
    }
    EXPECT_EQ(runs, given);
    EXPECT_GE(given, 100);
    EXPECT_TRUE(AreHelpersGone());
}

TEST_F(HelperThreadTest, HasOneTaskWaitThatItsMakerTakesBackToFinish) {
    Event begun(EventReset::kAuto);
    Event released(EventReset::kAuto);
    std::uint32_t second = 0;
    Give([&] {
        begun.Set();
        EXPECT_TRUE(released.Wait(-1));
    });
    EXPECT_TRUE(begun.Wait(-1));
    Give([&] {
        second = CurrentThreadId();
        released.Set();
    });
    EXPECT_FALSE(m_Helper.HasRoom());
    m_Helper.Finish();
    EXPECT_EQ(second, CurrentThreadId());
}

TEST_F(HelperThreadTest, TakesNoSignalsAndOutlivesATaskWithoutMemory) {
    std::atomic<int> blocked{0};
    Event done(EventReset::kAuto);
    Give([&] {
        sigset_t mask;
        ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        blocked = ::sigismember(&mask, SIGTERM) + ::sigismember(&mask, SIGRTMAX);
        done.Set();
        throw std::bad_alloc();
    });
    EXPECT_TRUE(done.Wait(-1));
    m_Helper.Finish();
    EXPECT_EQ(blocked, 2);
}

TEST_F(HelperThreadTest, LeavesWhenItIsIdleAndIsReplacedWhenThereIsWork) {
    for (int round = 0; round < 2; ++round) {
        Event done(EventReset::kAuto);
        Give([&] { done.Set(); });
        EXPECT_TRUE(done.Wait(-1));
        EXPECT_TRUE(AreHelpersGone());
    }
}

TEST_F(HelperThreadTest, EndsByItselfWhenItsMakerIsEndedByForce) {
    struct Shared {
        HelperThread helper;
        Event begun{EventReset::kAuto};
        Event finishing{EventReset::kAuto};
        Event released{EventReset::kAuto};
        std::atomic<bool> ran{false};
    } shared;
    auto const work = [](void* argument) -> unsigned long {
        auto& maker = *static_cast<Shared*>(argument);
        EXPECT_TRUE(maker.helper.HasRoom());
        maker.helper.Give(std::make_unique<Call>([&] {
            maker.begun.Set();
            EXPECT_TRUE(maker.released.Wait(-1));
            maker.ran = true;
        }));
        EXPECT_TRUE(maker.begun.Wait(-1));
        maker.finishing.Set();
        maker.helper.Finish();
        return 0;
    };
    std::unique_ptr<Thread> const maker(Thread::CreateSuspended(work, &shared));
    ASSERT_NE(maker, nullptr);
    maker->Resume();
    ASSERT_TRUE(shared.finishing.Wait(-1));
    EXPECT_TRUE(maker->ForceEnd());
    shared.released.Set();
    EXPECT_TRUE(AreHelpersGone());
    EXPECT_TRUE(shared.ran);
}

TEST_F(HelperThreadTest, LeavesTheTasksToItsMakerWhereTheSystemHasNoThreadToGive) {
    constexpr std::size_t kMoreThanThereIs = std::size_t{1} << 47;
    pthread_attr_t before;
    pthread_attr_t greedy;
    ASSERT_EQ(::pthread_getattr_default_np(&before), 0);
    ASSERT_EQ(::pthread_attr_init(&greedy), 0);
    ASSERT_EQ(::pthread_attr_setstacksize(&greedy, kMoreThanThereIs), 0);
    ASSERT_EQ(::pthread_setattr_default_np(&greedy), 0);
    std::uint32_t runner = 0;
    Give([&] { runner = CurrentThreadId(); });
    EXPECT_EQ(runner, CurrentThreadId());
    EXPECT_FALSE(m_Helper.HasRoom());
    EXPECT_EQ(::pthread_setattr_default_np(&before), 0);
    ::pthread_attr_destroy(&greedy);
    ::pthread_attr_destroy(&before);
}

TEST_F(HelperThreadTest, IsNotWantedWhereThereIsOneProcessor) {
    cpu_set_t before;
    ASSERT_EQ(::sched_getaffinity(0, sizeof before, &before), 0);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(::sched_getcpu(), &one);
    ASSERT_EQ(::sched_setaffinity(0, sizeof one, &one), 0);
    HelperThread helper;
    EXPECT_FALSE(helper.HasRoom());
    EXPECT_EQ(::sched_setaffinity(0, sizeof before, &before), 0);
}

}  // namespace
