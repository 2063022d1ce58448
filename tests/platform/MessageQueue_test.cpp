#include "corvalen/platform/MessageQueue.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <new>
#include <thread>
#include <vector>

#include "platform/Window.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Unique.h"

namespace {

using System::Platform::CreateMessageWindow;
using System::Platform::DestroyMessageWindow;
using System::Platform::FindMessageWindow;
using System::Platform::IsWindowOfClass;
using System::Platform::Message;
using System::Platform::MessageQueue;
using System::Platform::PostToWindow;
using System::Platform::RegisterWindowClass;
using System::Platform::SendOutcome;
using System::Platform::SendToWindow;
using System::Platform::UserDataOf;

constexpr int kLimitMs = 60'000;

bool IsReadable(int descriptor) {
    pollfd look{descriptor, POLLIN, 0};
    return ::poll(&look, 1, 0) == 1;
}

long Keep(std::uint32_t window, unsigned, unsigned wParam, long lParam) {
    static_cast<std::vector<unsigned>*>(UserDataOf(window))->push_back(wParam);
    return static_cast<long>(wParam) + lParam;
}

// A window of the test's own class that keeps the wParam of each message and returns wParam + lParam.
struct KeepingWindow {
    explicit KeepingWindow(std::u16string const& title = u"") : className(Support::UniqueWideName()) {
        EXPECT_EQ(RegisterWindowClass(className, Keep), 0);
        EXPECT_EQ(CreateMessageWindow(className, title, &kept, id), 0);
    }
    ~KeepingWindow() { DestroyMessageWindow(id); }

    std::u16string className;
    std::vector<unsigned> kept;
    std::uint32_t id = 0;
};

// A thread with such a window that serves until it is told to end by a message of 99.
class Server {
public:
    Server() {
        m_Thread = std::thread([this] {
            KeepingWindow window(u"server");
            m_Id.set_value(window.id);
            MessageQueue& queue = MessageQueue::Current();
            Message message;
            while (queue.Wait(kLimitMs)) {
                while (queue.Peek(message)) {
                    if (message.message == kEnd) {
                        kept = window.kept;
                        return;
                    }
                    queue.Dispatch(message);
                }
            }
        });
        id = m_Id.get_future().get();
    }
    ~Server() { End(); }
    void End() {
        if (m_Thread.joinable()) {
            PostToWindow(id, kEnd, 0, 0);
            m_Thread.join();
        }
    }

    static constexpr unsigned kEnd = 99;
    std::uint32_t id = 0;
    std::vector<unsigned> kept;

private:
    std::promise<std::uint32_t> m_Id;
    std::thread m_Thread;
};

TEST(MessageQueue, DeliversPostedMessagesOnceInTheOrderOfTheirSender) {
    constexpr unsigned kEach = 20'000;
    KeepingWindow window;
    std::vector<std::thread> senders;
    for (unsigned sender = 0; sender < 3; ++sender) {
        senders.emplace_back([&window, sender] {
            for (unsigned i = 0; i < kEach; ++i) {
                while (PostToWindow(window.id, 1, sender * kEach + i, 0) == EAGAIN) {
                    std::this_thread::yield();
                }
            }
        });
    }
    MessageQueue& queue = MessageQueue::Current();
    Message message;
    while (window.kept.size() < 3 * kEach && queue.Wait(kLimitMs)) {
        while (queue.Peek(message)) {
            queue.Dispatch(message);
        }
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    ASSERT_EQ(window.kept.size(), 3 * kEach);
    unsigned next[3] = {};
    for (unsigned const value : window.kept) {
        ASSERT_EQ(value % kEach, next[value / kEach]++);
    }
}

TEST(MessageQueue, RefusesTheMessageThatDoesNotFitAndKeepsTheOthers) {
    KeepingWindow window;
    unsigned accepted = 0;
    while (PostToWindow(window.id, 1, accepted, 0) == 0) {
        ++accepted;
    }
    EXPECT_EQ(accepted, 10'000U);
    EXPECT_EQ(PostToWindow(window.id, 1, 0, 0), EAGAIN);
    Message message;
    ASSERT_TRUE(MessageQueue::Current().Peek(message));
    EXPECT_EQ(message.wParam, 0U);
    EXPECT_EQ(PostToWindow(window.id, 1, accepted, 0), 0);
    for (unsigned i = 1; i <= accepted; ++i) {
        ASSERT_TRUE(MessageQueue::Current().Peek(message));
        ASSERT_EQ(message.wParam, i);
    }
    EXPECT_FALSE(MessageQueue::Current().Peek(message));
}

TEST(MessageQueue, AnswersARequestOfAnotherThreadWhileItWaits) {
    Server server;
    for (unsigned i = 0; i < 1000; ++i) {
        SendOutcome const outcome = SendToWindow(server.id, 1, i, 5, kLimitMs);
        ASSERT_EQ(outcome.error, 0);
        ASSERT_EQ(outcome.result, i + 5);
    }
}

TEST(MessageQueue, CallsAWindowOfItsOwnThreadDirectly) {
    KeepingWindow window;
    EXPECT_EQ(SendToWindow(window.id, 1, 7, 3, 0).result, 10U);
    EXPECT_EQ(window.kept, std::vector<unsigned>{7});
}

TEST(MessageQueue, WithdrawsARequestThatNobodyTookInTime) {
    KeepingWindow window;
    SendOutcome outcome;
    std::thread([&] { outcome = SendToWindow(window.id, 1, 7, 0, 20); }).join();
    EXPECT_EQ(outcome.error, ETIMEDOUT);
    EXPECT_FALSE(outcome.isStillHandled);
    Message message;
    EXPECT_FALSE(MessageQueue::Current().Wait(0));
    EXPECT_FALSE(MessageQueue::Current().Peek(message));
    EXPECT_TRUE(window.kept.empty());
}

struct SlowWindow {
    std::promise<void> entered;
    std::promise<void> mayLeave;
    static long Handle(std::uint32_t window, unsigned, unsigned wParam, long) {
        auto& self = *static_cast<SlowWindow*>(UserDataOf(window));
        if (wParam == 1) {
            self.entered.set_value();
            self.mayLeave.get_future().wait();
        }
        return static_cast<long>(wParam);
    }
};

TEST(MessageQueue, RefusesAResultThatComesAfterItsRequestGaveUp) {
    SlowWindow slow;
    std::uint32_t id = 0;
    std::u16string const className = Support::UniqueWideName();
    ASSERT_EQ(RegisterWindowClass(className, SlowWindow::Handle), 0);
    ASSERT_EQ(CreateMessageWindow(className, u"", &slow, id), 0);
    SendOutcome late;
    SendOutcome second;
    std::thread sender([&] {
        // On a loaded machine it may not be taken in time, and so comes again.
        EXPECT_TRUE(Support::WaitUntil([&] {
            late = SendToWindow(id, 1, 1, 0, 50);
            return late.isStillHandled;
        }));
        slow.mayLeave.set_value();
        second = SendToWindow(id, 1, 2, 0, kLimitMs);
    });
    Message message;
    bool isDone = false;
    std::thread waiter([&] {
        sender.join();
        isDone = true;
        PostToWindow(id, 1, 0, 0);
    });
    while (!MessageQueue::Current().Peek(message)) {
        ASSERT_TRUE(MessageQueue::Current().Wait(kLimitMs));
    }
    waiter.join();
    EXPECT_TRUE(isDone);
    EXPECT_EQ(late.error, ETIMEDOUT);
    EXPECT_TRUE(late.isStillHandled);
    EXPECT_EQ(second.error, 0);
    EXPECT_EQ(second.result, 2U);
    DestroyMessageWindow(id);
}

TEST(MessageQueue, ServesRequestsWhileItsOwnWaits) {
    // Two threads that ask each other at the same time, with posted messages that have to wait.
    std::promise<std::uint32_t> ids[2];
    std::shared_future<std::uint32_t> others[2] = {ids[0].get_future().share(), ids[1].get_future().share()};
    std::atomic<int> answered{0};
    std::thread threads[2];
    for (int self = 0; self < 2; ++self) {
        threads[self] = std::thread([&, self] {
            KeepingWindow window;
            ids[self].set_value(window.id);
            std::uint32_t const other = others[1 - self].get();
            for (unsigned i = 0; i < 500; ++i) {
                SendOutcome const outcome = SendToWindow(other, 1, i, 0, kLimitMs);
                EXPECT_EQ(outcome.error, 0);
                EXPECT_EQ(outcome.result, i);
            }
            ++answered;
            Message message;
            while (answered < 2) {
                MessageQueue::Current().Wait(1);
                MessageQueue::Current().Peek(message);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(answered, 2);
}

TEST(MessageQueue, KeepsTheLimitOfItsRequestWhileOthersFloodItWithTheirs) {
    KeepingWindow deaf;
    std::promise<std::uint32_t> asker;
    std::atomic<bool> isBack{false};
    SendOutcome outcome;
    std::thread thread([&] {
        std::u16string const className = Support::UniqueWideName();
        std::uint32_t busy = 0;
        // It takes its time, so that the next one is there already when it comes back.
        RegisterWindowClass(className, [](auto, auto, auto, auto) {
            Support::SleepOneLook();
            return 0L;
        });
        EXPECT_EQ(CreateMessageWindow(className, u"", nullptr, busy), 0);
        asker.set_value(busy);
        outcome = SendToWindow(deaf.id, 1, 1, 0, 50);
        isBack = true;
    });
    std::uint32_t const target = asker.get_future().get();
    std::vector<std::thread> flood;
    for (int i = 0; i < 8; ++i) {
        flood.emplace_back([&] {
            while (SendToWindow(target, 1, 1, 0, kLimitMs).error == 0) {
            }
        });
    }
    EXPECT_TRUE(Support::WaitUntil([&] { return isBack.load(); }));
    thread.join();
    for (std::thread& sender : flood) {
        sender.join();
    }
    EXPECT_EQ(outcome.error, ETIMEDOUT);
}

TEST(MessageQueue, RefusesARequestWhoseProcedureThrows) {
    std::u16string const className = Support::UniqueWideName();
    std::uint32_t id = 0;
    ASSERT_EQ(RegisterWindowClass(className, [](auto, auto, auto, auto) -> long { throw std::bad_alloc(); }),
              0);
    ASSERT_EQ(CreateMessageWindow(className, u"", nullptr, id), 0);
    SendOutcome outcome;
    std::thread sender([&] { outcome = SendToWindow(id, 1, 1, 0, kLimitMs); });
    ASSERT_TRUE(MessageQueue::Current().Wait(kLimitMs));
    Message message;
    EXPECT_THROW(MessageQueue::Current().Peek(message), std::bad_alloc);
    sender.join();
    EXPECT_EQ(outcome.error, ESRCH);
    DestroyMessageWindow(id);
}

TEST(MessageQueue, FindsLivingWindowsByClassAndTitleOnly) {
    KeepingWindow window(u"title");
    EXPECT_EQ(FindMessageWindow(window.className, u"title"), window.id);
    EXPECT_EQ(FindMessageWindow(window.className, u"titl"), 0U);
    EXPECT_EQ(FindMessageWindow(window.className + u"x", u"title"), 0U);
    EXPECT_TRUE(IsWindowOfClass(window.id, window.className));
    EXPECT_FALSE(IsWindowOfClass(window.id + 1, window.className));
    EXPECT_EQ(RegisterWindowClass(window.className, Keep), EADDRINUSE);
    DestroyMessageWindow(window.id);
    EXPECT_EQ(FindMessageWindow(window.className, u"title"), 0U);
    EXPECT_EQ(PostToWindow(window.id, 1, 0, 0), ESRCH);
    EXPECT_EQ(SendToWindow(window.id, 1, 0, 0, kLimitMs).error, ESRCH);
}

TEST(MessageQueue, OfAThreadThatEndedIsGoneAtOnce) {
    Server server;
    std::uint32_t const id = server.id;
    ASSERT_EQ(SendToWindow(id, 1, 1, 0, kLimitMs).error, 0);
    server.End();
    EXPECT_EQ(PostToWindow(id, 1, 0, 0), ESRCH);
    EXPECT_EQ(SendToWindow(id, 1, 0, 0, kLimitMs).error, ESRCH);
}

TEST(MessageQueue, HasADescriptorThatIsReadableExactlyWhileMessagesWait) {
    KeepingWindow window;
    MessageQueue& queue = MessageQueue::Current();
    int const descriptor = queue.Descriptor();
    ASSERT_GE(descriptor, 0);
    Message message;
    EXPECT_FALSE(queue.Peek(message));
    EXPECT_FALSE(IsReadable(descriptor));
    for (int round = 0; round < 3; ++round) {
        std::thread([&] {
            PostToWindow(window.id, 1, 1, 0);
            PostToWindow(window.id, 1, 2, 0);
        }).join();
        EXPECT_TRUE(IsReadable(descriptor));
        ASSERT_TRUE(queue.Peek(message));
        EXPECT_TRUE(IsReadable(descriptor));
        ASSERT_TRUE(queue.Peek(message));
        EXPECT_FALSE(IsReadable(descriptor));
        EXPECT_FALSE(queue.Peek(message));
    }
}

TEST(MessageQueue, RingsForTheNextMessageWhenThereWasNoDescriptorToRingForOne) {
    KeepingWindow window;
    MessageQueue& queue = MessageQueue::Current();
    Message message;
    ASSERT_EQ(PostToWindow(window.id, 1, 1, 0), 0);
    ASSERT_TRUE(queue.Peek(message));
    int const descriptor = queue.Descriptor();
    ASSERT_GE(descriptor, 0);
    rlimit usual{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
    rlimit const none{0, usual.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    int const error = PostToWindow(window.id, 1, 2, 0);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(PostToWindow(window.id, 1, 3, 0), 0);
    EXPECT_TRUE(IsReadable(descriptor));
    for (unsigned const value : {2U, 3U}) {
        ASSERT_TRUE(queue.Peek(message));
        EXPECT_EQ(message.wParam, value);
    }
    EXPECT_FALSE(IsReadable(descriptor));
}

int s_Ticks = 0;

TEST(MessageQueue, TicksItsTimersWhenNoMessageWaits) {
    s_Ticks = 0;
    KeepingWindow window;
    MessageQueue& queue = MessageQueue::Current();
    int const descriptor = queue.Descriptor();
    std::uint32_t const timer = queue.SetTimer(10, [](auto, auto, auto, auto) { ++s_Ticks; });
    ASSERT_NE(timer, 0U);
    ASSERT_TRUE(queue.Wait(kLimitMs));
    EXPECT_TRUE(Support::WaitUntil([&] { return IsReadable(descriptor); }));
    PostToWindow(window.id, 1, 1, 0);
    Message message;
    ASSERT_TRUE(queue.Peek(message));
    EXPECT_EQ(message.window, window.id);
    ASSERT_TRUE(queue.Peek(message));
    EXPECT_EQ(message.window, 0U);
    queue.Dispatch(message);
    EXPECT_EQ(s_Ticks, 1);
    EXPECT_TRUE(queue.KillTimer(timer));
    EXPECT_FALSE(queue.KillTimer(timer));
    EXPECT_FALSE(queue.Wait(30));
    EXPECT_FALSE(IsReadable(descriptor));
}

}  // namespace
