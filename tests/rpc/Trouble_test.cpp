// A machine that has little left, peers that are stopped, clocks that jump.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include "corvalen/rpc/RpcChannel.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeClock.h"
#include "tests/support/Unique.h"

namespace {

using Support::ChildProcess;

class Channel : public System::RPC::RpcChannel {
public:
    explicit Channel(std::string const& name)
        : RpcChannel(std::u16string(name.begin(), name.end()).c_str()) {}
    ~Channel() override {
        if (IsOpen()) {
            Close();
        }
    }
    std::uint32_t OnRequest(std::uint32_t, std::uint32_t) override { return 0; }
    void OnNotify(std::uint32_t, std::uint32_t) override {}
};

struct ShortageCase {
    char const* name;
    int error;
};
class Shortage : public testing::TestWithParam<ShortageCase> {};

TEST_P(Shortage, FailsTheOpenAndNothingElse) {
#ifdef __SANITIZE_ADDRESS__
    if (GetParam().error == EMFILE) {
        GTEST_SKIP() << "the sanitizers need descriptors of their own to look at an object";
    }
#endif
    ChildProcess process("starved", {GetParam().name});
    auto const first = process.ReadLine();
    if (first == "no mounts") {
        GTEST_SKIP() << "may not mount";
    }
    EXPECT_EQ(first, std::to_string(GetParam().error));
    EXPECT_EQ(process.ReadLine(), "0");
    EXPECT_EQ(process.Wait(), 0);
}

INSTANTIATE_TEST_SUITE_P(Of, Shortage,
                         testing::Values(ShortageCase{"memory", ENOSPC}, ShortageCase{"descriptors", EMFILE}),
                         [](auto const& row) { return row.param.name; });

TEST(Trouble, OfAPeerThatIsStoppedInsideTheLockIsWaitedOut) {
    std::string const name = Support::UniqueName("stop");
    Channel channel(name);
    ASSERT_EQ(channel.OpenServer(u"server"), 0);
    ChildProcess holder("rpc_peer", {name, "hold"});
    ASSERT_TRUE(holder.Reports("locked"));
    holder.Signal(SIGSTOP);
    std::atomic<std::uint32_t> handle{0};
    std::thread taker([&] { handle = channel.NewHandle(10); });
    EXPECT_FALSE(Support::WaitUntil([&] { return handle != 0; }, std::chrono::milliseconds(100)));
    holder.Signal(SIGCONT);
    holder.WriteLine("go on");
    taker.join();
    EXPECT_NE(handle, 0U);
    EXPECT_EQ(holder.Wait(), 0);
    channel.DisposeHandle(handle);
}

TEST(Trouble, OfAClockThatJumpsDoesNotReachTheTimeLimits) {
    std::string const name = Support::UniqueName("jump");
    ChildProcess server("rpc_peer", {name, "server"});
    auto const line = server.ReadLine();
    ASSERT_TRUE(line);
    Channel channel(name);
    ASSERT_EQ(channel.OpenClient(), 0);
    Support::FakeClock clock;
    for (std::time_t const jump : {std::time_t{-1'000'000}, std::time_t{1'000'000'000}}) {
        Support::FakeClock::s_Wall += jump;
        std::uint32_t const handle = channel.NewHandle(2);
        std::uint32_t reply = 0;
        EXPECT_EQ(channel.Request(static_cast<std::uint32_t>(std::stoul(*line)), handle, &reply, 60'000), 0);
        EXPECT_TRUE(channel.IsValidHandle(reply));
        channel.DisposeHandle(reply);
    }
    // The last one to close takes the region away, and that must not be one that is killed.
    server.Kill();
}

}  // namespace
