#pragma once

#include "corvalen/diagnostics/Log.h"

namespace System::Diagnostics {

// How the library writes lines of its own: component bit 0, name "ERR", context "-", at most 1023 characters
// of text. They keep errno as it is.
[[gnu::format(printf, 1, 2)]] void LogError(char const* format, ...);
[[gnu::format(printf, 1, 2)]] void LogWarning(char const* format, ...);
[[gnu::format(printf, 1, 2)]] void LogInfo(char const* format, ...);

enum class Gravity : bool { kMinor = false, kSerious = true };

// Reports the invariant `expression` through CDebug::Assert unless it `holds`; returns `holds`, so that the
// caller can refuse to go on with what it can't trust.
inline bool Verify(bool holds, Gravity gravity, char const* expression, char const* source,
                   int line = __builtin_LINE()) {
    if (!holds) [[unlikely]] {
        CDebug::Assert(gravity == Gravity::kSerious, expression, source, line);
    }
    return holds;
}

}  // namespace System::Diagnostics
