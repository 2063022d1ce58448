#include "platform/Clock.h"
#include "rpc/PoolAccess.h"

// The operations of MemoryPool that go over the whole table.

namespace System::RPC {

using namespace PoolAccess;

namespace {

constexpr std::uint16_t kFormatting = 1;

}  // namespace

void MemoryPool::Format(std::uint16_t blockSize, std::uint16_t blockCount) {
    std::uint32_t const seed = Platform::Clock::TickCount() & kReferenceMask;
    bool const isEmpty = blockCount == 0;
    // Until all is written the pool looks as if somebody was inside its lock: who comes after our death
    // rebuilds it.
    Store(m_Header->filler, kFormatting);
    std::atomic_thread_fence(std::memory_order_release);
    *m_Header = {.signature = kSignature,
                 .len = CalculateSize(blockSize, blockCount),
                 .blockSize = blockSize,
                 .blockCount = blockCount,
                 .nextRef = static_cast<std::uint16_t>(seed == 0 ? 1 : seed),
                 .filler = kFormatting,
                 .firstFree = isEmpty ? EOL : std::uint16_t{0},
                 .lastFree = isEmpty ? EOL : std::uint16_t{0},
                 .freeSize = blockCount,
                 .usedSize = 0,
                 .freeCount = 1,
                 .usedCount = 0};
    if (!isEmpty) {
        Store(m_Hdls[0].ref, 0);
        Store(m_Hdls[0].size, blockCount);
        Store(m_Hdls[0].nextFree, EOL);
        Store(m_Hdls[0].prevFree, EOL);
        SetFirst(0, blockCount, 0);
    }
    Publish(m_Header->filler, 0);
}

void MemoryPool::DoForEach(void (*proc)(MemoryPool*, std::uint32_t, void*), void* context) {
    std::uint32_t index = 0;
    while (index < m_BlockCount) {
        Record const record = ReadRecord(index);
        bool const isHead = Serious(record.first == index, "m_Hdls[idx].first == idx");
        std::uint32_t const length = isHead ? RunLength(index, record) : 0;
        if (length == 0) {
            // The run can't be trusted; the next head can.
            do {
                ++index;
            } while (index < m_BlockCount && Load(m_Hdls[index].first) != index);
            continue;
        }
        if (record.ref != 0) {
            proc(this, record.ref << kIndexBits | index, context);
        }
        index += length;
    }
}

void MemoryPool::Rebuild() {
    if (m_BlockCount == 0) {
        return;
    }
    for (std::uint16_t* end : {&m_Header->firstFree, &m_Header->lastFree}) {
        Store(*end, EOL);
    }
    for (std::uint16_t* counter :
         {&m_Header->freeSize, &m_Header->usedSize, &m_Header->freeCount, &m_Header->usedCount}) {
        Store(*counter, 0);
    }
    std::uint32_t gap = 0;
    std::uint32_t index = 0;
    while (index < m_BlockCount) {
        Record const record = ReadRecord(index);
        if (!IsLive(index, record)) {
            ++index;
            continue;
        }
        std::uint32_t const blocks = BlocksOf(record.size);
        ReclaimGap(gap, index);
        SetFirst(index, blocks, index);
        Add(m_Header->usedCount, 1);
        Add(m_Header->usedSize, blocks);
        index += blocks;
        gap = index;
    }
    ReclaimGap(gap, m_BlockCount);
}

void MemoryPool::ReclaimGap(std::uint32_t begin, std::uint32_t end) {
    if (begin < end) {
        Store(m_Hdls[begin].ref, 0);
        SetFirst(begin, end - begin, begin);
        PushRun(begin, end - begin);
    }
}

// Blocks of the run that `index` heads, 0 if its record tells no length that the table could hold.
std::uint32_t MemoryPool::RunLength(std::uint32_t index, Record const& record) const {
    if (record.ref != 0) {
        return IsLive(index, record) ? BlocksOf(record.size) : 0;
    }
    return record.size <= m_BlockCount - index ? record.size : 0;
}

}  // namespace System::RPC
