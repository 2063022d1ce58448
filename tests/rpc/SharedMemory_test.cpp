#include "corvalen/rpc/SharedMemory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/support/ChildProcess.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Unique.h"

namespace {

using Support::ChildProcess;
using System::RPC::SharedMemory;

constexpr std::uint32_t kSize = 10000;

std::string PathOf(std::u16string const& name) {
    return "/dev/shm/Corvalen/Temp/" + std::string(name.begin(), name.end());
}

std::byte* BytesOf(SharedMemory const& memory) {
    return static_cast<std::byte*>(memory.Data());
}

TEST(SharedMemory, ShowsOneBlockToAllObjectsOfAName) {
    std::u16string const name = Support::UniqueWideName();
    {
        SharedMemory first(name.c_str(), kSize);
        SharedMemory second(name.c_str(), kSize);
        ASSERT_TRUE(first.IsValid() && second.IsValid());
        EXPECT_EQ(first.LastError(), 0);
        EXPECT_EQ(first.Size(), kSize);
        EXPECT_NE(first.Data(), second.Data());
        EXPECT_EQ(std::count(BytesOf(first), BytesOf(first) + kSize, std::byte{0}), kSize);
        BytesOf(first)[kSize - 1] = std::byte{42};
        EXPECT_EQ(BytesOf(second)[kSize - 1], std::byte{42});
        EXPECT_TRUE(std::filesystem::exists(PathOf(name)));
    }
    EXPECT_FALSE(std::filesystem::exists(PathOf(name)));
    EXPECT_FALSE(std::filesystem::exists(PathOf(name) + "_mtx"));
    SharedMemory again(name.c_str(), kSize);
    ASSERT_TRUE(again.IsValid());
    EXPECT_EQ(BytesOf(again)[kSize - 1], std::byte{0});
}

TEST(SharedMemory, CutsALongNameEverywhereAlike) {
    std::u16string name = Support::UniqueWideName();
    name.resize(40, u'x');
    std::u16string const cut = name.substr(0, 31);
    SharedMemory memory(name.c_str(), kSize);
    SharedMemory sameName((cut + u"other").c_str(), kSize);
    EXPECT_EQ(memory.Name(), cut);
    EXPECT_TRUE(std::filesystem::exists(PathOf(cut)));
    EXPECT_TRUE(std::filesystem::exists(PathOf(cut) + "_mtx"));
    ASSERT_TRUE(memory.IsValid() && sameName.IsValid());
    BytesOf(memory)[0] = std::byte{1};
    EXPECT_EQ(BytesOf(sameName)[0], std::byte{1});
}

TEST(SharedMemory, CountsTheLocksOfEachObjectByItself) {
    std::u16string const name = Support::UniqueWideName();
    SharedMemory first(name.c_str(), kSize);
    SharedMemory second(name.c_str(), kSize);
    unsigned const expected[] = {1, 2, 1, 0};
    for (int step = 0; step < 4; ++step) {
        step < 2 ? first.Lock() : first.Unlock();
        EXPECT_EQ(first.LockCount(), expected[step]);
        EXPECT_EQ(first.IsLocked(), expected[step] > 0);
        EXPECT_EQ(second.LockCount(), 0U);
        EXPECT_FALSE(second.IsLocked());
    }
}

TEST(SharedMemory, LetsOneThreadOrProcessInAtATime) {
    std::u16string const name = Support::UniqueWideName();
    SharedMemory memory(name.c_str(), kSize);
    std::string const narrow(name.begin(), name.end());
    memory.Lock();
    ChildProcess peer("memory_peer", {narrow, "10000"});
    long plain = 0;
    std::thread thread([&] {
        SharedMemory other(name.c_str(), kSize);
        for (int i = 0; i < 1000; ++i) {
            other.Lock();
            ++plain;
            other.Unlock();
        }
    });
    EXPECT_EQ(peer.ReadLine(std::chrono::milliseconds(50)), std::nullopt);
    EXPECT_EQ(plain, 0);
    memory.Unlock();
    ASSERT_TRUE(peer.Reports("locked"));
    peer.Kill();
    memory.Lock();
    memory.Unlock();
    thread.join();
    EXPECT_EQ(plain, 1000);
}

struct BadOpen {
    char const* name;
    char16_t const* given;
    std::uint32_t size;
};
class BadRegions : public testing::TestWithParam<BadOpen> {};
TEST_P(BadRegions, AreNotValid) {
    SharedMemory memory(GetParam().given, GetParam().size);
    EXPECT_FALSE(memory.IsValid());
    EXPECT_EQ(memory.LastError(), EINVAL);
    EXPECT_EQ(memory.Data(), nullptr);
    memory.Lock();
    EXPECT_EQ(memory.LockCount(), 1U);
    memory.Unlock();
}
INSTANTIATE_TEST_SUITE_P(Table, BadRegions,
                         testing::ValuesIn<BadOpen>({{"Empty", u"", kSize},
                                                     {"Dot", u".", kSize},
                                                     {"DotDot", u"..", kSize},
                                                     {"Null", nullptr, kSize},
                                                     {"NoBytes", u"no_bytes_at_all", 0}}),
                         [](auto const& row) { return row.param.name; });

TEST(SharedMemory, RefusesMoreThanTheCreatorMade) {
    std::u16string const name = Support::UniqueWideName();
    SharedMemory memory(name.c_str(), kSize);
    SharedMemory bigger(name.c_str(), kSize + 1);
    EXPECT_FALSE(bigger.IsValid());
    EXPECT_EQ(bigger.LastError(), EINVAL);
    EXPECT_TRUE(std::filesystem::exists(PathOf(name)));
}

TEST(SharedMemory, NeverMeetsTheLockOfAnotherRegion) {
    std::u16string const name = Support::UniqueWideName();
    SharedMemory memory(name.c_str(), kSize);
    SharedMemory second((name + u"_mtx").c_str(), kSize);
    EXPECT_FALSE(second.IsValid());
    EXPECT_EQ(second.LastError(), EEXIST);
}

TEST(SharedMemory, StaysInItsFolderWhateverItsName) {
    std::u16string const name = u"../" + Support::UniqueWideName();
    SharedMemory memory(name.c_str(), kSize);
    EXPECT_TRUE(memory.IsValid());
    EXPECT_EQ(memory.Name(), name);
    EXPECT_TRUE(std::filesystem::exists(PathOf(u"%2E.%2F" + name.substr(3))));
    EXPECT_FALSE(std::filesystem::exists(PathOf(name)));
}

TEST(SharedMemory, ReportsLocksThatDoNotPairAndGoesOn) {
    std::u16string const name = Support::UniqueWideName();
    Support::LogCapture log;
    {
        SharedMemory memory(name.c_str(), kSize);
        memory.Unlock();
        EXPECT_EQ(log.Asserted(0, "m_LockedCount > 0", "SharedMemory"), 1U);
        EXPECT_FALSE(memory.IsLocked());
        memory.Lock();
        memory.Lock();
        EXPECT_EQ(memory.LockCount(), 1U);
        EXPECT_EQ(log.Lines().size(), 1U);
    }
    EXPECT_EQ(log.Asserted(0, "m_LockedCount == 0", "SharedMemory"), 1U);
    EXPECT_FALSE(std::filesystem::exists(PathOf(name)));
    SharedMemory next(name.c_str(), kSize);
    std::thread([&] {
        next.Lock();
        next.Unlock();
    }).join();
}

}  // namespace
