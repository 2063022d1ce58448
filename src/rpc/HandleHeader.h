#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Clock.h"

namespace System::RPC {

// What a channel keeps in front of the payload of each handle. Other processes read these bytes: they never
// change.
struct HandleHeaderRec {
    std::uint32_t time;      // when it was last sent, seconds since 1970; 0 until then
    std::uint32_t endpoint;  // where to: who must dispose of it; 0 until then
};
static_assert(sizeof(HandleHeaderRec) == 8);

namespace HandleHeader {

// Field by field: a purge may read while the owner writes. An allocation begins on a multiple of 4.
inline void Store(void* data, HandleHeaderRec const& header) {
    auto& rec = *static_cast<HandleHeaderRec*>(data);
    std::atomic_ref(rec.time).store(header.time, std::memory_order_relaxed);
    std::atomic_ref(rec.endpoint).store(header.endpoint, std::memory_order_relaxed);
}

inline HandleHeaderRec Load(void* data) {
    auto& rec = *static_cast<HandleHeaderRec*>(data);
    return {std::atomic_ref(rec.time).load(std::memory_order_relaxed),
            std::atomic_ref(rec.endpoint).load(std::memory_order_relaxed)};
}

inline std::uint32_t Now() {
    return static_cast<std::uint32_t>(Platform::Clock::WallSeconds());
}

}  // namespace HandleHeader

}  // namespace System::RPC
