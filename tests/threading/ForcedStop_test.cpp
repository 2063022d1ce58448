#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <thread>

#include "corvalen/diagnostics/Log.h"
#include "corvalen/platform/MessageQueue.h"
#include "corvalen/rpc/SharedMemory.h"
#include "corvalen/threading/ComThread.h"
#include "corvalen/threading/Monitor.h"
#include "platform/Thread.h"
#include "platform/Window.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Unique.h"

// Where there is a leak checker: what a stopped thread had allocated is lost, as it must be.
extern "C" [[gnu::weak]] void __lsan_disable();

namespace {

using System::Diagnostics::FLog;
using namespace System::Platform;
using System::Threading::CComThread;
using System::Threading::CMonitor;

constexpr unsigned long kNobody = 4194305;  // above the highest id that the kernel gives

void CountLine(void* count, unsigned, std::uint64_t, char const*, unsigned, long, char const*, char const*) {
    ++*static_cast<std::atomic<int>*>(count);
}

// What the threads that are to be stopped have at hand.
struct Scene {
    std::atomic<unsigned> turns{0};
    CMonitor monitor;
    System::RPC::SharedMemory region{Support::UniqueWideName().c_str(), 64};
    std::u16string windowClass = Support::UniqueWideName();
    int pipe[2] = {-1, -1};

    // Shows that the thread is where it is to be stopped.
    void Turn() { ++turns; }
};

void StayInLine(void* scene, unsigned, std::uint64_t, char const*, unsigned, long, char const* context,
                char const*) {
    while (*context == 's') {
        static_cast<Scene*>(scene)->Turn();
    }
}

void LoopTightly(Scene& scene) {
    for (;;) {
        scene.Turn();
    }
}

void ReadWhatNeverComes(Scene& scene) {
    scene.Turn();
    char byte = 0;
    static_cast<void>(!::read(scene.pipe[0], &byte, 1));
}

void HoldTheMonitor(Scene& scene) {
    scene.monitor.Lock();
    scene.monitor.Lock();
    LoopTightly(scene);
}

void HoldAMonitorOnItsStack(Scene& scene) {
    CMonitor mine;
    mine.Lock();
    HoldTheMonitor(scene);
}

void HoldTheRegionsLock(Scene& scene) {
    scene.region.Lock();
    LoopTightly(scene);
}

void HoldTheLogsLock(Scene&) {
    FLog::Put(0, 1, "T", "stay", "a line whose procedure does not return");
}

void LockAndUnlock(Scene& scene) {
    for (;;) {
        scene.monitor.Lock();
        scene.Turn();
        scene.monitor.Unlock();
    }
}

void Allocate(Scene& scene) {
    for (std::size_t size = 1;; size = size % 100000 * 3 + 1) {
        std::free(std::malloc(size));
        scene.Turn();
    }
}

void WriteLines(Scene& scene) {
    for (;;) {
        FLog::Put(0, 1, "T", "pass", "a line");
        scene.Turn();
    }
}

void AskForNames(Scene& scene) {
    for (;;) {
        static_cast<void>(CComThread::ThreadName(kNobody));
        scene.Turn();
    }
}

// Makes and ends what a message queue holds, and takes messages.
void UseTheQueue(Scene& scene) {
    for (;;) {
        MessageQueue& queue = MessageQueue::Current();
        std::uint32_t window = 0;
        EXPECT_EQ(CreateMessageWindow(scene.windowClass, u"", nullptr, window), 0);
        std::uint32_t const timer = queue.SetTimer(1000, [](auto...) {});
        EXPECT_EQ(PostToWindow(window, 1024, 0, 0), 0);
        Message message;
        EXPECT_TRUE(queue.Peek(message));
        queue.Dispatch(message);
        EXPECT_TRUE(queue.KillTimer(timer));
        EXPECT_EQ(DestroyMessageWindow(window), 0);
        scene.Turn();
    }
}

struct Job {
    void (*work)(Scene&);
    Scene* scene;

    static unsigned long Run(void* job) {
        if (__lsan_disable != nullptr) {
            __lsan_disable();
        }
        static_cast<Job*>(job)->work(*static_cast<Job*>(job)->scene);
        return 0;
    }
};

class ForcedStop : public testing::Test {
protected:
    ForcedStop() {
        FLog::Init();
        CComThread::Init();
        FLog::RegisterProc(CountLine, &m_Lines);
        FLog::RegisterProc(StayInLine, &m_Scene);
        EXPECT_EQ(::pipe(m_Scene.pipe), 0);
        EXPECT_EQ(RegisterWindowClass(m_Scene.windowClass,
                                      [](std::uint32_t, unsigned, unsigned, long) { return 0L; }),
                  0);
    }
    ~ForcedStop() override {
        ::close(m_Scene.pipe[0]);
        ::close(m_Scene.pipe[1]);
        CComThread::Terminate();
        FLog::Terminate();
    }

    void StopOne(void (*work)(Scene&)) {
        Job job{work, &m_Scene};
        m_Scene.turns = 0;
        std::unique_ptr<Thread> const thread(Thread::CreateSuspended(Job::Run, &job));
        ASSERT_NE(thread, nullptr);
        thread->Resume();
        ASSERT_TRUE(Support::WaitUntil([&] { return m_Scene.turns > 0; }));
        ASSERT_TRUE(thread->ForceEnd());
    }

    // Everything that a stopped thread may have held is there for the others.
    void ExpectAllWorks() {
        std::atomic<bool> isDone{false};
        std::thread other([&] {
            m_Scene.monitor.Lock();
            EXPECT_EQ(m_Scene.monitor.LockCount(), 1u);
            m_Scene.monitor.Unlock();
            m_Scene.region.Lock();
            m_Scene.region.Unlock();
            std::uint32_t window = 0;
            EXPECT_EQ(CreateMessageWindow(m_Scene.windowClass, u"", nullptr, window), 0);
            EXPECT_EQ(DestroyMessageWindow(window), 0);
            std::unique_ptr<char[]> const memory(new char[5000]);
            isDone = memory != nullptr;
        });
        other.join();
        int const before = m_Lines;
        FLog::Put(0, 1, "T", "pass", "a line after the stop");
        EXPECT_EQ(m_Lines, before + 1);
        EXPECT_TRUE(isDone);
        EXPECT_STREQ(CComThread::ThreadName(kNobody), "Unknown");
    }

    std::atomic<int> m_Lines{0};
    Scene m_Scene;
};

TEST_F(ForcedStop, LeavesTheProcessWholeAHundredTimesInARow) {
    constexpr void (*kWorks[])(Scene&) = {
        LoopTightly,     ReadWhatNeverComes,     HoldTheMonitor, LockAndUnlock, HoldTheRegionsLock,
        HoldTheLogsLock, HoldAMonitorOnItsStack, Allocate,       WriteLines,    AskForNames,
        UseTheQueue};
    constexpr int kRounds = 100;
    for (int round = 0; round < kRounds && !HasFatalFailure(); ++round) {
        SCOPED_TRACE(round);
        StopOne(kWorks[static_cast<std::size_t>(round) % std::size(kWorks)]);
        ExpectAllWorks();
    }
}

}  // namespace
