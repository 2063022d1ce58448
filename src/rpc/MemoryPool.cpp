#include "corvalen/rpc/MemoryPool.h"

#include <cstring>
#include <limits>

#include "platform/FaultPoint.h"
#include "rpc/PoolAccess.h"

namespace System::RPC {

using namespace PoolAccess;

namespace {

constexpr std::uint32_t kIndexMask = 0xFFFF;

std::uint64_t TrueSize(std::uint32_t blockSize, std::uint32_t blockCount) {
    return std::uint64_t{blockSize + sizeof(PoolHandleRec)} * blockCount + sizeof(PoolHeaderRec);
}

bool FitsInto32Bits(std::uint32_t blockSize, std::uint32_t blockCount) {
    return TrueSize(blockSize, blockCount) <= std::numeric_limits<std::uint32_t>::max();
}

}  // namespace

std::uint32_t MemoryPool::CalculateSize(std::uint16_t blockSize, std::uint16_t blockCount) {
    return static_cast<std::uint32_t>(TrueSize(blockSize, blockCount));
}

MemoryPool::MemoryPool(std::uint16_t blockSize, std::uint16_t blockCount, void* memory) {
    if (memory != nullptr && FitsInto32Bits(blockSize, blockCount)) {
        Bind(memory, blockSize, blockCount);
        Format(blockSize, blockCount);
    }
}

MemoryPool::MemoryPool(void* memory) {
    auto* const header = static_cast<PoolHeaderRec*>(memory);
    bool const isPool = header != nullptr && Load(header->signature) == kSignature;
    Serious(isPool, "m_Header->signature == kSignature");
    if (header == nullptr) {
        return;
    }
    auto const blockSize = static_cast<std::uint16_t>(Load(header->blockSize));
    auto const blockCount = static_cast<std::uint16_t>(Load(header->blockCount));
    bool const isWhole =
        FitsInto32Bits(blockSize, blockCount) && Load(header->len) == CalculateSize(blockSize, blockCount);
    Serious(isWhole, "m_Header->len == CalculateSize(m_Header->blockSize, m_Header->blockCount)");
    if (isPool && isWhole) {
        Bind(memory, blockSize, blockCount);
    }
}

MemoryPool::~MemoryPool() {
    if (!m_IsUsable) {
        return;
    }
    std::uint32_t const live = Load(m_Header->usedCount);
    if (live != 0) {
        Diagnostics::LogInfo("MemoryPool destroyed with %i blocks still allocated", static_cast<int>(live));
    }
}

void MemoryPool::Bind(void* memory, std::uint16_t blockSize, std::uint16_t blockCount) {
    auto* const bytes = static_cast<unsigned char*>(memory);
    m_Header = static_cast<PoolHeaderRec*>(memory);
    m_Hdls = reinterpret_cast<PoolHandleRec*>(bytes + sizeof(PoolHeaderRec));
    m_Data = bytes + sizeof(PoolHeaderRec) + sizeof(PoolHandleRec) * blockCount;
    m_BlockSize = blockSize;
    m_BlockCount = blockSize == 0 ? 0 : blockCount;
    m_IsUsable = true;
}

std::uint32_t MemoryPool::NewHandle(std::uint32_t size) {
    if (m_BlockCount == 0 || size > std::numeric_limits<std::uint32_t>::max() - kGuardBytes - m_BlockSize) {
        return 0;
    }
    std::uint32_t const blocks = BlocksOf(size + kGuardBytes);
    std::uint32_t const index = FindBestFit(blocks);
    if (index == EOL) {
        return 0;
    }
    Record const run = ReadRecord(index);
    if (run.size < blocks || run.size > m_BlockCount - index || !TakeRun(index, run)) {
        return 0;
    }
    CORVALEN_FAULT("pool.new.taken");
    Add(m_Header->usedCount, 1);
    Add(m_Header->usedSize, blocks);
    if (run.size > blocks) {
        std::uint32_t const rest = index + blocks;
        // In this order: a record that heads a run and keeps an old reference would pass for a live handle.
        Store(m_Hdls[rest].ref, 0);
        SetFirstOfFree(rest, run.size - blocks, rest, run.size - blocks);
        PushRun(rest, run.size - blocks);
    }
    if (run.size > kExactRunLength) {
        SetFirst(index, blocks, index);
    }
    CORVALEN_FAULT("pool.new.split");
    return Occupy(index, size);
}

std::uint32_t MemoryPool::Occupy(std::uint32_t index, std::uint32_t size) {
    unsigned char* const data = BlockData(index);
    std::memcpy(data, kBeginSign, kGuardSize);
    std::memcpy(data + kGuardSize + size, kEndSign, kGuardSize);
    // The reference is used up before the handle lives: if we die in between, no second handle gets it.
    std::uint32_t const reference = NextReference();
    Store(m_Hdls[index].size, size + kGuardBytes);
    Publish(m_Hdls[index].ref, reference);
    return reference << kIndexBits | index;
}

void MemoryPool::DisposeHandle(std::uint32_t handle) {
    Record record;
    if (!FindLive(handle, record)) {
        return;
    }
    std::uint32_t const index = handle & kIndexMask;
    CheckGuards(index, record.size);
    std::uint32_t const blocks = BlocksOf(record.size);
    Minor(Load(m_Header->usedCount) > 0, "m_Header->usedCount > 0");
    Minor(Load(m_Header->usedSize) >= blocks, "m_Header->usedSize >= bCount");
    Subtract(m_Header->usedCount, 1);
    Subtract(m_Header->usedSize, blocks);
    FreeBlock(index, blocks, true);
}

bool MemoryPool::CheckHandle(std::uint32_t handle) const {
    Record record;
    return FindLive(handle, record);
}

bool MemoryPool::IsValidHandle(std::uint32_t handle) const {
    return CheckHandle(handle);
}

std::uint32_t MemoryPool::HandleSize(std::uint32_t handle) const {
    Record record;
    return FindLive(handle, record) ? record.size - kGuardBytes : 0;
}

void* MemoryPool::HandleData(std::uint32_t handle) const {
    Record record;
    return FindLive(handle, record) ? BlockData(handle & kIndexMask) + kGuardSize : nullptr;
}

void MemoryPool::SetName(char16_t const* /*name*/) {}

void MemoryPool::Check() {}

void MemoryPool::UseBlock(std::uint32_t iIndex) {
    if (Serious(iIndex < m_BlockCount, "iIndex < m_Header->blockCount")) {
        static_cast<void>(TakeRun(iIndex, ReadRecord(iIndex)));
    }
}

void MemoryPool::FreeBlock(std::uint32_t iIndex, std::uint32_t iCount, bool merge) {
    bool const isInside = iIndex <= m_BlockCount && iCount <= m_BlockCount - iIndex;
    if (!Serious(isInside, "iIndex + iCount <= m_Header->blockCount") || iCount == 0) {
        return;
    }
    if (merge) {
        iCount += MergeForward(iIndex, iCount);
        if (MergeBackward(iIndex, iCount)) {
            return;
        }
    }
    CORVALEN_FAULT("pool.free.merged");
    PushRun(iIndex, iCount);
    CORVALEN_FAULT("pool.free.pushed");
}

bool MemoryPool::HasGeometry(std::uint16_t blockSize, std::uint16_t blockCount) const {
    return m_IsUsable && m_BlockSize == blockSize && m_BlockCount == blockCount;
}

std::uint16_t MemoryPool::LockTag() const {
    return m_IsUsable ? static_cast<std::uint16_t>(Load(m_Header->filler)) : std::uint16_t{0};
}

void MemoryPool::SetLockTag(std::uint16_t tag) {
    if (m_IsUsable) {
        Store(m_Header->filler, tag);
    }
}

MemoryPool::Record MemoryPool::ReadRecord(std::uint32_t index) const {
    PoolHandleRec& record = m_Hdls[index];
    return {Load(record.first), Load(record.ref), Load(record.size), Load(record.nextFree),
            Load(record.prevFree)};
}

std::uint32_t MemoryPool::BlocksOf(std::uint32_t bytes) const {
    return (bytes + m_BlockSize - 1) / m_BlockSize;
}

bool MemoryPool::IsLive(std::uint32_t index, Record const& record) const {
    return record.first == index && record.ref != 0 && record.size >= kGuardBytes &&
           record.size <= m_BlockSize * (m_BlockCount - index);
}

bool MemoryPool::FindLive(std::uint32_t handle, Record& record) const {
    std::uint32_t const index = handle & kIndexMask;
    if (index >= m_BlockCount) {
        return false;
    }
    record = ReadRecord(index);
    return record.ref == handle >> kIndexBits && IsLive(index, record);
}

// The head of the shortest free run of at least `blocks`, of equal ones the nearest to the head of the list;
// EOL if there is none.
std::uint32_t MemoryPool::FindBestFit(std::uint32_t blocks) const {
    std::uint32_t best = EOL;
    std::uint32_t bestSize = std::numeric_limits<std::uint32_t>::max();
    std::uint32_t index = Load(m_Header->firstFree);
    for (std::uint32_t steps = 0; index != EOL && steps < m_BlockCount; ++steps) {
        if (!Serious(index < m_BlockCount, "idx < m_Header->blockCount")) {
            break;
        }
        std::uint32_t const size = Load(m_Hdls[index].size);
        if (size >= blocks && size < bestSize && size <= m_BlockCount - index) {
            best = index;
            bestSize = size;
            if (size == blocks) {
                break;
            }
        }
        index = Load(m_Hdls[index].nextFree);
    }
    return best;
}

std::uint32_t MemoryPool::NextReference() {
    std::uint32_t const stored = Load(m_Header->nextRef);
    std::uint32_t const reference = stored == 0 ? 1 : stored;
    Store(m_Header->nextRef, reference == kReferenceMask ? 1 : reference + 1);
    return reference;
}

unsigned char* MemoryPool::BlockData(std::uint32_t index) const {
    return m_Data + std::size_t{index} * m_BlockSize;
}

bool MemoryPool::TakeRun(std::uint32_t index, Record const& record) {
    if (!Serious(record.ref == 0, "m_Hdls[iIndex].ref == 0")) {
        return false;
    }
    Minor(Load(m_Header->freeCount) > 0, "m_Header->freeCount > 0");
    Minor(Load(m_Header->freeSize) >= record.size, "m_Header->freeSize >= m_Hdls[iIndex].size");
    Subtract(m_Header->freeCount, 1);
    Subtract(m_Header->freeSize, record.size);
    Unlink(index, record);
    return true;
}

void MemoryPool::Unlink(std::uint32_t index, Record const& record) {
    if (record.prevFree == EOL) {
        Serious(Load(m_Header->firstFree) == index, "m_Header->firstFree == iIndex");
        Store(m_Header->firstFree, record.nextFree);
    } else if (Serious(record.prevFree < m_BlockCount, "m_Hdls[iIndex].prevFree < m_Header->blockCount")) {
        PoolHandleRec& previous = m_Hdls[record.prevFree];
        Serious(Load(previous.nextFree) == index, "m_Hdls[m_Hdls[iIndex].prevFree].nextFree == iIndex");
        Store(previous.nextFree, record.nextFree);
    }
    if (record.nextFree == EOL) {
        Serious(Load(m_Header->lastFree) == index, "m_Header->lastFree == iIndex");
        Store(m_Header->lastFree, record.prevFree);
    } else if (Serious(record.nextFree < m_BlockCount, "m_Hdls[iIndex].nextFree < m_Header->blockCount")) {
        PoolHandleRec& next = m_Hdls[record.nextFree];
        Serious(Load(next.prevFree) == index, "m_Hdls[m_Hdls[iIndex].nextFree].prevFree == iIndex");
        Store(next.prevFree, record.prevFree);
    }
}

// Makes a free run of its own, at the head of the list. Clearing `ref` is what ends a live handle.
void MemoryPool::PushRun(std::uint32_t index, std::uint32_t count) {
    std::uint32_t const first = Load(m_Header->firstFree);
    PoolHandleRec& record = m_Hdls[index];
    Store(record.ref, 0);
    Store(record.size, count);
    Store(record.prevFree, EOL);
    Store(record.nextFree, first < m_BlockCount ? first : EOL);
    if (first < m_BlockCount) {
        Serious(Load(m_Hdls[first].prevFree) == EOL, "m_Hdls[m_Hdls[iIndex].nextFree].prevFree == EOL");
        Store(m_Hdls[first].prevFree, index);
    } else {
        Serious(Load(m_Header->lastFree) == EOL, "m_Header->lastFree == EOL");
        Store(m_Header->lastFree, index);
    }
    Store(m_Header->firstFree, index);
    Add(m_Header->freeCount, 1);
    Add(m_Header->freeSize, count);
}

// Takes a free run right behind the given one into it; returns the blocks that came in.
std::uint32_t MemoryPool::MergeForward(std::uint32_t index, std::uint32_t count) {
    std::uint32_t const next = index + count;
    if (next >= m_BlockCount) {
        return 0;
    }
    Record const run = ReadRecord(next);
    bool const isFreeRun =
        run.ref == 0 && run.first == next && run.size > 0 && run.size <= m_BlockCount - next;
    if (!isFreeRun || !TakeRun(next, run)) {
        return 0;
    }
    SetFirstOfFree(next, run.size, index, count + run.size);
    return run.size;
}

// Gives the run to a free one right before it, which stays where it stands in the list.
bool MemoryPool::MergeBackward(std::uint32_t index, std::uint32_t count) {
    if (index == 0) {
        return false;
    }
    std::uint32_t const head = Load(m_Hdls[index - 1].first);
    if (!Serious(head < index, "prev < iIndex")) {
        return false;
    }
    Record const run = ReadRecord(head);
    if (run.ref != 0 || run.first != head || run.size != index - head) {
        return false;
    }
    SetFirstOfFree(index, count, head, run.size + count);
    Store(m_Hdls[head].size, run.size + count);
    Add(m_Header->freeSize, count);
    return true;
}

// Ascending: the first record written is the one that heads a run, and with it a live handle ends.
void MemoryPool::SetFirst(std::uint32_t index, std::uint32_t count, std::uint32_t head) {
    for (std::uint32_t i = index; i < index + count; ++i) {
        Publish(m_Hdls[i].first, head);
    }
}

// The same for `count` blocks of a free run of `runLength`, at whose end they lie. In a long one the inner
// records keep what they have, which is never their own index.
void MemoryPool::SetFirstOfFree(std::uint32_t index, std::uint32_t count, std::uint32_t head,
                                std::uint32_t runLength) {
    if (runLength <= kExactRunLength) {
        SetFirst(index, count, head);
        return;
    }
    Publish(m_Hdls[index].first, head);
    Store(m_Hdls[index + count - 1].first, head);
}

void MemoryPool::CheckGuards(std::uint32_t index, std::uint32_t bytes) const {
    unsigned char const* const data = BlockData(index);
    Serious(std::memcmp(data, kBeginSign, kGuardSize) == 0,
            "memcmp(m_Data + idx * m_Header->blockSize, kBeginSign, 4) == 0");
    Serious(std::memcmp(data + bytes - kGuardSize, kEndSign, kGuardSize) == 0,
            "memcmp(m_Data + idx * m_Header->blockSize + m_Hdls[idx].size - 4, kEndSign, 4) == 0");
}

}  // namespace System::RPC
