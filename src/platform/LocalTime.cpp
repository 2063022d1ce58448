#include "platform/LocalTime.h"

#include "platform/StopDelay.h"

namespace System::Platform {

std::size_t FormatLocalTime(char* buffer, std::size_t size, char const* format, std::time_t time) {
    // The zone has a lock of the system's, which a stopped thread would keep.
    StopDelay const delay;
    std::tm parts{};
    // localtime_r by itself looks at the zone only once in a process.
    ::tzset();
    std::size_t const length =
        ::localtime_r(&time, &parts) != nullptr ? std::strftime(buffer, size, format, &parts) : 0;
    buffer[length] = '\0';
    return length;
}

}  // namespace System::Platform
