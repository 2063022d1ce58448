#include "corvalen/collection/DataBlockLinkedList.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "collection/MonitorGuard.h"
#include "diagnostics/Report.h"

namespace System::Collection {

namespace {

using FDataBlock = FDataBlockLinkedList::FDataBlock;

constexpr std::uint64_t kMaxBlockLength = std::numeric_limits<std::uint32_t>::max();

// A list keeps a few of the small blocks that it drops: a queue that is filled and drained then does without
// the allocator. Their room is rounded up, so that one does for pieces of about its size.
constexpr std::uint32_t kSpareStep = 64;
constexpr std::uint32_t kMaxSpareCapacity = 256;
constexpr std::uint32_t kMaxSpares = 16;

std::uint32_t CapacityFor(std::uint32_t length) {
    return length <= kMaxSpareCapacity ? (std::max(length, 1U) + kSpareStep - 1) / kSpareStep * kSpareStep
                                       : length;
}

void FreeChain(FDataBlock* first) {
    while (first != nullptr) {
        delete std::exchange(first, first->m_Next);
    }
}

// A chain under construction: freed if an allocation fails half-way.
class Chain {
public:
    Chain() = default;
    ~Chain() { FreeChain(m_First); }
    Chain(Chain const&) = delete;
    Chain& operator=(Chain const&) = delete;

    void Append(unsigned char const* data, std::uint32_t length) {
        *m_End = FDataBlock::Create(data, length);
        m_End = &(*m_End)->m_Next;
    }
    // Hands the chain to the caller.
    FDataBlock* Take() { return std::exchange(m_First, nullptr); }

private:
    FDataBlock* m_First = nullptr;
    FDataBlock** m_End = &m_First;
};

// Copies whole blocks, what was consumed of them included.
FDataBlock* CopyOf(FDataBlock const* block) {
    Chain chain;
    for (; block != nullptr; block = block->m_Next) {
        chain.Append(block->m_Data, block->m_Length);
    }
    return chain.Take();
}

// Cuts bytes that are too many for the length of one block.
FDataBlock* BlocksOf(unsigned char const* data, std::uint64_t length) {
    Chain chain;
    for (std::uint64_t done = 0; done < length;) {
        auto const piece = static_cast<std::uint32_t>(std::min(length - done, kMaxBlockLength));
        chain.Append(data + done, piece);
        done += piece;
    }
    return chain.Take();
}

}  // namespace

FDataBlock* FDataBlockLinkedList::FDataBlock::Create(unsigned char const* data, std::uint32_t length) {
    std::uint32_t const capacity = CapacityFor(length);
    return new (capacity) FDataBlock(data, length, capacity);
}

FDataBlockLinkedList::FDataBlock::FDataBlock(unsigned char const* data, std::uint32_t length,
                                             std::uint32_t capacity)
    : m_Data(reinterpret_cast<unsigned char*>(this + 1)), m_Capacity(capacity) {
    Fill(data, length);
}

void FDataBlockLinkedList::FDataBlock::Fill(unsigned char const* data, std::uint32_t length) {
    m_Length = length;
    m_Offset = 0;
    m_Next = nullptr;
    if (length != 0) {
        std::memcpy(m_Data, data, length);
    }
}

FDataBlockLinkedList::FDataBlock::~FDataBlock() = default;

void* FDataBlockLinkedList::FDataBlock::operator new(std::size_t size, std::uint32_t capacity) {
    return ::operator new(size + capacity);
}

void FDataBlockLinkedList::FDataBlock::operator delete(void* memory, std::uint32_t) {
    ::operator delete(memory);
}

void FDataBlockLinkedList::FDataBlock::operator delete(void* memory) {
    ::operator delete(memory);
}

FDataBlockLinkedList::FDataBlockLinkedList() = default;

FDataBlockLinkedList::FDataBlockLinkedList(FDataBlock* first, FDataBlock* last)
    : m_First(first), m_Last(last) {
    for (; first != nullptr; first = first->m_Next) {
        m_FullLength += first->Remainder();
    }
}

FDataBlockLinkedList::~FDataBlockLinkedList() {
    Release();
}

FDataBlock* FDataBlockLinkedList::NewBlock(unsigned char const* data, std::uint32_t length) {
    if (m_Spares == nullptr || m_Spares->m_Capacity < length) {
        return FDataBlock::Create(data, length);
    }
    FDataBlock* const block = std::exchange(m_Spares, m_Spares->m_Next);
    --m_SpareCount;
    block->Fill(data, length);
    return block;
}

void FDataBlockLinkedList::Retire(FDataBlock* block) {
    if (block->m_Capacity > kMaxSpareCapacity || m_SpareCount == kMaxSpares) {
        delete block;
        return;
    }
    block->m_Next = std::exchange(m_Spares, block);
    ++m_SpareCount;
}

void FDataBlockLinkedList::Append(FDataBlock* first) {
    (m_First == nullptr ? m_First : m_Last->m_Next) = first;
    for (; first != nullptr; first = first->m_Next) {
        m_FullLength += first->Remainder();
        m_Last = first;
    }
}

// From the blocks themselves, whose offsets a derived class may have moved.
void FDataBlockLinkedList::CountAfresh() {
    m_FullLength = 0;
    for (FDataBlock* block = m_First; block != nullptr; block = block->m_Next) {
        m_FullLength += block->Remainder();
        m_Last = block;
    }
}

void FDataBlockLinkedList::Add(unsigned char const* data, std::uint64_t length) {
    MonitorGuard const guard(m_Monitor);
    Append(length <= kMaxBlockLength ? NewBlock(data, static_cast<std::uint32_t>(length))
                                     : BlocksOf(data, length));
}

void FDataBlockLinkedList::Add(FDataBlockLinkedList* other) {
    // The other monitor is left alone, so that two lists that add each other can't wait for each other.
    MonitorGuard const guard(m_Monitor);
    if (FDataBlock* const copies = CopyOf(other->m_First)) {
        (m_First == nullptr ? m_First : m_Last->m_Next) = copies;
        CountAfresh();
    }
}

void FDataBlockLinkedList::Release() {
    MonitorGuard const guard(m_Monitor);
    m_Last = nullptr;
    m_FullLength = 0;
    m_SpareCount = 0;
    FreeChain(std::exchange(m_Spares, nullptr));
    FreeChain(std::exchange(m_First, nullptr));
}

std::int64_t FDataBlockLinkedList::GetFullDataLength() {
    MonitorGuard const guard(m_Monitor);
    return m_FullLength;
}

bool FDataBlockLinkedList::GetDataBlock(unsigned char* buffer, std::uint64_t maximum, std::uint64_t& copied) {
    copied = 0;
    MonitorGuard const guard(m_Monitor);
    if (m_FullLength <= 0) {
        return false;
    }
    for (FDataBlock const* block = m_First; block != nullptr && copied < maximum; block = block->m_Next) {
        auto const piece = std::min(static_cast<std::uint64_t>(block->Remainder()), maximum - copied);
        std::copy_n(block->m_Data + block->m_Offset, piece, buffer + copied);
        copied += piece;
    }
    return copied > 0;
}

void FDataBlockLinkedList::DropFirst() {
    FDataBlock* const dropped = std::exchange(m_First, m_First->m_Next);
    if (m_First == nullptr) {
        m_Last = nullptr;
        m_FullLength = 0;
    }
    Retire(dropped);
}

bool FDataBlockLinkedList::NextDataElement(unsigned char* value) {
    *value = 0;
    MonitorGuard const guard(m_Monitor);
    if (m_FullLength <= 0) {
        return false;
    }
    while (m_First != nullptr && m_First->Remainder() == 0) {
        DropFirst();
    }
    if (m_First == nullptr) {
        return false;
    }
    *value = m_First->m_Data[m_First->m_Offset++];
    // A block that gave its last byte stays until the next read, unless that was the last byte of all.
    if (--m_FullLength <= 0) {
        DropFirst();
    }
    return true;
}

bool FDataBlockLinkedList::ReleaseDataBlock(std::uint64_t length) {
    MonitorGuard const guard(m_Monitor);
    if (m_FullLength <= 0) {
        return false;
    }
    std::uint64_t left = length;
    while (m_First != nullptr) {
        auto const piece = std::min(left, static_cast<std::uint64_t>(m_First->Remainder()));
        m_First->m_Offset += static_cast<std::uint32_t>(piece);
        m_FullLength -= static_cast<std::int64_t>(piece);
        left -= piece;
        if (m_First->Remainder() > 0) {
            if (left != 0) {
                Diagnostics::LogError(
                    "FDataBlockLinkedList::ReleaseDataBlock - the current data block is not empty and "
                    "the data to release are not NULL.");
            }
            break;
        }
        DropFirst();
        if (left == 0) {
            break;
        }
    }
    m_FullLength = std::max<std::int64_t>(m_FullLength, 0);
    return left == 0;
}

// Before all that came in the meantime.
void FDataBlockLinkedList::PutBack(FDataBlock* first, FDataBlock* last) {
    MonitorGuard const guard(m_Monitor);
    last->m_Next = std::exchange(m_First, first);
    CountAfresh();
}

bool FDataBlockLinkedList::PopDataList_NF(FDataBlockLinkedList*& list) {
    list = nullptr;
    FDataBlock* first = nullptr;
    FDataBlock* last = nullptr;
    {
        MonitorGuard const guard(m_Monitor);
        first = std::exchange(m_First, nullptr);
        last = std::exchange(m_Last, nullptr);
        m_FullLength = 0;
    }
    if (first == nullptr) {
        return false;
    }
    try {
        list = new FDataBlockLinkedList(first, last);
    } catch (...) {
        PutBack(first, last);
        throw;
    }
    return true;
}

}  // namespace System::Collection
