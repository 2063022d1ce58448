// Peers that write what they like into everything that processes share.

#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "platform/Bell.h"
#include "platform/InboxFile.h"
#include "platform/NamedObject.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Leftovers.h"
#include "tests/support/Unique.h"

namespace {

using Support::ChildProcess;
using namespace System::Platform;

std::string PathOf(std::string const& name) {
    return SharedPlace().directory + "/" + name;
}

std::uint32_t EndpointOf(ChildProcess& process) {
    auto const line = process.ReadLine();
    return line ? static_cast<std::uint32_t>(std::strtoul(line->c_str(), nullptr, 10)) : 0;
}

// What a crash looks like in the exit state of a child.
bool IsCrash(std::optional<int> state) {
    return state == -SIGSEGV || state == -SIGBUS || state == -SIGABRT || state == -SIGILL || state == -SIGFPE;
}

TEST(HostilePeers, GetErrorsOutOfTheOthersAndNoCrash) {
    for (int seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE(seed);
        std::string const name = Support::UniqueName("bad");
        ChildProcess server("rpc_peer", {name, "server"});
        std::uint32_t const endpoint = EndpointOf(server);
        ASSERT_NE(endpoint, 0U);
        std::vector<ChildProcess> clients;
        std::vector<std::string> arguments{std::to_string(seed), "100",
                                           PathOf(InboxFileName(InboxOfWindow(endpoint))), PathOf(name)};
        for (int i = 0; i < 2; ++i) {
            clients.emplace_back("rpc_peer", std::vector<std::string>{name, "probe", "100000"});
            std::uint32_t const client = EndpointOf(clients.back());
            ASSERT_NE(client, 0U);
            arguments.push_back(PathOf(InboxFileName(InboxOfWindow(client))));
        }
        ChildProcess spoiler("spoiler", arguments);
        EXPECT_TRUE(spoiler.Reports("done"));
        for (ChildProcess& client : clients) {
            // It stops asking when its input ends, and has a limit on each request.
            client.CloseInput();
            auto const end = client.Wait();
            EXPECT_TRUE(end.has_value()) << "hangs";
            EXPECT_FALSE(IsCrash(end)) << end.value_or(0);
        }
        EXPECT_TRUE(server.IsRunning() || !IsCrash(server.Wait()));
        server.Kill();
        // What they leave does not keep the next ones from their work.
        ChildProcess next("rpc_peer", {name, "server"});
        EXPECT_NE(EndpointOf(next), 0U);
        EXPECT_EQ(ChildProcess("rpc_peer", {name, "client", "20"}).ReadLine(), "done");
        next.Kill();
        Support::RemoveLeftRegion(name);
    }
}

TEST(HostilePeers, ThatCutAFileOffDoNotTakeDownWhoOnlyLooksForAServer) {
    std::string const name = Support::UniqueName("cut");
    ChildProcess server("rpc_peer", {name, "server"});
    std::uint32_t const endpoint = EndpointOf(server);
    ASSERT_NE(endpoint, 0U);
    ASSERT_EQ(::truncate(PathOf(InboxFileName(InboxOfWindow(endpoint))).c_str(), 100), 0);
    ChildProcess finder("rpc_peer", {name, "find"});
    EXPECT_EQ(finder.ReadLine(), "0");
    EXPECT_EQ(finder.Wait(), 0);
    server.Kill();
    Support::RemoveLeftRegion(name);
}

}  // namespace
