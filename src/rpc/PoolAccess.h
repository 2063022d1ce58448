#pragma once

#include <atomic>
#include <cstdint>

#include "corvalen/rpc/MemoryPool.h"
#include "diagnostics/Report.h"
#include "platform/FaultPoint.h"
#include "rpc/PoolFormat.h"

// Two kinds of disorder have to be lived with. A peer that breaks the rules may write into the block at any
// moment: so each field is read once, the copy is checked and the copy is used. A peer may also die between
// any two writes: so a live handle is told from the rest by its own record alone (IsLive), a record becomes
// one by a single last write and stops being one by a single first write, and Rebuild makes all else from
// those.

namespace System::RPC {

struct MemoryPool::Record {
    std::uint32_t first;
    std::uint32_t ref;
    std::uint32_t size;
    std::uint32_t nextFree;
    std::uint32_t prevFree;
};

namespace PoolAccess {

constexpr unsigned kIndexBits = 16;
constexpr std::uint32_t kReferenceMask = 0xFFFF;

inline bool Serious(bool holds, char const* expression, int line = __builtin_LINE()) {
    return Diagnostics::Verify(holds, Diagnostics::Gravity::kSerious, expression, "MemoryPool", line);
}

inline bool Minor(bool holds, char const* expression, int line = __builtin_LINE()) {
    return Diagnostics::Verify(holds, Diagnostics::Gravity::kMinor, expression, "MemoryPool", line);
}

template <typename Field>
std::uint32_t Load(Field& field) {
    return std::atomic_ref(field).load(std::memory_order_relaxed);
}

template <typename Field>
void Store(Field& field, std::uint32_t value) {
    CORVALEN_FAULT("pool.write");
    std::atomic_ref(field).store(static_cast<Field>(value), std::memory_order_relaxed);
}

// Keeps its place behind all earlier writes, for whoever looks after our death.
template <typename Field>
void Publish(Field& field, std::uint32_t value) {
    CORVALEN_FAULT("pool.write");
    std::atomic_ref(field).store(static_cast<Field>(value), std::memory_order_release);
}

inline void Add(std::uint16_t& counter, std::uint32_t count) {
    Store(counter, Load(counter) + count);
}

inline void Subtract(std::uint16_t& counter, std::uint32_t count) {
    std::uint32_t const value = Load(counter);
    Store(counter, value >= count ? value - count : 0);
}

}  // namespace PoolAccess

}  // namespace System::RPC
