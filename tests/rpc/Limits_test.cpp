// What a channel does at the ends of what it has room for.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "corvalen/rpc/MemoryPool.h"
#include "corvalen/rpc/RpcChannel.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Unique.h"

namespace {

using Support::ChildProcess;

constexpr std::uint32_t kLimitMs = 60'000;
constexpr std::uint32_t kBlockCount = 4096;
constexpr std::uint32_t kLargestHandle = kBlockCount * 256 - 16;
constexpr std::uint32_t kOneBlock = 240;

class Endpoint : public System::RPC::RpcChannel {
public:
    explicit Endpoint(std::u16string const& name) : RpcChannel(name.c_str()) {}
    ~Endpoint() override {
        if (IsOpen()) {
            Close();
        }
    }
    std::uint32_t OnRequest(std::uint32_t, std::uint32_t) override { return NewHandle(1); }
    void OnNotify(std::uint32_t, std::uint32_t) override {}

    unsigned LiveHandles() {
        unsigned count = 0;
        Lock();
        m_MemPool->DoForEach([](auto*, auto, void* to) { ++*static_cast<unsigned*>(to); }, &count);
        Unlock();
        return count;
    }
};

class Limits : public testing::Test {
protected:
    std::u16string WideName() const { return {m_Name.begin(), m_Name.end()}; }
    // The channel's name, filled up to `length` characters; all that are longer than 31 share a region.
    std::u16string NameOf(std::size_t length, char16_t fill) const {
        std::u16string name = WideName() + std::u16string(31, u'x');
        name.resize(31);
        name.resize(length, fill);
        return name;
    }

    Support::LogCapture m_Log;
    std::string m_Name = Support::UniqueName("lim");
};

TEST_F(Limits, OfThePoolAreReachedToTheLastBlockAndLeftAgain) {
    Endpoint channel(WideName());
    ASSERT_EQ(channel.OpenServer(u"s"), 0);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(channel.NewHandle(kLargestHandle + 1), 0U);
        std::uint32_t const all = channel.NewHandle(kLargestHandle);
        ASSERT_NE(all, 0U);
        EXPECT_EQ(channel.NewHandle(0), 0U);
        channel.DisposeHandle(all);

        std::vector<std::uint32_t> handles;
        while (std::uint32_t const handle = channel.NewHandle(kOneBlock)) {
            handles.push_back(handle);
        }
        ASSERT_EQ(handles.size(), kBlockCount);
        for (std::size_t i = 0; i < handles.size(); i += 2) {
            channel.DisposeHandle(handles[i]);
        }
        EXPECT_EQ(channel.NewHandle(kOneBlock + 1), 0U) << "half of it free, and no two blocks side by side";
        for (std::size_t i = 1; i < handles.size(); i += 2) {
            channel.DisposeHandle(handles[i]);
        }
        EXPECT_EQ(channel.LiveHandles(), 0U);
    }
    EXPECT_EQ(m_Log.Count("("), 0U);
}

TEST_F(Limits, OfThePoolLeaveRequestsWithoutAnAnswerAndTheServerAtWork) {
    // Closes last, after the server was killed, and takes the region away.
    Endpoint client(WideName());
    ChildProcess server("rpc_peer", {m_Name, "server"});
    auto const line = server.ReadLine();
    ASSERT_TRUE(line);
    auto const endpoint = static_cast<std::uint32_t>(std::stoul(*line));
    ASSERT_EQ(client.OpenClient(), 0);
    std::uint32_t const request = client.NewHandle(kOneBlock);
    std::uint32_t const rest = client.NewHandle(kLargestHandle - 256);
    ASSERT_NE(rest, 0U);
    std::uint32_t reply = 7;
    EXPECT_EQ(client.Request(endpoint, request, &reply, kLimitMs), 0);
    EXPECT_EQ(reply, 0U);
    EXPECT_EQ(client.Request(endpoint, client.NewHandle(kOneBlock + 1), &reply, kLimitMs), 0)
        << "no handle is a request as well";
    client.DisposeHandle(rest);
    EXPECT_EQ(client.Request(endpoint, client.NewHandle(kOneBlock), &reply, kLimitMs), 0);
    EXPECT_EQ(client.HandleSize(reply), kOneBlock);
    client.DisposeHandle(reply);
    EXPECT_EQ(client.LiveHandles(), 0U);
}

TEST_F(Limits, OfTheNameDecideWhoMeetsWhom) {
    std::u16string const longest = NameOf(63, u'a');
    Endpoint server(longest);
    ASSERT_EQ(server.OpenServer(u"s"), 0);
    std::uint32_t const endpoint = server.LocalEndPoint();
    Endpoint const cut(longest + u"and more");
    EXPECT_EQ(cut.FindServer(u"s"), endpoint);
    EXPECT_TRUE(cut.IsRefValid(endpoint));
    for (std::u16string const& other : {NameOf(62, u'a'), NameOf(63, u'b'), std::u16string()}) {
        Endpoint const stranger(other);
        EXPECT_EQ(stranger.FindServer(u"s"), 0U);
        EXPECT_FALSE(stranger.IsRefValid(endpoint));
    }
    Endpoint neighbour(NameOf(63, u'b'));
    ASSERT_EQ(neighbour.OpenClient(), 0);
    std::uint32_t const handle = neighbour.NewHandle(1);
    EXPECT_TRUE(server.IsValidHandle(handle)) << "one region, since the first 31 characters are the same";
    neighbour.DisposeHandle(handle);
}

TEST_F(Limits, OfATitleAre255Characters) {
    std::u16string const longest(255, u't');
    Endpoint server(WideName());
    ASSERT_EQ(server.OpenServer(longest.c_str()), 0);
    EXPECT_EQ(server.FindServer(longest.c_str()), server.LocalEndPoint());
    EXPECT_EQ(server.FindServer(longest.substr(1).c_str()), 0U);
    EXPECT_EQ(server.FindServer((longest + u"t").c_str()), 0U);
}

TEST_F(Limits, OfWhatANameMayBeAreThoseOfARegion) {
    for (char16_t const* name : {u"", u".", u".."}) {
        Endpoint channel(name);
        EXPECT_EQ(channel.OpenServer(u"s"), EINVAL);
        EXPECT_FALSE(channel.IsOpen());
    }
    Endpoint outside(u"../" + WideName() + u"/\u20ac");
    ASSERT_EQ(outside.OpenServer(u"s"), 0);
    EXPECT_EQ(outside.FindServer(u"s"), outside.LocalEndPoint());
}

TEST_F(Limits, AreNotReachedBySixtyFourClientsAtOnce) {
    constexpr unsigned kClients = 64;
    Endpoint last(WideName());
    ChildProcess server("rpc_peer", {m_Name, "server"});
    ASSERT_TRUE(server.ReadLine());
    std::vector<ChildProcess> clients;
    clients.reserve(kClients);
    for (unsigned i = 0; i < kClients; ++i) {
        clients.emplace_back("rpc_peer", std::vector<std::string>{m_Name, "client", "20"});
    }
    for (ChildProcess& client : clients) {
        EXPECT_EQ(client.ReadLine(), "done");
        EXPECT_EQ(client.Wait(), 0);
    }
    ASSERT_EQ(last.OpenClient(), 0);
    EXPECT_EQ(last.LiveHandles(), 0U);
}

TEST_F(Limits, AreNotReachedByAThousandEndpoints) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a machine may not hold a thousand processes with the memory of a sanitizer";
#endif
    constexpr int kCrowds = 2;
    constexpr int kMembers = 500;
    Endpoint one(WideName());
    ChildProcess server("rpc_peer", {m_Name, "server"});
    ASSERT_TRUE(server.ReadLine());
    ASSERT_EQ(one.OpenClient(), 0);
    std::vector<ChildProcess> crowds;
    std::set<std::uint32_t> endpoints{one.LocalEndPoint()};
    std::uint32_t lastOf[kCrowds] = {};
    for (std::uint32_t& last : lastOf) {
        std::vector<std::string> const arguments{m_Name, "crowd", std::to_string(kMembers)};
        crowds.emplace_back("rpc_peer", arguments);
        for (int i = 0; i < kMembers; ++i) {
            std::string const report = crowds.back().ReadLine().value_or("");
            if (report.starts_with("spawn")) {
                GTEST_SKIP() << "the machine has not that many processes to give: " << report;
            }
            last = static_cast<std::uint32_t>(std::strtoul(report.c_str(), nullptr, 10));
            ASSERT_TRUE(endpoints.insert(last).second) << report;
        }
    }
    EXPECT_TRUE(one.IsRefValid(lastOf[0]));
    crowds[0].CloseInput();
    EXPECT_EQ(crowds[0].Wait(), 0);
    EXPECT_EQ(one.Notify(lastOf[0], one.NewHandle(kOneBlock)), ESRCH);
    EXPECT_EQ(one.Notify(lastOf[1], one.NewHandle(kOneBlock)), 0);
    crowds[1].CloseInput();
    EXPECT_EQ(crowds[1].Wait(), 0);
    // Clears away what the thousand have left.
    ChildProcess client("rpc_peer", {m_Name, "client", "20"});
    EXPECT_EQ(client.ReadLine(), "done");
    EXPECT_EQ(client.Wait(), 0);
}

}  // namespace
