#include <algorithm>
#include <cstdint>

#include "corvalen/rpc/MemoryPool.h"
#include "corvalen/rpc/RpcChannel.h"
#include "diagnostics/Report.h"
#include "rpc/HandleHeader.h"

namespace System::RPC {

namespace {

constexpr std::uint32_t kBatchSize = 256;
constexpr std::uint32_t kDumpedBytes = 64;
constexpr std::uint32_t kMsPerSecond = 1000;

// One walk over the pool: which handles go, and those found, which must not be disposed of under the walk.
struct Batch {
    std::uint32_t cutoff;    // handles stamped before it go; 0: none for their age
    std::uint32_t endpoint;  // handles sent to it go; 0: none for that
    std::uint32_t count = 0;
    std::uint32_t handles[kBatchSize];
};

void LogPurge(std::uint32_t handle, std::uint32_t size, unsigned char const* data, char const* reason) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    char dump[2 * kDumpedBytes + 1];
    std::uint32_t const count = std::min(size, kDumpedBytes);
    for (std::uint32_t i = 0; i < count; ++i) {
        dump[2 * i] = kDigits[data[i] >> 4];
        dump[2 * i + 1] = kDigits[data[i] & 0xF];
    }
    dump[2 * count] = 0;
    Diagnostics::LogInfo("Handle %X of size %i is purged because of %s", handle, static_cast<int>(size),
                         reason);
    Diagnostics::LogInfo("Handle data:<%s>", dump);
}

void Collect(MemoryPool* pool, std::uint32_t handle, void* context) {
    auto& batch = *static_cast<Batch*>(context);
    void* const data = pool->HandleData(handle);
    std::uint32_t const size = pool->HandleSize(handle);
    if (batch.count == kBatchSize || data == nullptr || size < sizeof(HandleHeaderRec)) {
        return;
    }
    HandleHeaderRec const header = HandleHeader::Load(data);
    bool const isOld = batch.cutoff != 0 && header.time < batch.cutoff;
    if (isOld || (batch.endpoint != 0 && header.endpoint == batch.endpoint)) {
        LogPurge(handle, size, static_cast<unsigned char const*>(data), isOld ? "timeout" : "dead endpoint");
        batch.handles[batch.count++] = handle;
    }
}

}  // namespace

std::uint32_t RpcChannel::PurgeHandles(std::uint32_t age, std::uint32_t endpoint) {
    if (!CanUsePool()) {
        return 0;
    }
    std::uint32_t const cutoff = age != 0 ? HandleHeader::Now() - age / kMsPerSecond - 1 : 0;
    std::uint32_t total = 0;
    Batch batch{cutoff, endpoint, kBatchSize, {}};
    // Each walk frees what it found; a pool that a peer has spoiled may not, and ends it too.
    while (batch.count == kBatchSize && total <= m_BlockCount) {
        batch.count = 0;
        m_MemPool->DoForEach(Collect, &batch);
        for (std::uint32_t i = 0; i < batch.count; ++i) {
            m_MemPool->DisposeHandle(batch.handles[i]);
        }
        total += batch.count;
    }
    return total;
}

}  // namespace System::RPC
