#pragma once

#include <cstdint>

namespace System::Platform {

/// Sleeps while `word` holds `expected`, at most `timeoutNs` nanoseconds of the monotonic clock
/// (Deadline::kNever: without limit). Returns at a wake-up, when the word has another value, when the time is
/// up, and at times for no reason: the caller looks again. `isShared`: whether other processes wake it.
void FutexWait(std::uint32_t& word, std::uint32_t expected, std::int64_t timeoutNs, bool isShared);
/// Wakes at most `count` sleepers. Touches no memory behind `word`, so the word may be gone by now.
void FutexWake(std::uint32_t& word, int count, bool isShared);

}  // namespace System::Platform
