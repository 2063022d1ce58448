#include "corvalen/diagnostics/ComponentLog.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "corvalen/diagnostics/Log.h"
#include "corvalen/text/TextUtils.h"
#include "corvalen/threading/ComThread.h"
#include "diagnostics/CompLogFile.h"
#include "platform/Clock.h"
#include "platform/ThreadId.h"

namespace System::Diagnostics {

namespace {

constexpr unsigned kSeverityCount = 4;

// A few characters of a line, put together without the cost of a format.
class SmallText {
public:
    void Add(std::string_view text) {
        for (char const character : text) {
            *m_End++ = character;
        }
    }

    void AddHex(std::uint32_t number) { AddNumber<16>(number, 1); }
    // At least three digits.
    void AddDecimal(std::uint32_t number) { AddNumber<10>(number, 3); }

    [[nodiscard]] std::string_view View() const {
        return {m_Characters, static_cast<std::size_t>(m_End - m_Characters)};
    }

private:
    static constexpr std::size_t kSize = 48;
    static constexpr std::size_t kMostDigits = 10;

    template <std::uint32_t kBase>
    void AddNumber(std::uint32_t number, std::size_t leastDigits) {
        char digits[kMostDigits];
        std::size_t count = 0;
        while (number != 0 || count < leastDigits) {
            digits[count++] = "0123456789ABCDEF"[number % kBase];
            number /= kBase;
        }
        while (count > 0) {
            *m_End++ = digits[--count];
        }
    }

    char m_Characters[kSize];
    char* m_End = m_Characters;
};

std::string_view ViewOf(char const* text) {
    return text != nullptr ? text : "(null)";
}

char16_t* NewPathFromLocal(char const* name, unsigned length, unsigned& size) {
    char16_t* wide = nullptr;
    Text::CTextUtils::ConvertLOCALCPtoWCHAR_NF(name, length, wide);
    if (wide == nullptr) {
        return nullptr;
    }
    std::unique_ptr<char16_t, decltype(&std::free)> const owner(wide, &std::free);
    return NewPath(wide, length, size);
}

// Asking may write a line of its own, if the list of threads is not started: that line does not ask again.
// The log's lock guards who asks.
std::string_view NameOf(std::uint32_t threadId) {
    static constinit std::uint32_t s_Asking = 0;
    if (s_Asking == threadId) {
        return "Unknown";
    }
    s_Asking = threadId;
    char const* const name = Threading::CComThread::ThreadName(threadId);
    s_Asking = 0;
    return name;
}

// Ends with the object, and takes its registration, its file and its path along.
void Release(LogProc proc, void* log, CompLogFile* file, char16_t* path) {
    // There may be none any more, or never have been one.
    static_cast<void>(FLog::UnregisterProc(proc, log));
    delete file;
    std::free(path);
}

}  // namespace

constinit std::uint32_t FRteCompLog::s_LastTick = 0;
constinit std::uint32_t FCorvalenLog::s_StartThreadId = 0;

FRteCompLog::FRteCompLog(char16_t const* name, unsigned length) {
    if (name != nullptr && length > 0) {
        m_Path = NewPath(name, length, m_PathSize);
        InitCompLog();
    }
}

FRteCompLog::FRteCompLog(char const* name, unsigned length) {
    if (name != nullptr && length > 0) {
        m_Path = NewPathFromLocal(name, length, m_PathSize);
        if (m_Path != nullptr) {
            InitCompLog();
        }
    }
}

FRteCompLog::~FRteCompLog() {
    Release(Proc, this, m_File, m_Path);
}

void FRteCompLog::InitCompLog() {
    static constexpr CompLogFormat kFormat{u".rlg", u"_.rlg", 10485760, "%Y/%m/%d %H:%M:%S.00",
                                           FormatFirstLine};
    AddExtension(m_Path, m_PathSize, kFormat.extension);
    m_File = CompLogFile::Open(m_Path, kFormat).release();
    FLog::RegisterProc(Proc, this);
}

int FRteCompLog::FormatFirstLine(char* buffer, std::size_t size, char const* time) {
    return std::snprintf(buffer, size, "00000000-0000-00000000[%s]\r\n", time);
}

void FRteCompLog::Proc(void* user, unsigned severity, std::uint64_t, char const* name, unsigned threadId,
                       long time, char const* context, char const* text) {
    static constexpr std::string_view kStarts[kSeverityCount] = {"00000000-0000-E0[", "00000000-0000-W0[",
                                                                 "00000000-0000-L1[", "00000000-0000-T2["};
    constexpr std::uint32_t kMsPerSecond = 1000;
    auto& log = *static_cast<FRteCompLog*>(user);
    if (log.m_File == nullptr) {
        return;
    }
    std::uint32_t const now = Platform::Clock::TickCount();
    std::uint32_t const delta = s_LastTick != 0 ? now - s_LastTick : 0;
    s_LastTick = now;
    SmallText middle;
    middle.Add("][");
    middle.AddDecimal(delta / kMsPerSecond);
    middle.Add(".");
    middle.AddDecimal(delta % kMsPerSecond);
    middle.Add("] ");
    middle.AddHex(threadId);
    middle.Add(" ");
    std::string_view const pieces[] = {kStarts[severity % kSeverityCount],
                                       log.m_File->TimeText(time),
                                       middle.View(),
                                       ViewOf(name),
                                       " ",
                                       ViewOf(context),
                                       " ",
                                       ViewOf(text),
                                       "\r\n"};
    if (!log.m_File->Write(pieces)) {
        delete std::exchange(log.m_File, nullptr);
    }
}

FCorvalenLog::FCorvalenLog(char16_t const* name, unsigned length) {
    if (name != nullptr && length > 0) {
        m_Path = NewPath(name, length, m_PathSize);
        InitCompLog();
    }
}

FCorvalenLog::FCorvalenLog(char const* name, unsigned length) {
    if (name != nullptr && length > 0) {
        m_Path = NewPathFromLocal(name, length, m_PathSize);
        if (m_Path != nullptr) {
            InitCompLog();
        }
    }
}

FCorvalenLog::~FCorvalenLog() {
    Release(Proc, this, m_File, m_Path);
}

void FCorvalenLog::InitCompLog() {
    static constexpr CompLogFormat kFormat{u".cr_log", u"_.cr_log", 20971520, "%y %m %d\t%H:%M:%S:000",
                                           FormatFirstLine};
    AddExtension(m_Path, m_PathSize, kFormat.extension);
    std::uint32_t const startThreadBefore = std::exchange(s_StartThreadId, Platform::CurrentThreadId());
    m_File = CompLogFile::Open(m_Path, kFormat).release();
    if (m_File != nullptr) {
        FLog::RegisterProc(Proc, this);
    } else {
        s_StartThreadId = startThreadBefore;
    }
}

int FCorvalenLog::FormatFirstLine(char* buffer, std::size_t size, char const* time) {
    return std::snprintf(buffer, size, "0\t!\tMain:%X\t%s\t-\tSTART\n", s_StartThreadId, time);
}

void FCorvalenLog::Proc(void* user, unsigned severity, std::uint64_t, char const* name, unsigned threadId,
                        long time, char const* context, char const* text) {
    auto& log = *static_cast<FCorvalenLog*>(user);
    if (log.m_File == nullptr) {
        return;
    }
    char const digit = "0123"[severity % kSeverityCount];
    SmallText id;
    id.Add(":");
    id.AddHex(threadId);
    id.Add("\t");
    std::string_view const threadName = NameOf(threadId);
    std::string_view const pieces[] = {
        {&digit, 1},     "\t", ViewOf(name), "\t", threadName, id.View(), log.m_File->TimeText(time), "\t",
        ViewOf(context), "\t", ViewOf(text), "\n"};
    if (!log.m_File->Write(pieces)) {
        delete std::exchange(log.m_File, nullptr);
    }
}

}  // namespace System::Diagnostics
