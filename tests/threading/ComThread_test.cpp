#include "corvalen/threading/ComThread.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "corvalen/threading/WaitHandle.h"
#include "platform/ThreadId.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Unique.h"

namespace {

using namespace System::Threading;
using System::Platform::CurrentThreadId;

constexpr char kWarning[] = "Forcing a thread to quit";
constexpr unsigned long kNobody = 4194305;  // above the highest id that the kernel gives

// Runs until it is asked to end. The 2 seconds that it has for that begin when it is about to return, so that
// no pause of the machine is taken for a refusal.
class Worker : public IRunnable {
public:
    void Run() override {
        m_Name = CComThread::ThreadName(CurrentThreadId());
        m_Id = CurrentThreadId();
        ++m_Runs;
        m_End.WaitOne();
        m_IsLeaving.Set();
    }
    void Abort() override {
        m_End.Set();
        m_IsLeaving.WaitOne();
    }

    CAutoResetEvent m_End;
    CAutoResetEvent m_IsLeaving;
    std::atomic<std::uint32_t> m_Id{0};
    std::atomic<int> m_Runs{0};
    std::string m_Name;
};

class Stubborn : public Worker {
public:
    void Abort() override {}
};

class ComThread : public testing::Test {
protected:
    ComThread() { CComThread::Init(); }
    ~ComThread() override { CComThread::Terminate(); }

    static bool WaitForRun(Worker const& worker, int runs = 1) {
        return Support::WaitUntil([&] { return worker.m_Runs == runs; });
    }

    Support::LogCapture m_Log;
};

TEST_F(ComThread, DoesNothingBeforeItsStart) {
    Worker worker;
    CComThread thread(&worker);
    EXPECT_STREQ(thread.GetName(), "?");
    EXPECT_FALSE(thread.IsRunning() || thread.IsValidThread() || thread.Abort());
    thread.SetPriorityHigh();
    EXPECT_EQ(m_Log.Lines().size(), 0u);
}

TEST_F(ComThread, IsKnownByNameWhileItsObjectLives) {
    std::string const longName(100, 'n');
    std::uint32_t id = 0;
    {
        Worker worker;
        CComThread other(&worker);
        CComThread thread(&worker);
        CComThread another(&worker);
        thread.SetName("worker");
        ASSERT_TRUE(thread.Start());
        ASSERT_TRUE(WaitForRun(worker));
        id = worker.m_Id;
        EXPECT_EQ(Support::ReadFile("/proc/self/task/" + std::to_string(id) + "/comm"), "worker\n");
        worker.m_End.Set();
        EXPECT_TRUE(Support::WaitUntil([&] { return !thread.IsRunning(); }));
        EXPECT_EQ(worker.m_Name, "worker");
        EXPECT_STREQ(CComThread::ThreadName(id), "worker");
        thread.SetName(longName.c_str());
        EXPECT_EQ(CComThread::ThreadName(id), longName);
        EXPECT_STREQ(CComThread::ThreadName(CurrentThreadId()), "Main");
    }
    EXPECT_STREQ(CComThread::ThreadName(id), "Unknown");
    EXPECT_STREQ(CComThread::ThreadName(kNobody), "Unknown");
}

TEST_F(ComThread, StartsOnceUntilItIsStopped) {
    Worker worker;
    CComThread thread(&worker);
    ASSERT_TRUE(thread.Start());
    EXPECT_FALSE(thread.Start());
    EXPECT_TRUE(thread.IsRunning() && thread.IsValidThread());
    ASSERT_TRUE(WaitForRun(worker));
    EXPECT_TRUE(thread.Abort());
    EXPECT_FALSE(thread.IsValidThread() || thread.IsRunning() || thread.Abort());
    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(WaitForRun(worker, 2));
    EXPECT_TRUE(thread.Abort());
}

TEST_F(ComThread, IsNotForcedIfItsWorkReturnsOnAbort) {
    // A machine that stands still for 2 seconds at the wrong moment would force one, hardly all.
    constexpr unsigned kThreads = 5;
    for (unsigned i = 0; i < kThreads; ++i) {
        Worker worker;
        CComThread thread(&worker);
        ASSERT_TRUE(thread.Start());
        EXPECT_TRUE(thread.Abort());
    }
    EXPECT_LT(m_Log.Count(kWarning), kThreads);
}

TEST_F(ComThread, StaysEndedOnceItsWorkHasReturned) {
    Worker worker;
    CComThread thread(&worker);
    worker.m_End.Set();
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(Support::WaitUntil([&] { return !thread.IsRunning(); }));
    EXPECT_FALSE(thread.Abort() || thread.Start());
    EXPECT_TRUE(thread.IsValidThread());
}

TEST_F(ComThread, IsEndedByForceIfItIgnoresAbort) {
    Stubborn stubborn;
    CComThread thread(&stubborn);
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(WaitForRun(stubborn));
    EXPECT_TRUE(thread.Abort());
    EXPECT_FALSE(thread.IsValidThread());
    EXPECT_EQ(m_Log.Count(kWarning), 1u);
    EXPECT_EQ(m_Log.Lines().at(0).severity, 1u);
    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(WaitForRun(stubborn, 2));
    stubborn.m_End.Set();
}

TEST_F(ComThread, IsStoppedByItsDestructor) {
    Worker worker;
    auto thread = std::make_unique<CComThread>(&worker);
    ASSERT_TRUE(thread->Start());
    ASSERT_TRUE(WaitForRun(worker));
    std::string const task = "/proc/self/task/" + std::to_string(worker.m_Id) + "/comm";
    thread.reset();
    // The system takes the task off its list a moment after the thread has been joined.
    EXPECT_TRUE(Support::WaitUntil([&] { return Support::ReadFile(task).empty(); }));
}

TEST_F(ComThread, MapsItsPrioritiesToNiceValues) {
    Worker worker;
    CComThread thread(&worker);
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(WaitForRun(worker));
    int before = ::getpriority(PRIO_PROCESS, worker.m_Id);
    EXPECT_EQ(before, ::getpriority(PRIO_PROCESS, CurrentThreadId()));
    auto const expectNice = [&](int wanted) {
        int const nice = ::getpriority(PRIO_PROCESS, worker.m_Id);
        // Not everybody may go down with it, which the machine's user may have made higher than this.
        EXPECT_TRUE(nice == wanted || (wanted < before && nice == before)) << nice;
        before = nice;
    };
    thread.SetPriorityNormal();
    expectNice(5);
    thread.SetPriorityLow();
    expectNice(10);
    thread.SetPriorityHigh();
    expectNice(-5);
}

TEST_F(ComThread, ReportsAnObjectThatOutlivesTheLibrary) {
    Worker worker;
    auto thread = std::make_unique<CComThread>(&worker);
    CComThread::Terminate();
    EXPECT_EQ(m_Log.Asserted(0, "s_First == NULL && s_Last == NULL", "ComThread"), 1u);
    thread.reset();
    CComThread::Init();
    EXPECT_EQ(m_Log.Lines().size(), 1u);
}

void AskForName(void* asked, unsigned, std::uint64_t, char const*, unsigned id, long, char const*,
                char const*) {
    CComThread::ThreadName(id)[0] == 'U' ? ++*static_cast<int*>(asked) : 0;
}

TEST(ComThreadBeforeTheStart, IsReportedAndWorksOutsideTheList) {
    Support::LogCapture log;
    int asked = 0;
    System::Diagnostics::FLog::RegisterProc(AskForName, &asked);
    Worker worker;
    {
        CComThread thread(&worker);
        ASSERT_TRUE(thread.Start());
        EXPECT_TRUE(Support::WaitUntil([&] { return worker.m_Runs == 1; }));
        EXPECT_TRUE(thread.Abort());
    }
    EXPECT_EQ(worker.m_Name, "Unknown");
    EXPECT_GE(log.Asserted(0, "s_InitCount > 0", "ComThread"), 2u);
    System::Diagnostics::FLog::UnregisterProc(AskForName, &asked);
}

}  // namespace
