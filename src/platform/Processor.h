#pragma once

#include <cstdint>

namespace System::Platform {

/// The processor that the calling thread runs on, plus 1; 0 if the system does not tell.
[[nodiscard]] std::uint32_t CurrentProcessor();
/// How many processors the calling thread may run on, at least 1.
[[nodiscard]] unsigned UsableProcessors();
/// How many processors the machine had when this was first asked, at least 1.
[[nodiscard]] unsigned MachineProcessors();
/// Lets whoever else is ready to run on this processor go first.
void YieldProcessor();
/// Tells the processor that this is a loop that waits.
inline void Relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ volatile("isb");
#endif
}

}  // namespace System::Platform
