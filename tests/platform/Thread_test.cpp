#include "platform/Thread.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>

#include "platform/Event.h"
#include "platform/StopDelay.h"
#include "platform/ThreadId.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Unique.h"

namespace {

using namespace System::Platform;

template <typename Work>
unsigned long Call(void* work) {
    (*static_cast<Work*>(work))();
    return 0;
}

template <typename Work>
std::unique_ptr<Thread> Suspended(Work& work) {
    return std::unique_ptr<Thread>(Thread::CreateSuspended(Call<Work>, &work));
}

template <typename Work>
std::unique_ptr<Thread> Started(Work& work) {
    auto thread = Suspended(work);
    thread->Resume();
    return thread;
}

std::string SystemNameOf(Thread const& thread) {
    return Support::ReadFile("/proc/self/task/" + std::to_string(thread.Id()) + "/comm");
}

TEST(Thread, IsKnownAndFurnishedBeforeItsFirstInstruction) {
    std::atomic<std::uint32_t> seen{0};
    auto work = [&] {
        seen = CurrentThreadId();
    };
    auto const thread = Suspended(work);
    thread->SetName("a name cut at 1\xC3\xA4");
    EXPECT_EQ(SystemNameOf(*thread), "a name cut at 1\n");
    thread->SetName("fourteen bytes\xC3\xA4");
    EXPECT_EQ(SystemNameOf(*thread), "fourteen bytes\n");
    thread->PinToFirstProcessor();
    cpu_set_t processors;
    cpu_set_t own;
    ASSERT_EQ(::sched_getaffinity(static_cast<pid_t>(thread->Id()), sizeof processors, &processors), 0);
    ASSERT_EQ(::sched_getaffinity(::getpid(), sizeof own, &own), 0);
    int first = 0;
    while (!CPU_ISSET(first, &own)) {
        ++first;
    }
    EXPECT_TRUE(CPU_COUNT(&processors) == 1 && CPU_ISSET(first, &processors));
    // Whoever runs with less priority than that may not be allowed to raise it.
    int const before = ::getpriority(PRIO_PROCESS, thread->Id());
    thread->SetPriority(-2);
    int const nice = ::getpriority(PRIO_PROCESS, thread->Id());
    EXPECT_TRUE(nice == 10 || (before > 10 && nice == before)) << nice;
    EXPECT_EQ(seen, 0u);
    EXPECT_FALSE(thread->WaitForEnd(0));
    thread->Resume();
    EXPECT_TRUE(thread->WaitForEnd(-1));
    EXPECT_EQ(seen, thread->Id());
}

TEST(Thread, LeavesWithoutItsWorkIfItIsNeverResumed) {
    std::atomic<bool> ran{false};
    auto work = [&] {
        ran = true;
    };
    auto thread = Suspended(work);
    std::string const folder = "/proc/self/task/" + std::to_string(thread->Id()) + "/comm";
    thread.reset();
    EXPECT_TRUE(Support::WaitUntil([&] { return Support::ReadFile(folder).empty(); }));
    EXPECT_FALSE(ran);
}

TEST(Thread, EndsByForceWithoutDestroyingWhatItHasOnItsStack) {
    struct Marker {
        ~Marker() { isDestroyed = true; }
        std::atomic<bool>& isDestroyed;
    };
    std::atomic<bool> isDestroyed{false};
    Event started(EventReset::kAuto);
    auto work = [&] {
        Marker const marker{isDestroyed};
        started.Set();
        for (std::atomic<unsigned> turns{0};; ++turns) {
        }
    };
    auto const thread = Started(work);
    ASSERT_TRUE(started.Wait(-1));
    EXPECT_TRUE(thread->ForceEnd());
    EXPECT_TRUE(thread->WaitForEnd(0));
    EXPECT_FALSE(isDestroyed);
}

TEST(Thread, TakesAForcedStopThoughItsMakerBlocksAllSignals) {
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, &all, &before), 0);
    Event never(EventReset::kAuto);
    auto work = [&] {
        EXPECT_FALSE(never.Wait(-1));
    };
    auto const thread = Started(work);
    EXPECT_TRUE(thread->ForceEnd());
    EXPECT_EQ(::pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
}

TEST(Thread, CanEndItselfByForce) {
    std::atomic<Thread*> self{nullptr};
    std::atomic<bool> wentOn{false};
    auto work = [&] {
        wentOn = self.load()->ForceEnd();
    };
    auto const thread = Suspended(work);
    self = thread.get();
    thread->Resume();
    EXPECT_TRUE(thread->WaitForEnd(-1));
    EXPECT_FALSE(wentOn);
}

TEST(StopDelay, PutsAForcedStopOffUntilTheLastOneGoes) {
    std::atomic<bool> isInside{false};
    std::atomic<bool> didFinish{false};
    std::atomic<bool> wentOn{false};
    auto work = [&] {
        {
            StopDelay const outer;
            { StopDelay const inner; }
            isInside = true;
            while (!Detail::t_Stop.isPending) {
            }
            { StopDelay const inner; }
            didFinish = true;
        }
        wentOn = true;
    };
    auto const thread = Started(work);
    ASSERT_TRUE(Support::WaitUntil([&] { return isInside.load(); }));
    EXPECT_TRUE(thread->ForceEnd());
    EXPECT_TRUE(didFinish);
    EXPECT_FALSE(wentOn);
}

}  // namespace
