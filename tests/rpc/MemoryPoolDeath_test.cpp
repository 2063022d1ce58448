#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "corvalen/rpc/SharedMemory.h"
#include "rpc/PoolFormat.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PoolScript.h"
#include "tests/support/Unique.h"

#ifdef CORVALEN_FAULT_POINTS

namespace {

using Support::PoolScript;
using System::RPC::MemoryPool;
using System::RPC::PoolHeaderRec;
using System::RPC::SharedMemory;

class View : public MemoryPool {
public:
    using MemoryPool::LockTag;
    using MemoryPool::MemoryPool;
    using MemoryPool::Rebuild;
    using MemoryPool::SetLockTag;
};

// -SIGKILL, or 0 when the script ends before its write `number`.
int RunAndDieAtWrite(int number, std::string const& region, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), region);
    ::setenv("CORVALEN_DIE_AT", ("pool.write:" + std::to_string(number)).c_str(), 1);
    Support::ChildProcess peer("pool_peer", arguments);
    ::unsetenv("CORVALEN_DIE_AT");
    return peer.Wait().value_or(-1);
}

TEST(MemoryPoolDeath, AtAnyWriteLeavesOnlyWholeHandlesAndIsMendedByARebuild) {
    Support::LogCapture log;
    std::string const name = Support::UniqueName("pool");
    std::size_t const size = MemoryPool::CalculateSize(PoolScript::kBlockSize, PoolScript::kBlockCount);
    SharedMemory region(std::u16string(name.begin(), name.end()).c_str(), static_cast<std::uint32_t>(size));
    ASSERT_TRUE(region.IsValid());
    View pool(PoolScript::kBlockSize, PoolScript::kBlockCount, region.Data());
    auto const& header = *static_cast<PoolHeaderRec const*>(region.Data());
    PoolScript script(pool);
    script.Prepare();
    std::vector<std::string> handles;
    for (std::uint32_t const handle : script.Known()) {
        handles.push_back(std::to_string(handle));
    }
    std::vector<char> const image(static_cast<char*>(region.Data()),
                                  static_cast<char*>(region.Data()) + size);
    script.Run();

    // A later death leaves the same state or a later one.
    auto reached = script.States().begin();
    int died = 0;
    int end = -SIGKILL;
    while (end == -SIGKILL) {
        std::memcpy(region.Data(), image.data(), size);
        end = RunAndDieAtWrite(died + 1, name, handles);
        died += end == -SIGKILL ? 1 : 0;
        pool.Rebuild();
        PoolScript::Handles const live = script.Live();
        reached = std::find(reached, script.States().end(), live);
        ASSERT_NE(reached, script.States().end()) << "at write " << died;
        EXPECT_EQ(header.usedCount, live.size());
        for (std::uint32_t const handle : live) {
            pool.DisposeHandle(handle);
        }
        ASSERT_EQ(pool.NewHandle(PoolScript::kBlockSize * PoolScript::kBlockCount - 8) & 0xFFFF, 0U);
        ASSERT_EQ(header.freeCount + header.freeSize, 0) << "at write " << died;
    }
    EXPECT_EQ(end, 0);
    EXPECT_GT(died, 60);
    EXPECT_EQ(log.Count("(MemoryPool:"), 0U);
    std::memcpy(region.Data(), image.data(), sizeof(PoolHeaderRec));
}

TEST(MemoryPoolDeath, WhileItIsFormattedIsSeenByTheNextHolderOfTheLock) {
    Support::LogCapture log;
    std::string const name = Support::UniqueName("pool");
    constexpr std::uint32_t kWhole = PoolScript::kBlockSize * PoolScript::kBlockCount - 8;
    std::uint32_t const size = MemoryPool::CalculateSize(PoolScript::kBlockSize, PoolScript::kBlockCount);
    SharedMemory region(std::u16string(name.begin(), name.end()).c_str(), size);
    ASSERT_TRUE(region.IsValid());
    int died = 0;
    int end = -SIGKILL;
    while (end == -SIGKILL) {
        View pool(PoolScript::kBlockSize, PoolScript::kBlockCount, region.Data());
        std::vector<std::uint32_t> handles{pool.NewHandle(100), pool.NewHandle(0), pool.NewHandle(0)};
        pool.DisposeHandle(handles[0]);
        end = RunAndDieAtWrite(died + 1, name, {"format"});
        died += end == -SIGKILL ? 1 : 0;
        if (pool.LockTag() != 0) {
            pool.Rebuild();
            pool.SetLockTag(0);
        }
        for (std::uint32_t const handle : handles) {
            pool.DisposeHandle(handle);
        }
        std::uint32_t const whole = pool.NewHandle(kWhole);
        ASSERT_NE(whole, 0U) << "at write " << died;
        pool.DisposeHandle(whole);
    }
    EXPECT_EQ(end, 0);
    EXPECT_GT(died, 5);
    EXPECT_EQ(log.Count("(MemoryPool:"), 0U);
}

}  // namespace

#endif
