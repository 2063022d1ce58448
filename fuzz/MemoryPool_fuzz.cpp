// The first bytes of the input are the whole region of a pool, as a hostile peer may leave it; the rest are
// operations on it, writes of the peer among them. Nothing may be read or written outside, and every
// operation has to end.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "corvalen/rpc/MemoryPool.h"

namespace {

using System::RPC::MemoryPool;

// Small enough that a few hundred bytes of input reach every record.
constexpr std::uint16_t kBlockSize = 16;
constexpr std::uint16_t kBlockCount = 12;
constexpr std::size_t kMaxOperations = 2000;

class Subject : public MemoryPool {
public:
    explicit Subject(void* memory) : MemoryPool(memory) {}
    using MemoryPool::FreeBlock;
    using MemoryPool::HasGeometry;
    using MemoryPool::Rebuild;
    using MemoryPool::UseBlock;
};

struct Input {
    std::uint8_t const* bytes;
    std::size_t size;

    std::uint32_t Take(std::size_t width) {
        std::uint32_t value = 0;
        std::size_t const taken = std::min(width, size);
        std::memcpy(&value, bytes, taken);
        bytes += taken;
        size -= taken;
        return value;
    }
};

// What HandleData and HandleSize promise is the caller's to write, so write it.
void UseHandle(MemoryPool& pool, std::uint32_t handle) {
    void* const data = pool.HandleData(handle);
    if (data != nullptr) {
        std::memset(data, 0x5A, pool.HandleSize(handle));
    }
}

void UseEach(MemoryPool& pool) {
    std::uint32_t calls = 0;
    pool.DoForEach(
        [](MemoryPool* walked, std::uint32_t handle, void* context) {
            UseHandle(*walked, handle);
            if (++*static_cast<std::uint32_t*>(context) > kBlockCount) {
                std::abort();
            }
        },
        &calls);
}

void Operate(Subject& pool, std::vector<std::uint8_t>& region, std::vector<std::uint32_t>& handles,
             Input& input) {
    std::uint32_t const code = input.Take(1);
    std::uint32_t const argument = input.Take(2);
    std::uint32_t const known = handles.empty() ? argument : handles[argument % handles.size()];
    switch (code % 8) {
        case 0:
            handles.push_back(pool.NewHandle(argument % 0x200));
            UseHandle(pool, handles.back());
            break;
        case 1:
            pool.DisposeHandle(known);
            break;
        case 2:
            pool.DisposeHandle(input.Take(4));
            break;
        case 3:
            UseEach(pool);
            break;
        case 4:
            pool.UseBlock(argument);
            break;
        case 5:
            pool.FreeBlock(argument, input.Take(4), (code & 8) != 0);
            break;
        case 6:
            region[argument % region.size()] = static_cast<std::uint8_t>(input.Take(1));
            break;
        default:
            pool.Rebuild();
            UseEach(pool);
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::size_t const length = MemoryPool::CalculateSize(kBlockSize, kBlockCount);
    // Exactly as long as the pool, so that a sanitizer sees the first byte behind it.
    std::vector<std::uint8_t> region(length);
    std::memcpy(region.data(), data, std::min(size, length));
    Input input{data + std::min(size, length), size - std::min(size, length)};
    Subject pool(region.data());
    // What a channel asks before it uses a pool: the header's word alone does not tell the mapping's length.
    if (!pool.HasGeometry(kBlockSize, kBlockCount)) {
        return 0;
    }
    std::vector<std::uint32_t> handles;
    for (std::size_t i = 0; i < kMaxOperations && input.size > 0; ++i) {
        Operate(pool, region, handles, input);
    }
    UseEach(pool);
    return 0;
}
