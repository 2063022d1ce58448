#include "diagnostics/Report.h"

#include <cstdarg>
#include <cstdio>

#include "platform/ErrnoGuard.h"

namespace System::Diagnostics {

namespace {

constexpr std::uint64_t kLibraryComponent = 1;
constexpr std::size_t kTextSize = 1024;

[[gnu::format(printf, 2, 0)]] void PutFormatted(unsigned severity, char const* format, va_list arguments) {
    Platform::ErrnoGuard const keep;
    char text[kTextSize];
    text[0] = '\0';
    std::vsnprintf(text, sizeof text, format, arguments);
    FLog::Put(severity, kLibraryComponent, "ERR", "-", text);
}

}  // namespace

void LogError(char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    PutFormatted(0, format, arguments);
    va_end(arguments);
}

void LogWarning(char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    PutFormatted(1, format, arguments);
    va_end(arguments);
}

void LogInfo(char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    PutFormatted(2, format, arguments);
    va_end(arguments);
}

void CDebug::Assert(bool serious, char const* expression, char const* file, int line) {
    auto* const report = serious ? LogError : LogWarning;
    report("%s (%s:%i)", expression, file, line);
}

}  // namespace System::Diagnostics
