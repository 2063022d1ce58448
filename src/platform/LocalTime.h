#pragma once

#include <cstddef>
#include <ctime>

namespace System::Platform {

/// Writes the local time of `time` (seconds since 1970) into `buffer` as strftime's `format` says; a text
/// that does not fit becomes empty. Follows a change of TZ or of the machine's zone. Returns its length.
std::size_t FormatLocalTime(char* buffer, std::size_t size, char const* format, std::time_t time);

}  // namespace System::Platform
