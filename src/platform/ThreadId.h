#pragma once

#include <cstdint>

#include "platform/ProcessEpoch.h"

namespace System::Platform {

namespace Detail {

struct CachedThreadId {
    std::uint32_t id;
    std::uint32_t epoch;  // 0 until the first call; no process has that epoch
};
[[gnu::tls_model("initial-exec")]] extern constinit thread_local CachedThreadId t_ThreadId;

std::uint32_t AskForThreadId(std::uint32_t epoch);

}  // namespace Detail

/// The kernel's id of the calling thread: unique on the machine while the thread lives, never 0. Asked of the
/// kernel once for each thread, and again in a forked child.
[[nodiscard]] inline std::uint32_t CurrentThreadId() {
    std::uint32_t const epoch = ProcessEpoch();
    return Detail::t_ThreadId.epoch == epoch ? Detail::t_ThreadId.id : Detail::AskForThreadId(epoch);
}

}  // namespace System::Platform
