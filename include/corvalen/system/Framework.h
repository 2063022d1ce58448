#pragma once

#include <cstdint>

#include "corvalen/Export.h"

/// Starts the library at the first call, on the host's main thread and before it makes any object of the
/// library; later calls count. Always true.
///
/// Threads: InitFramework and ExitFramework are called by one thread at a time, the last ExitFramework by the
/// thread that made the first InitFramework, when no object and no thread of the library is left. A stopped
/// library can be started again.
/// Errors: nothing throws but a failed allocation.
CORVALEN_API bool InitFramework();

/// Takes one InitFramework back; the call that takes back the last one stops the library. One too many is
/// reported, stops nothing, and has to be made up for by an InitFramework that starts nothing. Always true.
CORVALEN_API bool ExitFramework();

/// Milliseconds since the operating system started, in 64 bits: the system's 32-bit count, whose wraps are
/// counted as long as somebody calls at least once in 49 days. Never falls.
///
/// Threads: any, at any time, also while the library is not started.
[[nodiscard]] CORVALEN_API std::uint64_t FBootTime();

/// Copies `src` to the `size` bytes at `dest`, cut to leave room for the NUL that is always written; a `size`
/// of 0 writes nothing. Returns `dest`. A C library's function of this name takes a size_t, and is another
/// one.
CORVALEN_API char* strlcpy(char* dest, char const* src, unsigned int size);
