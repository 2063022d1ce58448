#include "platform/DebugOutput.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "platform/FileDescriptor.h"
#include "platform/Retry.h"

namespace System::Platform {

namespace {

void WriteToStandardError(char const* text, std::size_t length) {
    while (length > 0) {
        auto const written = RetryOnInterrupt([&] { return ::write(STDERR_FILENO, text, length); });
        if (written <= 0) {
            // Nobody is left to be told: this is the last resort of the reports themselves.
            return;
        }
        text += written;
        length -= static_cast<std::size_t>(written);
    }
}

std::atomic<DebugSink> s_Sink{WriteToStandardError};

}  // namespace

void ReplaceDebugSink(DebugSink sink) {
    s_Sink.store(sink != nullptr ? sink : WriteToStandardError, std::memory_order_release);
}

void DebugOutput(char const* text, std::size_t length) {
    s_Sink.load(std::memory_order_acquire)(text, length);
}

bool IsDebuggerAttached() {
    // "TracerPid:" stands within the first lines of the status, so that one read has it.
    static constexpr char kKey[] = "\nTracerPid:";
    char status[4096];
    FileDescriptor const file(
        RetryOnInterrupt([] { return ::open("/proc/self/status", O_RDONLY | O_CLOEXEC); }));
    if (!file.IsOpen()) {
        return false;
    }
    auto const got = RetryOnInterrupt([&] { return ::read(file.Get(), status, sizeof status - 1); });
    if (got <= 0) {
        return false;
    }
    status[got] = '\0';
    char const* const tracer = std::strstr(status, kKey);
    return tracer != nullptr && std::strtol(tracer + sizeof kKey - 1, nullptr, 10) != 0;
}

void DebugBreak() {
    if (IsDebuggerAttached()) {
        static_cast<void>(::raise(SIGTRAP));
    }
}

}  // namespace System::Platform
