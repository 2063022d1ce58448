#pragma once

#include "corvalen/Export.h"

/// A counted wide string: NUL-terminated 16-bit units with their size in bytes, terminator left out, in the
/// four bytes before the first unit. A null pointer stands for the empty string.
///
/// Ownership: only SysFreeString releases one.
/// Errors: nothing throws; memory that is not to be had gives null.
using BSTR = char16_t*;

/// A new string with the units of `text` up to its terminator; null for null.
[[nodiscard]] CORVALEN_API BSTR SysAllocString(char16_t const* text);
/// A new string of exactly `units` units, copied from `text`, zeros among them too. With a null `text` they
/// are left for the caller to fill; the terminator is there already.
[[nodiscard]] CORVALEN_API BSTR SysAllocStringLen(char16_t const* text, unsigned int units);
/// Releases what the two above gave; null is ignored.
CORVALEN_API void SysFreeString(BSTR text);
/// The units of `text` without the terminator, as counted and not as searched; 0 for null.
[[nodiscard]] CORVALEN_API unsigned int SysStringLen(BSTR text);
