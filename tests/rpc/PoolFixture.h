#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "corvalen/rpc/MemoryPool.h"
#include "rpc/PoolFormat.h"
#include "tests/support/LogCapture.h"

namespace Support {

using System::RPC::EOL;
using System::RPC::MemoryPool;
using System::RPC::PoolHandleRec;
using System::RPC::PoolHeaderRec;

// A pool in memory of its own, with all that it keeps there in view.
class OpenPool : public MemoryPool {
public:
    OpenPool(std::uint16_t blockSize, std::uint16_t blockCount, std::vector<std::uint32_t>& memory)
        : MemoryPool(blockSize, blockCount, memory.data()) {}
    explicit OpenPool(void* memory) : MemoryPool(memory) {}
    using MemoryPool::FreeBlock;
    using MemoryPool::HasGeometry;
    using MemoryPool::LockTag;
    using MemoryPool::Rebuild;
    using MemoryPool::SetLockTag;
    using MemoryPool::UseBlock;
};

class MemoryPoolTest : public testing::Test {
protected:
    OpenPool& Make(std::uint16_t blockSize, std::uint16_t blockCount) {
        pool.reset();
        memory.assign(MemoryPool::CalculateSize(blockSize, blockCount) / 4 + 1, 0xDDDDDDDD);
        pool.emplace(blockSize, blockCount, memory);
        return *pool;
    }
    void TearDown() override {
        pool.reset();
        EXPECT_EQ(memory.empty() ? 0xDDDDDDDD : memory.back(), 0xDDDDDDDD) << "written behind the pool";
    }
    PoolHeaderRec& Header() { return *reinterpret_cast<PoolHeaderRec*>(memory.data()); }
    PoolHandleRec& Entry(std::uint32_t index) {
        return reinterpret_cast<PoolHandleRec*>(&Header() + 1)[index];
    }
    unsigned Reports(char const* expression) { return log.Asserted(0, expression, "MemoryPool"); }

    Support::LogCapture log;
    std::vector<std::uint32_t> memory;
    std::optional<OpenPool> pool;
};

inline std::uint32_t Index(std::uint32_t handle) {
    return handle & 0xFFFF;
}

inline std::uint32_t Reference(std::uint32_t handle) {
    return handle >> 16;
}

using Handles = std::vector<std::uint32_t>;

inline Handles Live(MemoryPool& pool) {
    Handles live;
    pool.DoForEach(
        [](MemoryPool* walked, std::uint32_t handle, void* context) {
            EXPECT_TRUE(walked->CheckHandle(handle));
            static_cast<Handles*>(context)->push_back(handle);
        },
        &live);
    return live;
}

}  // namespace Support
