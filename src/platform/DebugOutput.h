#pragma once

#include "corvalen/platform/DebugOutput.h"

namespace System::Platform {

/// Hands `length` bytes at `text` to the debug sink in one call.
void DebugOutput(char const* text, std::size_t length);

/// Whether a debugger traces this process now.
[[nodiscard]] bool IsDebuggerAttached();

/// Stops the calling thread in an attached debugger; does nothing without one.
void DebugBreak();

}  // namespace System::Platform
