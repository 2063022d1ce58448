#pragma once

#include <atomic>
#include <cstdint>

#include "corvalen/Export.h"

namespace System::Diagnostics {

/// Receives each line that passes the filter of FLog.
///
/// `severity` and `component` are those given to Put, `threadId` is the kernel's id of the calling thread,
/// `time` the seconds since 1970, the same for all procedures of one line. The strings are valid during the
/// call only. Runs on the thread of the caller of Put, with the log's lock held: never concurrently with
/// another procedure. It may call Put itself; it must not register or unregister procedures.
using LogProc = void (*)(void* user, unsigned severity, std::uint64_t component, char const* name,
                         unsigned threadId, long time, char const* context, char const* text);

/// The log of the process: one filter by severity and component, one lock, one list of output procedures.
///
/// Severities are 0 error, 1 warning, 2 information, 3 verbose. A component is a mask; bit n stands for
/// component n, and a line of several components passes if one of them does. The library's own lines use bit
/// 0.
///
/// Threads: Put, Enabled and the levels may be used on any thread between Init and the last Terminate. Init,
/// Terminate and the registrations take no lock: call them while no other thread is inside Put.
/// Errors: nothing throws but a failed allocation in RegisterProc, and nothing fails.
class CORVALEN_API FLog {
public:
    /// Bytes that the text form of all levels takes, terminator included.
    static constexpr unsigned kLevelTextSize = 65;

    /// Counts up; the first call sets the default levels (severities 0, 1 and 2 for all components) and
    /// empties the list of procedures.
    static void Init();
    /// Counts down; the call that reaches 0 drops all registrations. Levels stay until the next first Init.
    static void Terminate();

    /// Hands one line to every registered procedure, the newest first, if `severity` (capped to 3 for this
    /// test) is enabled for a bit of `component`. A line that is not enabled takes no lock, reads no clock
    /// and calls nothing.
    static void Put(unsigned severity, std::uint64_t component, char const* name, char const* context,
                    char const* text) {
        if (Enabled(severity, component)) [[unlikely]] {
            Deliver(severity, component, name, context, text);
        }
    }
    /// Whether Put with these two would deliver; ask before building an expensive text.
    [[nodiscard]] static bool Enabled(unsigned severity, std::uint64_t component) {
        return (std::atomic_ref(s_Mask[severity < 3 ? severity : 3]).load(std::memory_order_relaxed) &
                component) != 0;
    }

    /// The highest level that a bit of `component` has: 3, 2, or 1 for everything below.
    [[nodiscard]] static unsigned GetSeverityLevel(std::uint64_t component);
    /// Sets the level of all bits of `component`, capped to 3; severity 0 stays on at each level.
    /// Returns what GetSeverityLevel gave before. A component of 0 changes nothing.
    static unsigned SetSeverityLevel(std::uint64_t component, unsigned level);
    /// Writes the levels of components 0 to 63, one letter of "EWIV" each, and a NUL: kLevelTextSize bytes.
    static void GetSeverityLevel(char* buffer);
    /// Sets levels from text: the letter at position n, of either case, is the level of component n. Any
    /// other character leaves its component as it is; characters behind the 64th are not read.
    static void SetSeverityLevel(char const* levels);
    /// The same from wide text. A position is a byte of its UTF-8 form, so that a character outside ASCII
    /// takes up two or three. Null changes nothing.
    static void SetSeverityLevel(char16_t const* levels);

    /// Adds a procedure at the head of the list; the same pair may be added more than once. `user` stays the
    /// caller's.
    static void RegisterProc(LogProc proc, void* user);
    /// Removes the newest registration equal in both; false if there is none.
    static bool UnregisterProc(LogProc proc, void* user);
    /// Registrations at present, a pair as often as it was added.
    [[nodiscard]] static unsigned RegisteredProcCount();

    /// A procedure that writes "%s>[%X] %s> [%s] %s %s\n" (tag, thread id, local time, name, context, text)
    /// to the open `FILE*` in `user` and flushes it.
    static void PrintProc(void* user, unsigned severity, std::uint64_t component, char const* name,
                          unsigned threadId, long time, char const* context, char const* text);
    /// A procedure that hands the same line, at most 1279 bytes of it, to the debugger. `user` is not used.
    static void OutputDebugProc(void* user, unsigned severity, std::uint64_t component, char const* name,
                                unsigned threadId, long time, char const* context, char const* text);

    /// Tests for operating systems that this library does not run on: false.
    [[nodiscard]] static bool IsWin98();
    [[nodiscard]] static bool IsWinME();

protected:
    /// Bit n of entry s is set when component n may log at severity s. Read and written as atomics, since a
    /// level may change while other threads log.
    static std::uint64_t s_Mask[4];

private:
    static void Deliver(unsigned severity, std::uint64_t component, char const* name, char const* context,
                        char const* text);
};

/// The assertion entry of the library.
class CORVALEN_API CDebug {
public:
    /// Reports a broken invariant as the line "%s (%s:%i)" of `expression`, `file` and `line`, at severity 0
    /// when `serious`, else at severity 1. It tests nothing, stops nothing and returns: the code behind it
    /// has to be safe with the invariant broken.
    static void Assert(bool serious, char const* expression, char const* file, int line);
};

}  // namespace System::Diagnostics
