#include "corvalen/system/Framework.h"

#include <atomic>
#include <cstring>

#include "corvalen/diagnostics/Log.h"
#include "corvalen/diagnostics/Trace.h"
#include "corvalen/text/GsmConv.h"
#include "corvalen/text/Latin1Conv.h"
#include "corvalen/text/NativeConv.h"
#include "corvalen/text/UcsConv.h"
#include "corvalen/text/UcsHexConv.h"
#include "corvalen/threading/ComThread.h"
#include "diagnostics/Report.h"
#include "platform/Clock.h"

namespace {

using namespace System;

using Step = void (*)();

// The list of threads and the log come first and go last: the others report while they start and stop.
constexpr Step kStart[] = {
    Threading::CComThread::Init, Diagnostics::FLog::Init, Diagnostics::CTrace::Init, Text::UcsConv::Init,
    Text::UcsHexConv::Init,      Text::GsmConv::Init,     Text::Latin1Conv::Init,    Text::NativeConv::Init,
};
constexpr Step kStop[] = {
    Text::NativeConv::Terminate,  Text::Latin1Conv::Terminate,      Text::UcsHexConv::Terminate,
    Text::UcsConv::Terminate,     Text::GsmConv::Terminate,         Diagnostics::CTrace::Terminate,
    Diagnostics::FLog::Terminate, Threading::CComThread::Terminate,
};

constexpr unsigned kTickBits = 32;

constinit int s_InitCount = 0;
// The upper half counts the wraps of the tick count, the lower is the tick count of the last reading.
constinit std::atomic<std::uint64_t> s_LastBootTime{0};

}  // namespace

bool InitFramework() {
    if (s_InitCount == 0) {
        for (Step const start : kStart) {
            start();
        }
    }
    ++s_InitCount;
    return true;
}

bool ExitFramework() {
    Diagnostics::Verify(s_InitCount > 0, Diagnostics::Gravity::kSerious, "s_InitCount > 0", "Framework");
    if (--s_InitCount == 0) {
        for (Step const stop : kStop) {
            stop();
        }
    }
    return true;
}

std::uint64_t FBootTime() {
    std::uint64_t last = s_LastBootTime.load();
    std::uint64_t now = 0;
    // The clock is read behind the last result, anew in each round: a reading below it has wrapped, and is
    // never just one that another thread has overtaken.
    do {
        now = (last >> kTickBits << kTickBits) + Platform::Clock::TickCount();
        if (now < last) {
            now += std::uint64_t{1} << kTickBits;
        }
    } while (!s_LastBootTime.compare_exchange_weak(last, now));
    return now;
}

char* strlcpy(char* dest, char const* src, unsigned int size) {
    std::size_t const length = std::strlen(src);
    if (length < size) {
        std::memcpy(dest, src, length + 1);
    } else if (size > 0) {
        std::memcpy(dest, src, size - 1);
        dest[size - 1] = '\0';
    }
    return dest;
}
