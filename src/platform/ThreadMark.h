#pragma once

#include <atomic>
#include <cstdint>

namespace System::Platform {

namespace Detail {
[[gnu::tls_model("initial-exec")]] extern constinit thread_local std::uint32_t t_ThreadMark;
std::uint32_t TakeThreadMark();
}  // namespace Detail

/// A number by which the calling thread can be told from all others of the process, those that have ended
/// included; never 0. It fits into a lock's word, and IsThreadAlive tells whether its thread has ended since.
///
/// Processes: in a forked child the thread that forked keeps its mark; all others count as ended.
inline std::uint32_t CurrentThreadMark() {
    std::uint32_t const mark = Detail::t_ThreadMark;
    return mark != 0 ? mark : Detail::TakeThreadMark();
}

/// Whether the thread with this mark lives. Any number may be asked for.
[[nodiscard]] bool IsThreadAlive(std::uint32_t mark);

}  // namespace System::Platform
