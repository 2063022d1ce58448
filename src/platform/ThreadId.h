#pragma once

#include <cstdint>

namespace System::Platform {

/// The kernel's id of the calling thread: unique on the machine while the thread lives, never 0. Asked of the
/// kernel once for each thread, and again in a forked child.
[[nodiscard]] std::uint32_t CurrentThreadId();

}  // namespace System::Platform
