// A peer dies at each marked point of its way through the library; then we look at what the survivors see.

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <string>

#include "corvalen/rpc/MemoryPool.h"
#include "corvalen/rpc/RpcChannel.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Leftovers.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Unique.h"

namespace {

using Support::ChildProcess;

constexpr std::uint32_t kLimitMs = 60'000;
constexpr unsigned kAnyAge = 1;

class Survivor : public System::RPC::RpcChannel {
public:
    using RpcChannel::RpcChannel;
    ~Survivor() override {
        if (IsOpen()) {
            Close();
        }
    }
    std::uint32_t OnRequest(std::uint32_t, std::uint32_t) override { return 0; }
    void OnNotify(std::uint32_t, std::uint32_t) override {}

    // Sends "abc" and returns the error, or -2 for a wrong answer.
    int Ask(std::uint32_t target) {
        std::uint32_t const handle = NewHandle(3);
        void* const data = HandleData(handle);
        if (data == nullptr) {
            return ENOMEM;
        }
        std::memcpy(data, "abc", 3);
        std::uint32_t reply = 0;
        int const error = Request(target, handle, &reply, kLimitMs);
        void const* const answer = HandleData(reply);
        bool const isRight = error != 0 || (answer != nullptr && std::memcmp(answer, "cba", 3) == 0);
        DisposeHandle(reply);
        return isRight ? error : -2;
    }

    void Order(std::uint32_t target, char order) {
        std::uint32_t const handle = NewHandle(1);
        *static_cast<char*>(HandleData(handle)) = order;
        std::uint32_t reply = 0;
        EXPECT_EQ(Request(target, handle, &reply, kLimitMs), 0);
    }

    // Handles that are still live when those of the dead are purged. What the dead had not sent has no time
    // yet, and counts as older than any age.
    unsigned LiveAfterPurge(std::uint32_t dead) {
        Lock();
        PurgeHandles(kAnyAge, 0);
        PurgeHandles(0, dead);
        unsigned count = 0;
        m_MemPool->DoForEach([](auto*, auto, void* to) { ++*static_cast<unsigned*>(to); }, &count);
        Unlock();
        return count;
    }
};

class WithVariable {
public:
    WithVariable(char const* name, std::string const& value) : m_Name(name) {
        ::setenv(name, value.c_str(), 1);
    }
    ~WithVariable() { ::unsetenv(m_Name); }
    WithVariable(WithVariable const&) = delete;
    WithVariable& operator=(WithVariable const&) = delete;

private:
    char const* m_Name;
};

class Deaths : public testing::Test {
protected:
    void SetUp() override {
#ifndef CORVALEN_FAULT_POINTS
        GTEST_SKIP() << "built without fault points";
#endif
    }

    ChildProcess Start(char const* role, char const* count = "0") {
        return ChildProcess("rpc_peer", {m_Name, role, count});
    }

    ChildProcess StartServer(std::uint32_t& endpoint) {
        ChildProcess server = Start("server");
        auto const line = server.ReadLine();
        endpoint = line ? static_cast<std::uint32_t>(std::strtoul(line->c_str(), nullptr, 10)) : 0;
        return server;
    }

    // Every point that a peer in this role passes while it does its work.
    std::set<std::string> PointsOf(std::string const& role) {
        std::string const list = m_Folder / (role + ".points");
        std::uint32_t endpoint = 0;
        if (role == "server") {
            WithVariable const listing("CORVALEN_FAULT_LIST", list);
            ChildProcess server = StartServer(endpoint);
            Survivor client(m_WideName.c_str());
            EXPECT_EQ(client.OpenClient(), 0);
            EXPECT_EQ(client.Ask(endpoint), 0);
            client.Order(endpoint, 'e');
            EXPECT_EQ(server.Wait(), 0);
        } else {
            ChildProcess const server = StartServer(endpoint);
            WithVariable const listing("CORVALEN_FAULT_LIST", list);
            ChildProcess client = Start(role.c_str(), "3");
            EXPECT_TRUE(client.Reports("done"));
            EXPECT_EQ(client.Wait(), 0);
        }
        std::istringstream lines(Support::ReadFile(list));
        std::set<std::string> points;
        for (std::string line; std::getline(lines, line);) {
            points.insert(line);
        }
        NewName();
        return points;
    }

    void TearDown() override {
        Support::RemoveLeftRegion(m_Name);
    }

    void NewName() {
        Support::RemoveLeftRegion(m_Name);
        m_Name = Support::UniqueName("die");
        m_WideName = {m_Name.begin(), m_Name.end()};
    }

    Support::LogCapture m_Log;
    Support::TemporaryFolder m_Folder;
    std::string m_Name = Support::UniqueName("die");
    std::u16string m_WideName{m_Name.begin(), m_Name.end()};
};

TEST_F(Deaths, OfAClientLeaveTheServerAndItsOtherClientsAtWork) {
    for (char const* role : {"client", "flood"}) {
        std::uint32_t endpoint = 0;
        std::set<std::string> const points = PointsOf(role);
        ChildProcess const server = StartServer(endpoint);
        Survivor survivor(m_WideName.c_str());
        ASSERT_EQ(survivor.OpenClient(), 0);
        EXPECT_GT(points.size(), 10U);
        for (std::string const& point : points) {
            for (char const* passage : {":1", ":2", ":5"}) {
                SCOPED_TRACE(std::string(role) + " at " + point + passage);
                WithVariable const plan("CORVALEN_DIE_AT", point + passage);
                ChildProcess client = Start(role, "3");
                // It may be through before it has passed the point so often.
                auto const end = client.Wait();
                EXPECT_TRUE(end == -SIGKILL || end == 0) << end.value_or(-1000);
                ASSERT_EQ(survivor.Ask(endpoint), 0);
            }
        }
        EXPECT_TRUE(Support::WaitUntil([&] { return survivor.LiveAfterPurge(0) == 0; }));
    }
}

TEST_F(Deaths, OfAServerFreeItsCallersAndLetTheNextOneServe) {
    std::set<std::string> const points = PointsOf("server");
    EXPECT_GT(points.size(), 10U);
    for (std::string const& point : points) {
        SCOPED_TRACE(point);
        std::uint32_t endpoint = 0;
        {
            WithVariable const plan("CORVALEN_DIE_AT", point);
            ChildProcess doomed = StartServer(endpoint);
            Survivor client(m_WideName.c_str());
            // One that died while it opened has reported nothing, and may have left nothing to attach to.
            if (endpoint != 0 && client.OpenClient() == 0) {
                int const error = client.Ask(endpoint);
                EXPECT_TRUE(error == 0 || error == ESRCH || error == ECONNRESET) << error;
            }
        }
        ChildProcess next = StartServer(endpoint);
        ASSERT_NE(endpoint, 0U);
        // A client in another process: this one has had its endpoint of the channel.
        EXPECT_EQ(Start("client", "3").ReadLine(), "done");
        next.Kill();
        NewName();
    }
}

}  // namespace
