#pragma once

#include <cstddef>

#include "corvalen/Export.h"

namespace System::Platform {

/// Receives what the library hands to a debugger: `length` bytes at `text`, as they are, without a line end
/// added. Runs on the thread that writes, on several at once.
using DebugSink = void (*)(char const* text, std::size_t length);

/// Puts `sink` in the place of the present one; null brings back the default, which writes the bytes to
/// standard error. Any thread; a write that is under way may still reach the old sink.
CORVALEN_API void ReplaceDebugSink(DebugSink sink);

}  // namespace System::Platform
