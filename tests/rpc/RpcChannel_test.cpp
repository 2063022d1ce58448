#include "corvalen/rpc/RpcChannel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "corvalen/platform/MessageQueue.h"
#include "corvalen/rpc/MemoryPool.h"
#include "corvalen/rpc/SharedMemory.h"
#include "platform/Thread.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeClock.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Unique.h"

namespace {

using Support::ChildProcess;
using System::Platform::Message;
using System::Platform::MessageQueue;
using System::RPC::RpcChannel;

constexpr std::uint32_t kLimitMs = 60'000;

class TestChannel : public RpcChannel {
public:
    using RpcChannel::CloseRpcWindow;
    using RpcChannel::CreateRpcWindow;
    using RpcChannel::Lock;
    using RpcChannel::m_BlockCount;
    using RpcChannel::m_BlockSize;
    using RpcChannel::m_MemPool;
    using RpcChannel::m_Name;
    using RpcChannel::m_SharedMem;
    using RpcChannel::RpcChannel;
    using RpcChannel::TagHandle;
    using RpcChannel::Unlock;

    ~TestChannel() override {
        if (IsOpen()) {
            Close();
        }
    }

    std::uint32_t OnRequest(std::uint32_t sender, std::uint32_t handle) override {
        return onRequest ? onRequest(sender, handle) : 0;
    }
    void OnNotify(std::uint32_t, std::uint32_t handle) override { notified.push_back(handle); }

    std::uint32_t Filled(std::string const& bytes) {
        std::uint32_t const handle = NewHandle(static_cast<std::uint32_t>(bytes.size()));
        std::memcpy(HandleData(handle), bytes.data(), bytes.size());
        return handle;
    }
    std::string Content(std::uint32_t handle) {
        return HandleData(handle) != nullptr
                   ? std::string(static_cast<char*>(HandleData(handle)), HandleSize(handle))
                   : "none";
    }
    // Sends one byte and returns the error.
    int Order(std::uint32_t target, char order, std::uint32_t timeoutMs = kLimitMs) {
        std::uint32_t reply = 0;
        int const error = Request(target, Filled({order}), &reply, timeoutMs);
        DisposeHandle(reply);
        return error;
    }
    unsigned LockTag() const { return static_cast<std::uint16_t const*>(m_SharedMem->Data())[7]; }
    unsigned LiveHandles() {
        unsigned count = 0;
        m_MemPool->DoForEach([](auto*, auto, void* to) { ++*static_cast<unsigned*>(to); }, &count);
        return count;
    }

    std::function<std::uint32_t(std::uint32_t, std::uint32_t)> onRequest;
    std::vector<std::uint32_t> notified;
};

class LeftOpen : public RpcChannel {
public:
    using RpcChannel::RpcChannel;
    ~LeftOpen() override {
        delete m_MemPool;
        delete m_SharedMem;
    }

    std::uint32_t OnRequest(std::uint32_t, std::uint32_t) override {
        ADD_FAILURE() << "called when it was gone";
        return 0;
    }
    void OnNotify(std::uint32_t, std::uint32_t) override { ADD_FAILURE() << "called when it was gone"; }
};

void TakeOne() {
    Message message;
    while (!MessageQueue::Current().Peek(message)) {
        ASSERT_TRUE(MessageQueue::Current().Wait(kLimitMs));
    }
    MessageQueue::Current().Dispatch(message);
}

class RpcChannelTest : public testing::Test {
protected:
    Support::LogCapture m_Log;
    std::string m_Name = Support::UniqueName("rpc");
    std::u16string m_WideName{m_Name.begin(), m_Name.end()};
    TestChannel m_Channel{m_WideName.c_str()};

    // A server process and this process as its client.
    struct Server {
        ChildProcess process;
        std::uint32_t endpoint;
    };
    Server StartServer() {
        ChildProcess process("rpc_peer", {m_Name, "server"});
        auto const line = process.ReadLine();
        return {std::move(process), line ? static_cast<std::uint32_t>(std::stoul(*line)) : 0};
    }
};

TEST_F(RpcChannelTest, AnswersRequestsOfAnotherProcess) {
    Server server = StartServer();
    ASSERT_EQ(m_Channel.OpenClient(), 0);
    EXPECT_EQ(m_Channel.FindServer(u"server"), server.endpoint);
    EXPECT_TRUE(m_Channel.IsRefValid(server.endpoint));
    for (std::string const& text :
         {std::string("ab"), std::string(240, 'x') + "y", std::string(100'000, 'z') + "a"}) {
        std::uint32_t const handle = m_Channel.Filled(text);
        std::uint32_t reply = 0;
        ASSERT_EQ(m_Channel.Request(server.endpoint, handle, &reply, kLimitMs), 0);
        EXPECT_EQ(m_Channel.Content(reply), std::string(text.rbegin(), text.rend()));
        EXPECT_FALSE(m_Channel.IsValidHandle(handle));
        m_Channel.DisposeHandle(reply);
    }
    std::uint32_t reply = 7;
    EXPECT_EQ(m_Channel.Request(server.endpoint, 0, &reply, kLimitMs), 0);
    EXPECT_EQ(reply, 0U);
    EXPECT_EQ(m_Channel.LiveHandles(), 0U);
}

TEST_F(RpcChannelTest, ServesManyClientsAtOnceWithoutALossOrALeak) {
    Server server = StartServer();
    std::vector<ChildProcess> clients;
    for (int i = 0; i < 3; ++i) {
        clients.emplace_back("rpc_peer", std::vector<std::string>{m_Name, "client", "2000"});
        clients.emplace_back("rpc_peer", std::vector<std::string>{m_Name, "flood", "5000"});
    }
    for (ChildProcess& client : clients) {
        EXPECT_EQ(client.ReadLine(), "done");
        EXPECT_EQ(client.Wait(), 0);
    }
    ASSERT_EQ(m_Channel.OpenClient(), 0);
    // Requests overtake notifications that still wait, so the count is asked for until all are in.
    std::optional<std::string> counted;
    EXPECT_TRUE(Support::WaitUntil([&] {
        EXPECT_EQ(m_Channel.Order(server.endpoint, 'q'), 0);
        counted = server.process.ReadLine();
        return !counted || counted->starts_with("15000");
    }));
    EXPECT_EQ(counted, "15000 in order");
    EXPECT_TRUE(Support::WaitUntil([&] { return m_Channel.LiveHandles() == 0; }));
}

struct DeathCase {
    char const* name;
    char order;
    int error;
};
class DeathOfTheServer : public RpcChannelTest, public testing::WithParamInterface<DeathCase> {};

TEST_P(DeathOfTheServer, FreesItsCallersAndLeavesNoHandle) {
    Server server = StartServer();
    ASSERT_EQ(m_Channel.OpenClient(), 0);
    ASSERT_EQ(m_Channel.Order(server.endpoint, 'n'), 0);
    char const order = GetParam().order;
    std::thread killer;
    if (order == 'h') {
        killer = std::thread([&] {
            EXPECT_TRUE(server.process.Reports("handling"));
            server.process.Kill();
        });
    } else if (order == 's') {
        // Stopped, so that the request is still in its inbox when it dies.
        server.process.Signal(SIGSTOP);
        killer = std::thread([&] {
            Support::WaitUntil([&] { return m_Channel.LiveHandles() == 1; });
            server.process.Kill();
        });
    } else if (order == 'k') {
        server.process.Kill();
    }
    std::uint32_t reply = 5;
    std::uint32_t const handle = m_Channel.Filled({order});
    EXPECT_EQ(m_Channel.Request(server.endpoint, handle, &reply, kLimitMs), GetParam().error);
    if (killer.joinable()) {
        killer.join();
    }
    EXPECT_EQ(reply, 0U);
    EXPECT_FALSE(m_Channel.IsValidHandle(handle));
    EXPECT_EQ(m_Channel.Order(server.endpoint, 'n'), ESRCH);
    EXPECT_FALSE(m_Channel.IsRefValid(server.endpoint));
    EXPECT_EQ(m_Channel.FindServer(u"server"), 0U);
    EXPECT_EQ(m_Channel.Notify(server.endpoint, m_Channel.Filled("x")), ESRCH);
    EXPECT_EQ(m_Channel.LiveHandles(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Moments, DeathOfTheServer,
                         testing::Values(DeathCase{"BeforeTheRequest", 'k', ESRCH},
                                         DeathCase{"BeforeTheHandler", 's', ESRCH},
                                         DeathCase{"InTheHandler", 'd', ECONNRESET},
                                         DeathCase{"WhileTheHandlerWaits", 'h', ECONNRESET}),
                         [](auto const& row) { return row.param.name; });

TEST_F(RpcChannelTest, GivesUpAtTheTimeLimitAndGetsOnlyItsOwnAnswersLater) {
    Server server = StartServer();
    ASSERT_EQ(m_Channel.OpenClient(), 0);
    std::uint32_t handle = 0;
    std::uint32_t reply = 5;
    // On a loaded machine it may not be taken in time: then it is gone, and comes again.
    ASSERT_TRUE(Support::WaitUntil([&] {
        handle = m_Channel.Filled("h");
        EXPECT_EQ(m_Channel.Request(server.endpoint, handle, &reply, 50), ETIMEDOUT);
        return m_Channel.IsValidHandle(handle);
    }));
    EXPECT_EQ(reply, 0U);
    ASSERT_TRUE(server.process.Reports("handling"));
    // The handler still reads it: nobody may get its memory.
    EXPECT_TRUE(m_Channel.IsValidHandle(handle));
    EXPECT_EQ(m_Channel.Content(handle), "h");
    server.process.WriteLine("go on");
    EXPECT_EQ(m_Channel.Request(server.endpoint, m_Channel.Filled("xyz"), &reply, kLimitMs), 0);
    EXPECT_EQ(m_Channel.Content(reply), "zyx");
    m_Channel.DisposeHandle(reply);
    EXPECT_FALSE(m_Channel.IsValidHandle(handle));
    // The answer that came too late waits for the purge.
    EXPECT_EQ(m_Channel.LiveHandles(), 1U);
    m_Channel.Lock();
    EXPECT_EQ(m_Channel.PurgeHandles(0, m_Channel.LocalEndPoint()), 1U);
    m_Channel.Unlock();
}

TEST_F(RpcChannelTest, TakesBackARequestThatWasNotRead) {
    Server server = StartServer();
    ASSERT_EQ(m_Channel.OpenClient(), 0);
    server.process.Signal(SIGSTOP);
    std::uint32_t const handle = m_Channel.Filled("ab");
    std::uint32_t reply = 0;
    EXPECT_EQ(m_Channel.Request(server.endpoint, handle, &reply, 30), ETIMEDOUT);
    EXPECT_FALSE(m_Channel.IsValidHandle(handle));
    server.process.Signal(SIGCONT);
    EXPECT_EQ(m_Channel.Order(server.endpoint, 'n'), 0);
    EXPECT_EQ(m_Channel.LiveHandles(), 0U);
}

TEST_F(RpcChannelTest, WorksOnWhenAPeerWasKilledInsideTheLock) {
    Server server = StartServer();
    ASSERT_EQ(m_Channel.OpenClient(), 0);
    ChildProcess holder("rpc_peer", {m_Name, "hold"});
    ASSERT_TRUE(holder.Reports("locked"));
    holder.Kill();
    EXPECT_EQ(m_Channel.Order(server.endpoint, 'x'), 0);
    EXPECT_EQ(m_Log.Asserted(1, "m_MemPool->m_Header->filler == 0", "RpcChannel") +
                  m_Log.Asserted(0, "m_MemPool->m_Header->filler == 0", "RpcChannel"),
              1U);
    EXPECT_EQ(m_Channel.LiveHandles(), 0U);
}

TEST_F(RpcChannelTest, WorksOnWhenAThreadWasEndedInsideTheLock) {
    ASSERT_EQ(m_Channel.OpenServer(u"s"), 0);
    static std::atomic<bool> s_IsInside;
    s_IsInside = false;
    std::unique_ptr<System::Platform::Thread> const holder(System::Platform::Thread::CreateSuspended(
        [](void* channel) -> unsigned long {
            static_cast<TestChannel*>(channel)->Lock();
            for (;;) {
                s_IsInside = true;
            }
        },
        &m_Channel));
    ASSERT_NE(holder, nullptr);
    holder->Resume();
    ASSERT_TRUE(Support::WaitUntil([] { return s_IsInside.load(); }));
    ASSERT_TRUE(holder->ForceEnd());
    for (int round = 0; round < 2; ++round) {
        m_Channel.Lock();
        EXPECT_EQ(m_Channel.m_SharedMem->LockCount(), 1U);
        EXPECT_NE(m_Channel.LockTag(), 0U);
        m_Channel.Unlock();
        EXPECT_EQ(m_Channel.LockTag(), 0U);
    }
    EXPECT_EQ(m_Log.Asserted(1, "m_MemPool->m_Header->filler == 0", "RpcChannel"), 1U);
}

TEST_F(RpcChannelTest, OfAHandlerThatThrowsFreesTheHandleAndTheSender) {
    ASSERT_EQ(m_Channel.OpenServer(u"s"), 0);
    m_Channel.onRequest = [](auto, auto) -> std::uint32_t {
        throw std::bad_alloc();
    };
    int error = 0;
    std::uint32_t reply = 5;
    std::thread asker([&] {
        error = m_Channel.Request(m_Channel.LocalEndPoint(), m_Channel.Filled("x"), &reply, kLimitMs);
    });
    ASSERT_TRUE(MessageQueue::Current().Wait(kLimitMs));
    Message message;
    EXPECT_THROW(MessageQueue::Current().Peek(message), std::bad_alloc);
    asker.join();
    EXPECT_EQ(error, ESRCH);
    EXPECT_EQ(reply, 0U);
    EXPECT_EQ(m_Channel.LiveHandles(), 0U);
}

TEST_F(RpcChannelTest, MayBeClosedByTheDestructorOfAStaticObject) {
    ChildProcess closer("late_closer", {m_Name});
    EXPECT_TRUE(closer.Reports("closed"));
    EXPECT_EQ(closer.Wait(), 0);
}

TEST_F(RpcChannelTest, OfAServerThatOpenedAgainIsFoundUnderItsNewEndpoint) {
    Server first = StartServer();
    ASSERT_EQ(m_Channel.OpenClient(), 0);
    std::uint32_t const old = m_Channel.Filled("old");
    first.process.Kill();
    Server second = StartServer();
    EXPECT_NE(second.endpoint, first.endpoint);
    EXPECT_EQ(m_Channel.FindServer(u"server"), second.endpoint);
    EXPECT_FALSE(m_Channel.IsValidHandle(old));
    EXPECT_EQ(m_Channel.Order(second.endpoint, 'x'), 0);
}

TEST_F(RpcChannelTest, HandlersMayAskTheirSenderBack) {
    // The server is a thread of this process here; its handler asks the client while the client waits for it.
    std::u16string const clientName = m_WideName;
    ASSERT_EQ(m_Channel.OpenServer(u"self"), 0);
    std::uint32_t reply = 0;
    m_Channel.onRequest = [&](std::uint32_t sender, std::uint32_t handle) -> std::uint32_t {
        EXPECT_EQ(sender, m_Channel.LocalEndPoint());
        EXPECT_EQ(m_Channel.Content(handle), "in");
        std::uint32_t const answer = m_Channel.Filled("out");
        auto const* const header = static_cast<std::uint32_t const*>(m_Channel.m_MemPool->HandleData(answer));
        EXPECT_EQ(header[0], 0U);
        EXPECT_EQ(header[1], 0U);
        return answer;
    };
    ASSERT_EQ(m_Channel.Request(m_Channel.LocalEndPoint(), m_Channel.Filled("in"), &reply, kLimitMs), 0);
    auto const* const header = static_cast<std::uint32_t const*>(m_Channel.m_MemPool->HandleData(reply));
    EXPECT_NE(header[0], 0U);
    EXPECT_EQ(header[1], m_Channel.LocalEndPoint());
    m_Channel.DisposeHandle(reply);
    EXPECT_EQ(m_Channel.Notify(m_Channel.LocalEndPoint(), m_Channel.Filled("n")), 0);
    TakeOne();
    EXPECT_EQ(m_Channel.notified.size(), 1U);
    EXPECT_EQ(m_Channel.LiveHandles(), 0U);
}

TEST_F(RpcChannelTest, ReportsWhatIsDoneInTheWrongState) {
    std::uint32_t reply = 5;
    EXPECT_EQ(m_Channel.Request(1, 0, &reply, 0), -1);
    EXPECT_EQ(reply, 5U);
    EXPECT_EQ(m_Channel.Notify(1, 0), -1);
    m_Channel.Close();
    EXPECT_EQ(m_Log.Asserted(1, "m_Ref != NULL", "RpcChannel"), 3U);
    EXPECT_EQ(m_Channel.NewHandle(1), 0U);
    EXPECT_EQ(m_Channel.HandleSize(1), 0U);
    EXPECT_EQ(m_Channel.HandleData(1), nullptr);
    EXPECT_FALSE(m_Channel.IsValidHandle(1));
    m_Channel.Lock();
    EXPECT_EQ(m_Channel.PurgeHandles(0, 1), 0U);
    m_Channel.Unlock();
    EXPECT_EQ(m_Log.Asserted(1, "m_MemPool != NULL && m_SharedMem != NULL", "RpcChannel"), 7U);
    EXPECT_EQ(m_Channel.OpenClient(), EBADMSG);
    ASSERT_EQ(m_Channel.OpenServer(u"s"), 0);
    EXPECT_EQ(m_Channel.OpenServer(u"s"), 17);
    EXPECT_EQ(m_Log.Asserted(1, "m_Ref == NULL", "RpcChannel"), 1U);
    m_Channel.Close();
    EXPECT_EQ(m_Channel.OpenServer(u"s"), EADDRINUSE);
    EXPECT_EQ(m_Log.Count("Can not Register Class"), 1U);
}

TEST_F(RpcChannelTest, OfAWindowAloneSendsAndTakesMessagesWithoutAHandle) {
    ASSERT_EQ(m_Channel.CreateRpcWindow(u"alone"), 0);
    std::uint32_t const endpoint = m_Channel.LocalEndPoint();
    EXPECT_EQ(m_Channel.FindServer(u"alone"), endpoint);
    std::uint32_t reply = 5;
    EXPECT_EQ(m_Channel.Request(endpoint, 0, &reply, kLimitMs), 0);
    EXPECT_EQ(reply, 0U);
    ASSERT_EQ(m_Channel.Notify(endpoint, 0), 0);
    TakeOne();
    EXPECT_EQ(m_Channel.notified, std::vector<std::uint32_t>{0});
    m_Channel.CloseRpcWindow();
    EXPECT_FALSE(m_Channel.IsOpen());
    EXPECT_FALSE(m_Channel.IsRefValid(endpoint));
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(RpcChannelTest, ThatIsDestroyedOpenLeavesAnEndpointThatCallsNobody) {
    std::string const name = Support::UniqueName("left");
    std::optional<LeftOpen> left(std::in_place, std::u16string(name.begin(), name.end()).c_str());
    ASSERT_EQ(left->OpenServer(u"left"), 0);
    std::uint32_t const endpoint = left->LocalEndPoint();
    left.reset();
    EXPECT_EQ(m_Log.Asserted(1, "m_Ref == NULL", "RpcChannel"), 1U);
    ASSERT_EQ(m_Channel.OpenServer(u"s"), 0);
    std::uint32_t reply = 5;
    EXPECT_EQ(m_Channel.Request(endpoint, 0, &reply, kLimitMs), 0);
    EXPECT_EQ(reply, 0U);
    EXPECT_EQ(m_Channel.Notify(endpoint, 0), 0);
    TakeOne();
}

TEST_F(RpcChannelTest, KeepsOutClientsWithAHeapOfAnotherShape) {
    Server server = StartServer();
    std::uint32_t const usualSize = m_Channel.m_BlockSize;
    std::uint32_t const usualCount = m_Channel.m_BlockCount;
    m_Channel.m_BlockSize = usualSize * 2;
    EXPECT_EQ(m_Channel.OpenClient(), EINVAL);
    m_Channel.m_BlockCount = usualCount / 2;
    EXPECT_EQ(m_Channel.OpenClient(), EBADMSG);
    m_Channel.m_BlockSize = usualSize;
    m_Channel.m_BlockCount = usualCount;
    ASSERT_EQ(m_Channel.OpenClient(), 0);
    EXPECT_EQ(m_Channel.Order(server.endpoint, 'x'), 0);
}

TEST_F(RpcChannelTest, HasRoomForMoreInAHeapOfAnotherShape) {
    m_Channel.m_BlockSize = 4096;
    m_Channel.m_BlockCount = 1024;
    ASSERT_EQ(m_Channel.OpenServer(u"s"), 0);
    constexpr std::uint32_t kOverhead = 16;
    std::uint32_t const all = m_Channel.m_BlockSize * m_Channel.m_BlockCount - kOverhead;
    EXPECT_EQ(m_Channel.NewHandle(all + 1), 0U);
    std::uint32_t const handle = m_Channel.NewHandle(all);
    EXPECT_EQ(m_Channel.HandleSize(handle), all);
    m_Channel.DisposeHandle(handle);
}

TEST_F(RpcChannelTest, GivesHandlesWithRoomForTheHeader) {
    ASSERT_EQ(m_Channel.OpenServer(u"s"), 0);
    std::uint32_t const empty = m_Channel.NewHandle(0);
    EXPECT_TRUE(m_Channel.IsValidHandle(empty));
    EXPECT_EQ(m_Channel.HandleSize(empty), 0U);
    EXPECT_EQ(m_Channel.m_MemPool->HandleSize(empty), 8U);
    EXPECT_EQ(m_Channel.HandleData(empty), static_cast<char*>(m_Channel.m_MemPool->HandleData(empty)) + 8);
    for (std::uint32_t const size :
         {UINT32_MAX, UINT32_MAX - 7, UINT32_MAX - 8, UINT32_MAX - 16, 4096U * 256}) {
        EXPECT_EQ(m_Channel.NewHandle(size), 0U) << size;
    }
    EXPECT_EQ(m_Channel.HandleSize(empty + 1), 0U);
    EXPECT_EQ(m_Channel.HandleData(empty + 1), nullptr);
    m_Channel.DisposeHandle(empty);
    EXPECT_EQ(m_Channel.LiveHandles(), 0U);
}

TEST_F(RpcChannelTest, PurgesByAgeAndByEndpointInBatches) {
    Support::FakeClock clock;
    ASSERT_EQ(m_Channel.OpenServer(u"s"), 0);
    std::uint32_t const now = static_cast<std::uint32_t>(Support::FakeClock::s_Wall);
    auto const stamped = [&](std::uint32_t time, std::uint32_t endpoint) {
        std::uint32_t const handle = m_Channel.Filled("0123456789");
        Support::FakeClock::s_Wall = time;
        m_Channel.TagHandle(handle, endpoint);
        Support::FakeClock::s_Wall = now;
        return handle;
    };
    EXPECT_EQ(m_Channel.PurgeHandles(0, 0), 0U);
    std::uint32_t const young = stamped(now - 3, 8);
    std::uint32_t const old = stamped(now - 4, 9);
    m_Log.Clear();
    EXPECT_EQ(m_Channel.PurgeHandles(2500, 9), 1U);
    EXPECT_TRUE(m_Channel.IsValidHandle(young));
    EXPECT_FALSE(m_Channel.IsValidHandle(old));
    EXPECT_EQ(m_Log.Count("of size 18 is purged because of timeout"), 1U);
    EXPECT_EQ(m_Log.Count("09000000"
                          "30313233343536373839>"),
              1U);
    m_Channel.DisposeHandle(young);
    for (unsigned const count : {300U, 256U}) {
        for (unsigned i = 0; i < count; ++i) {
            stamped(now, 9);
        }
        m_Log.Clear();
        EXPECT_EQ(m_Channel.PurgeHandles(0, 9), count);
        EXPECT_EQ(m_Log.Lines().size(), 2 * count);
        EXPECT_EQ(m_Log.Count("because of dead endpoint"), count);
    }
    EXPECT_EQ(m_Channel.LiveHandles(), 0U);
}

}  // namespace
