#include "corvalen/diagnostics/Log.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "corvalen/text/TextUtils.h"
#include "diagnostics/Report.h"
#include "platform/Clock.h"
#include "platform/DebugOutput.h"
#include "platform/LocalTime.h"
#include "platform/Mutex.h"
#include "platform/StopDelay.h"
#include "platform/ThreadId.h"

namespace System::Diagnostics {

namespace {

using namespace System::Platform;

constexpr unsigned kComponentCount = 64;
constexpr unsigned kSeverityCount = 4;
constexpr unsigned kHighestSeverity = kSeverityCount - 1;
constexpr char kLetters[] = "EWIV";
constexpr std::size_t kTimeTextSize = 128;
constexpr std::size_t kDebugLineSize = 1280;
constexpr char kLineFormat[] = "%s>[%X] %s> [%s] %s %s\n";

// The lock that a line is delivered under. The count and the owner stand beside the mutex, so that a thread
// that ended inside a procedure is noticed by the next one.
class LogLock {
public:
    void Create() {
        m_Mutex = new Mutex;
        m_LockCount = 0;
        m_Thread = 0;
    }

    void Close() {
        delete m_Mutex;
        m_Mutex = nullptr;
    }

    void Take() {
        while (Wait() == LockResult::kTimedOut) {
            DebugBreak();
        }
        std::uint32_t const caller = CurrentThreadId();
        if (m_LockCount != 0 && m_Thread != caller) {
            m_LockCount = 0;
        }
        m_Thread = caller;
        ++m_LockCount;
    }

    void Release() {
        if (--m_LockCount == 0) {
            m_Thread = 0;
        }
        if (m_Mutex != nullptr) {
            // Fails only where Take had to go on without the mutex.
            static_cast<void>(m_Mutex->Unlock());
        }
    }

    void VerifyFree() const {
        Verify(m_LockCount == 0, Gravity::kSerious, "m_LockCount == 0", "Log");
        Verify(m_Thread == 0, Gravity::kSerious, "m_Thread == 0", "Log");
    }

private:
    static constexpr std::int64_t kSliceMs = 10000;

    // Whatever it gives but a time-out, the caller goes on: a line is never held back for want of a mutex.
    LockResult Wait() { return m_Mutex != nullptr ? m_Mutex->Lock(kSliceMs) : LockResult::kFailed; }

    Mutex* m_Mutex = nullptr;  // there from the first Init to the last Terminate
    unsigned m_LockCount = 0;
    std::uint32_t m_Thread = 0;
};

constinit LogLock s_Lock;

// Released by unwinding as well, an exception's and that of a thread which ends inside a procedure.
class DeliveryScope {
public:
    DeliveryScope() { s_Lock.Take(); }
    ~DeliveryScope() { s_Lock.Release(); }
    DeliveryScope(DeliveryScope const&) = delete;
    DeliveryScope& operator=(DeliveryScope const&) = delete;
};

struct ProcRec {
    LogProc proc;
    void* user;
    ProcRec* next;
};

constinit ProcRec* s_Procs = nullptr;
constinit int s_InitCount = 0;

char const* TagOf(unsigned severity) {
    static constexpr char const* kTags[kSeverityCount] = {"EEEE", "WWWW", "----", "    "};
    return kTags[severity % kSeverityCount];
}

void DropProcs() {
    while (s_Procs != nullptr) {
        delete std::exchange(s_Procs, s_Procs->next);
    }
}

struct LineTime {
    explicit LineTime(long time) { FormatLocalTime(text, sizeof text, "%m %d %H:%M:%S", time); }
    char text[kTimeTextSize];
};

// The level that a letter of either case stands for, or none.
unsigned LevelOfLetter(char letter) {
    constexpr unsigned char kLowerCaseBit = 0x20;
    switch (static_cast<unsigned char>(letter) | kLowerCaseBit) {
        case 'e':
            return 0;
        case 'w':
            return 1;
        case 'i':
            return 2;
        case 'v':
            return 3;
        default:
            return kSeverityCount;
    }
}

}  // namespace

constinit std::uint64_t FLog::s_Mask[4] = {0, 0, 0, 0};

void FLog::Init() {
    if (s_InitCount == 0) {
        for (unsigned severity = 0; severity < kSeverityCount; ++severity) {
            std::atomic_ref(s_Mask[severity])
                .store(severity < kHighestSeverity ? ~std::uint64_t{0} : 0, std::memory_order_relaxed);
        }
        DropProcs();
        s_Lock.Create();
    }
    ++s_InitCount;
}

void FLog::Terminate() {
    if (--s_InitCount != 0) {
        return;
    }
    DropProcs();
    s_Lock.VerifyFree();
    s_Lock.Close();
}

void FLog::Deliver(unsigned severity, std::uint64_t component, char const* name, char const* context,
                   char const* text) {
    DeliveryScope const scope;
    unsigned const threadId = CurrentThreadId();
    long const time = Clock::WallSeconds();
    for (ProcRec const* rec = s_Procs; rec != nullptr; rec = rec->next) {
        rec->proc(rec->user, severity, component, name, threadId, time, context, text);
    }
}

unsigned FLog::GetSeverityLevel(std::uint64_t component) {
    for (unsigned level = kHighestSeverity; level > 1; --level) {
        if (Enabled(level, component)) {
            return level;
        }
    }
    return 1;
}

unsigned FLog::SetSeverityLevel(std::uint64_t component, unsigned level) {
    unsigned const before = GetSeverityLevel(component);
    // With no bit in `component` every step below changes nothing.
    for (unsigned severity = 0; severity < kSeverityCount; ++severity) {
        std::atomic_ref mask(s_Mask[severity]);
        if (severity <= level) {
            mask.fetch_or(component, std::memory_order_relaxed);
        } else {
            mask.fetch_and(~component, std::memory_order_relaxed);
        }
    }
    return before;
}

void FLog::GetSeverityLevel(char* buffer) {
    for (unsigned n = 0; n < kComponentCount; ++n) {
        buffer[n] = kLetters[GetSeverityLevel(std::uint64_t{1} << n)];
    }
    buffer[kComponentCount] = '\0';
}

void FLog::SetSeverityLevel(char const* levels) {
    std::uint64_t componentsAt[kSeverityCount] = {};
    for (unsigned n = 0; n < kComponentCount && levels[n] != '\0'; ++n) {
        unsigned const level = LevelOfLetter(levels[n]);
        if (level < kSeverityCount) {
            componentsAt[level] |= std::uint64_t{1} << n;
        }
    }
    for (unsigned level = 0; level < kSeverityCount; ++level) {
        SetSeverityLevel(componentsAt[level], level);
    }
}

void FLog::SetSeverityLevel(char16_t const* levels) {
    if (levels == nullptr) {
        return;
    }
    auto const length = static_cast<unsigned>(std::char_traits<char16_t>::length(levels));
    char* converted = nullptr;
    Text::CTextUtils::ConvertCchWCHARtoUTF8_NF(levels, length, converted);
    std::unique_ptr<char[]> const text(converted);
    if (text != nullptr) {
        SetSeverityLevel(text.get());
    }
}

void FLog::RegisterProc(LogProc proc, void* user) {
    s_Procs = new ProcRec{proc, user, s_Procs};
}

bool FLog::UnregisterProc(LogProc proc, void* user) {
    for (ProcRec** link = &s_Procs; *link != nullptr; link = &(*link)->next) {
        if ((*link)->proc == proc && (*link)->user == user) {
            delete std::exchange(*link, (*link)->next);
            return true;
        }
    }
    return false;
}

unsigned FLog::RegisteredProcCount() {
    unsigned count = 0;
    for (ProcRec const* rec = s_Procs; rec != nullptr; rec = rec->next) {
        ++count;
    }
    return count;
}

void FLog::PrintProc(void* user, unsigned severity, std::uint64_t, char const* name, unsigned threadId,
                     long time, char const* context, char const* text) {
    auto* const stream = static_cast<std::FILE*>(user);
    // The stream has a lock of its own, which a thread that is stopped here would keep.
    StopDelay const delay;
    // A stream that fails goes unnoticed: there is no better place to tell it than the log itself.
    std::fprintf(stream, kLineFormat, TagOf(severity), threadId, LineTime(time).text, name, context, text);
    std::fflush(stream);
}

void FLog::OutputDebugProc(void*, unsigned severity, std::uint64_t, char const* name, unsigned threadId,
                           long time, char const* context, char const* text) {
    char line[kDebugLineSize];
    line[0] = '\0';
    std::snprintf(line, sizeof line, kLineFormat, TagOf(severity), threadId, LineTime(time).text, name,
                  context, text);
    DebugOutput(line, std::strlen(line));
}

bool FLog::IsWin98() {
    return false;
}

bool FLog::IsWinME() {
    return false;
}

}  // namespace System::Diagnostics
