#pragma once

#include <cstddef>
#include <cstdint>

#include "corvalen/Export.h"
#include "corvalen/threading/Monitor.h"

namespace System::Collection {

/// A byte queue made of blocks: one side appends buffers, the other peeks, uses and releases.
///
///     list.Add(data, length);                     // copies, one block
///     if (list.GetDataBlock(buffer, sizeof buffer, copied)) {
///         list.ReleaseDataBlock(Parse(buffer, copied));   // consume only what was understood
///     }
///
/// A block with nothing left stays in the list until a read or a release passes it, so a list of 0 bytes may
/// still hold blocks.
///
/// Threads: any thread may call any public method; each holds the list's monitor for its whole length. A peek
/// and the release that follows it are two operations, so whoever uses that pattern is the only reader.
/// Ownership: bytes are copied in and out; the list owns its blocks.
/// Errors: nothing throws but a failed allocation (std::bad_alloc), which leaves the list as it was.
class CORVALEN_API FDataBlockLinkedList {
public:
    /// One block and its bytes, in a single piece of memory. Released with `delete`.
    class CORVALEN_API FDataBlock {
    public:
        /// A new block with a copy of the `length` bytes at `data`, none of them consumed, and no next block.
        /// The caller owns it.
        [[nodiscard]] static FDataBlock* Create(unsigned char const* data, std::uint32_t length);
        virtual ~FDataBlock();
        FDataBlock(FDataBlock const&) = delete;
        FDataBlock& operator=(FDataBlock const&) = delete;

        /// Releases the block's memory together with that of its bytes.
        static void operator delete(void* memory);

        /// Bytes that can still be read; never below 0.
        [[nodiscard]] std::int64_t Remainder() const {
            return m_Offset < m_Length ? std::int64_t{m_Length} - m_Offset : 0;
        }

        unsigned char* m_Data;   ///< The bytes; they lie behind the block and go with it.
        std::uint32_t m_Length;  ///< Bytes at m_Data.
        std::uint32_t m_Offset;  ///< How many of them were consumed; never above m_Length.
        FDataBlock* m_Next;      ///< The next block, or null at the end.

    private:
        friend class FDataBlockLinkedList;

        static void* operator new(std::size_t size, std::uint32_t capacity);
        static void operator delete(void* memory, std::uint32_t capacity);
        FDataBlock(unsigned char const* data, std::uint32_t length, std::uint32_t capacity);
        void Fill(unsigned char const* data, std::uint32_t length);

        std::uint32_t m_Capacity;  // bytes for which there is room at m_Data
    };

    FDataBlockLinkedList();
    virtual ~FDataBlockLinkedList();
    FDataBlockLinkedList(FDataBlockLinkedList const&) = delete;
    FDataBlockLinkedList& operator=(FDataBlockLinkedList const&) = delete;

    /// Appends a copy of the `length` bytes at `data` as one new block, an empty one for a length of 0. What
    /// does not fit the 32-bit length of a block becomes several blocks.
    /// Requires: `data` is set unless `length` is 0.
    void Add(unsigned char const* data, std::uint64_t length);
    /// Appends copies of all blocks of `other`, whole: bytes that were already consumed there are unread in
    /// the copies. `other` stays as it is, and may be this list.
    /// Requires: `other` is set, and nobody changes it during the call; its monitor is not taken.
    void Add(FDataBlockLinkedList* other);
    /// Drops everything; the list can be used on.
    void Release();

    /// Bytes that a reader can still get, not those ever added.
    [[nodiscard]] std::int64_t GetFullDataLength();
    /// Copies at most `maximum` bytes from the front to `buffer` and consumes none. Sets `copied` to their
    /// number; true if that is above 0.
    bool GetDataBlock(unsigned char* buffer, std::uint64_t maximum, std::uint64_t& copied);
    /// Consumes one byte into `value`; false, with `value` 0, when there is none.
    bool NextDataElement(unsigned char* value);
    /// Consumes `length` bytes. False if there were none, or fewer than that; then all are gone.
    /// A length of 0 drops a first block that has nothing left; true if there are bytes.
    bool ReleaseDataBlock(std::uint64_t length);
    /// Moves all blocks, with what was consumed of them, to a new list that the caller deletes. False, with
    /// `list` null, if there is no block; true also for blocks of 0 bytes.
    bool PopDataList_NF(FDataBlockLinkedList*& list);

protected:
    /// Adopts the chain from `first` to `last`, made with FDataBlock::Create.
    FDataBlockLinkedList(FDataBlock* first, FDataBlock* last);

    /// The first block or null, read without the monitor.
    [[nodiscard]] FDataBlock* get_FirstBlock() const { return m_First; }

private:
    FDataBlock* NewBlock(unsigned char const* data, std::uint32_t length);
    void Retire(FDataBlock* block);
    void Append(FDataBlock* first);
    void CountAfresh();
    void DropFirst();
    void PutBack(FDataBlock* first, FDataBlock* last);

    FDataBlock* m_First = nullptr;
    FDataBlock* m_Last = nullptr;
    std::int64_t m_FullLength = 0;
    System::Threading::CMonitor m_Monitor;
    FDataBlock* m_Spares = nullptr;  // dropped small blocks, for the next Add; guarded by m_Monitor too
    std::uint32_t m_SpareCount = 0;
};

}  // namespace System::Collection
