#pragma once

#include <cstdint>

#include "corvalen/Export.h"

namespace System::RPC {

struct PoolHandleRec;
struct PoolHeaderRec;

/// A heap of handles that lives entirely inside a block of memory that it is given.
///
/// The block holds indices and byte counts, no pointers: processes that map the same region see one heap,
/// each at its own address, and a handle means the same to all of them. Memory is given out in runs of equal
/// blocks, best fit, and a freed run merges with both neighbours. Guard words around each allocation are
/// checked when it is freed. docs/formats/pool.md draws the block.
///
/// A handle has a reference number in its high 16 bits and the index of its first block in the low 16; 0
/// means no handle. A handle that was disposed of stops being valid at once.
///
/// Ownership: the memory stays the caller's, and outlives the object. The object is a view; several objects
/// in several processes may view one pool. Destroying one changes nothing in the pool, and logs how many
/// handles live on, if any do. Threads, Processes: no lock inside. The caller excludes all others, in all
/// processes, for the length of each operation. Errors: nothing throws. A broken invariant is reported, and
/// the operation touches nothing that it can't trust: whatever a peer writes into the block, no operation
/// leaves the block or fails to end.
class CORVALEN_API MemoryPool {
public:
    /// Bytes that a pool of `blockCount` blocks of `blockSize` bytes takes, modulo 2^32.
    [[nodiscard]] static std::uint32_t CalculateSize(std::uint16_t blockSize, std::uint16_t blockCount);

    /// Formats a new pool in `memory`, which holds CalculateSize() bytes, aligned to 4. Whatever was there is
    /// gone. A size that does not fit 32 bits writes nothing, and every operation of the object fails.
    MemoryPool(std::uint16_t blockSize, std::uint16_t blockCount, void* memory);
    /// Attaches to a pool that was formatted earlier, and changes nothing in it. `memory` holds the whole
    /// pool as its header tells it, aligned to 4. A block that is no pool is reported, and every operation of
    /// the object fails without touching it.
    explicit MemoryPool(void* memory);
    virtual ~MemoryPool();
    MemoryPool(MemoryPool const&) = delete;
    MemoryPool& operator=(MemoryPool const&) = delete;

    /// Allocates `size` bytes, which are not cleared. Returns 0, with nothing changed, if no free run is long
    /// enough.
    [[nodiscard]] std::uint32_t NewHandle(std::uint32_t size);
    /// Frees; an invalid handle is ignored. An overwritten guard word is reported, and the handle freed.
    void DisposeHandle(std::uint32_t handle);

    /// Whether `handle` is a live allocation of this pool; one operation under two names.
    [[nodiscard]] bool CheckHandle(std::uint32_t handle) const;
    [[nodiscard]] bool IsValidHandle(std::uint32_t handle) const;

    /// The number of bytes that was requested; 0 for an invalid handle.
    [[nodiscard]] std::uint32_t HandleSize(std::uint32_t handle) const;
    /// The first of the caller's bytes; null for an invalid handle.
    [[nodiscard]] void* HandleData(std::uint32_t handle) const;

    /// Calls `proc` for each live handle, by rising index. `proc` may read handles; it must not allocate or
    /// dispose, so collect there and free after the walk.
    void DoForEach(void (*proc)(MemoryPool* pool, std::uint32_t handle, void* context), void* context);

    /// Do nothing.
    void SetName(char16_t const* name);
    void Check();

protected:
    friend class RpcChannel;

    /// Takes the free run with head `iIndex` off the free list.
    void UseBlock(std::uint32_t iIndex);
    /// Makes `iCount` blocks from `iIndex` on into free space, joined to free neighbours if `merge`.
    void FreeBlock(std::uint32_t iIndex, std::uint32_t iCount, bool merge);

    /// Whether this is a usable pool of just this shape, so that its length is CalculateSize() of the two.
    [[nodiscard]] bool HasGeometry(std::uint16_t blockSize, std::uint16_t blockCount) const;
    /// The header field `filler`, which the pool itself never reads; 0 if the pool is unusable.
    [[nodiscard]] std::uint16_t LockTag() const;
    void SetLockTag(std::uint16_t tag);
    /// Makes the free list and the counters anew from the live handles alone, which an operation cut off at
    /// any instruction leaves intact. For whoever finds that a process died inside the lock.
    void Rebuild();

private:
    struct Record;

    [[nodiscard]] Record ReadRecord(std::uint32_t index) const;
    [[nodiscard]] std::uint32_t BlocksOf(std::uint32_t bytes) const;
    [[nodiscard]] std::uint32_t RunLength(std::uint32_t index, Record const& record) const;
    [[nodiscard]] bool IsLive(std::uint32_t index, Record const& record) const;
    [[nodiscard]] bool FindLive(std::uint32_t handle, Record& record) const;
    [[nodiscard]] std::uint32_t FindBestFit(std::uint32_t blocks) const;
    [[nodiscard]] std::uint32_t NextReference();
    [[nodiscard]] std::uint32_t Occupy(std::uint32_t index, std::uint32_t size);
    [[nodiscard]] unsigned char* BlockData(std::uint32_t index) const;

    bool TakeRun(std::uint32_t index, Record const& record);
    void Unlink(std::uint32_t index, Record const& record);
    void PushRun(std::uint32_t index, std::uint32_t count);
    [[nodiscard]] std::uint32_t MergeForward(std::uint32_t index, std::uint32_t count);
    [[nodiscard]] bool MergeBackward(std::uint32_t index, std::uint32_t count);
    void SetFirst(std::uint32_t index, std::uint32_t count, std::uint32_t head);
    void SetFirstOfFree(std::uint32_t index, std::uint32_t count, std::uint32_t head,
                        std::uint32_t runLength);
    void ReclaimGap(std::uint32_t begin, std::uint32_t end);
    void CheckGuards(std::uint32_t index, std::uint32_t bytes) const;
    void Bind(void* memory, std::uint16_t blockSize, std::uint16_t blockCount);
    void Format(std::uint16_t blockSize, std::uint16_t blockCount);

    unsigned char* m_Data = nullptr;
    PoolHeaderRec* m_Header = nullptr;
    PoolHandleRec* m_Hdls = nullptr;
    // The shape as it was checked, so that no later change of the header moves a bound. A block count of 0
    // makes every operation fail.
    std::uint32_t m_BlockSize = 0;
    std::uint32_t m_BlockCount = 0;
    bool m_IsUsable = false;
};

}  // namespace System::RPC
