#include "corvalen/system/WinEventDispatcher.h"

#include <gtest/gtest.h>

#include <atomic>

#include "corvalen/platform/MessageQueue.h"
#include "corvalen/system/Framework.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/LogCapture.h"

namespace {

using System::CWinEventDispatcher;
using System::Platform::MessageQueue;

std::atomic<int> s_Ticks{0};

// Has a timer on its worker.
class Ticking : public CWinEventDispatcher {
public:
    void Run() override {
        ++m_Runs;
        MessageQueue::Current().SetTimer(
            1, [](std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t) { ++s_Ticks; });
        CWinEventDispatcher::Run();
        ++m_Returns;
    }

    std::atomic<int> m_Runs{0};
    std::atomic<int> m_Returns{0};
};

class WinEventDispatcher : public testing::Test {
protected:
    WinEventDispatcher() { InitFramework(); }
    ~WinEventDispatcher() override { ExitFramework(); }

    static bool TicksAgain() {
        int const before = s_Ticks;
        return Support::WaitUntil([&] { return s_Ticks > before; });
    }

    Support::LogCapture m_Log;
};

TEST_F(WinEventDispatcher, DispatchesTheMessagesOfItsWorkerUntilAbort) {
    Ticking dispatcher;
    dispatcher.Init();
    EXPECT_TRUE(TicksAgain() && TicksAgain());
    dispatcher.Init();
    EXPECT_TRUE(TicksAgain());
    EXPECT_EQ(dispatcher.m_Runs, 1);
    dispatcher.Abort();
    EXPECT_TRUE(Support::WaitUntil([&] { return dispatcher.m_Returns == 1; }));
}

TEST_F(WinEventDispatcher, CanBeStartedAgainAfterAbort) {
    Ticking dispatcher;
    dispatcher.Init();
    ASSERT_TRUE(Support::WaitUntil([&] { return dispatcher.m_Runs == 1; }));
    dispatcher.Abort();
    dispatcher.Init();
    EXPECT_TRUE(Support::WaitUntil([&] { return dispatcher.m_Runs == 2; }));
    // On a machine that has stood still for 2 seconds the first worker was ended by force.
    int const returns = dispatcher.m_Returns;
    EXPECT_TRUE(returns == 1 || m_Log.Count("Forcing a thread to quit") == 1);
    dispatcher.Abort();
    EXPECT_TRUE(Support::WaitUntil([&] { return dispatcher.m_Returns == returns + 1; }));
}

TEST_F(WinEventDispatcher, IsStoppedByItsDestructorFromEveryState) {
    { CWinEventDispatcher const idle; }
    for (int aborted = 0; aborted < 2; ++aborted) {
        CWinEventDispatcher dispatcher;
        dispatcher.Init();
        if (aborted == 1) {
            dispatcher.Abort();
        }
    }
    // A worker that is left in the list would be reported.
    ExitFramework();
    EXPECT_EQ(m_Log.Asserted(0, "s_First == NULL && s_Last == NULL", "ComThread"), 0u);
    InitFramework();
}

}  // namespace
