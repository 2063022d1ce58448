#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Bench {

/// One heap of memory that processes share. A block is a number that Free takes back; 0 means none.
struct Heap {
    std::string name;
    std::function<std::uint64_t(std::uint32_t size)> allocate;
    std::function<void(std::uint64_t block)> free;
};

/// Bytes that each heap manages: those of a channel.
constexpr std::size_t kHeapSize = std::size_t{256} * 4096;

/// The heaps of Boost.Interprocess, each with the lock that it brings along; left out where it is missing.
std::vector<Heap> BoostHeaps();

}  // namespace Bench
