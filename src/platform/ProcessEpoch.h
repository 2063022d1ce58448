#pragma once

#include <atomic>
#include <cstdint>

namespace System::Platform {

/// The number in a process that no fork has made since the library was loaded.
constexpr std::uint32_t kFirstProcessEpoch = 1;

namespace Detail {
extern std::atomic<std::uint32_t> s_ProcessEpoch;
}

/// A number that changes in the child of a fork: whoever keeps something that is true of one process only (a
/// thread id, a descriptor, a participant number) keeps it with this number, and drops it when they differ.
/// Safe on any thread and in a forked child, before its first lock.
inline std::uint32_t ProcessEpoch() {
    return Detail::s_ProcessEpoch.load(std::memory_order_relaxed);
}

}  // namespace System::Platform
