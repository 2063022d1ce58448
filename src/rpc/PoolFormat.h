#pragma once

#include <cstddef>
#include <cstdint>

namespace System::RPC {

// Processes of other builds read these bytes: they never change. docs/formats/pool.md draws them.

constexpr std::uint32_t kSignature = 0xC5F708A3;
// Ends the free list in both directions; never the index of a block.
constexpr std::uint16_t EOL = 0xFFFF;

constexpr std::size_t kGuardSize = 4;
constexpr char kBeginSign[kGuardSize + 1] = "Beg<";
constexpr char kEndSign[kGuardSize + 1] = ">End";
constexpr std::uint32_t kGuardBytes = 2 * kGuardSize;

// Free runs up to this length keep `first` right in every block. In a longer one only the head and the last
// block do: a pool is mostly one long free run, and to write thousands of records for each message would cost
// more than all the rest.
constexpr std::uint32_t kExactRunLength = 64;

struct PoolHeaderRec {
    std::uint32_t signature;   // kSignature
    std::uint32_t len;         // bytes of the whole pool
    std::uint16_t blockSize;   // bytes of a block
    std::uint16_t blockCount;  // blocks of the pool
    std::uint16_t nextRef;     // reference number of the next allocation, never 0
    std::uint16_t filler;      // tag of the lock holder; not read by the pool
    std::uint16_t firstFree;   // head of the first free run, or EOL
    std::uint16_t lastFree;    // head of the last free run, or EOL
    std::uint16_t freeSize;    // free blocks
    std::uint16_t usedSize;    // allocated blocks
    std::uint16_t freeCount;   // free runs
    std::uint16_t usedCount;   // live handles
};
static_assert(sizeof(PoolHeaderRec) == 28 && offsetof(PoolHeaderRec, firstFree) == 16);

struct PoolHandleRec {
    std::uint16_t first;     // head of the run that this block belongs to
    std::uint16_t ref;       // in a head: 0 in a free run, else the allocation's reference number
    std::uint32_t size;      // in a head: blocks of a free run, bytes of an allocation with its guard words
    std::uint16_t nextFree;  // in the head of a free run: the next one on the free list, or EOL
    std::uint16_t prevFree;  // in the head of a free run: the one before it, or EOL
};
static_assert(sizeof(PoolHandleRec) == 12 && offsetof(PoolHandleRec, nextFree) == 8);

}  // namespace System::RPC
