#pragma once

#include <cstddef>
#include <cstdint>

#include "corvalen/Export.h"

namespace System::Diagnostics {

class CompLogFile;

/// Puts every line that passes the filter of FLog into the file `name`.rlg, from construction to destruction.
/// A file above 10485760 bytes is renamed to `name`_.rlg, in the place of the one before, and a new one
/// begun.
///
/// `name` is the path without the extension; a relative one starts from the current directory of the time of
/// construction. Each line has left the process when Put returns, with one write of its own, and nothing is
/// allocated for it. Several objects and processes may write to one file: their lines never mix, and whoever
/// is first rotates it for all.
///
/// Threads: construct and destroy while no other thread logs; FLog lets one line at a time in.
/// Processes: a line belongs to the file that bears the name when it is written, also after another process
/// has rotated it.
/// Errors: nothing throws but a failed allocation in the constructors, and nothing is reported: not to the
/// caller, nor to the log that is being written. A line that a full disk has no room for is left out whole.
/// If the file can't be opened, at the start or again after its folder has gone, the lines are dropped.
class CORVALEN_API FRteCompLog {
public:
    /// The file of a wide name with `length` characters. Of a name that is longer than that, the first
    /// `length` + 15 characters count, extension included. With a null name or a length of 0 nothing happens.
    FRteCompLog(char16_t const* name, unsigned length);
    /// The same from the first `length` bytes of a name in the local code page.
    FRteCompLog(char const* name, unsigned length);
    ~FRteCompLog();
    FRteCompLog(FRteCompLog const&) = delete;
    FRteCompLog& operator=(FRteCompLog const&) = delete;

protected:
    /// Completes the name, opens the file and writes its first line, and registers Proc in any case.
    void InitCompLog();
    /// Writes one line to the object in `user`.
    static void Proc(void* user, unsigned severity, std::uint64_t component, char const* name,
                     unsigned threadId, long time, char const* context, char const* text);

private:
    static int FormatFirstLine(char* buffer, std::size_t size, char const* time);

    char16_t* m_Path = nullptr;     // the file's name with its extension
    unsigned m_PathSize = 0;        // bytes of that block
    CompLogFile* m_File = nullptr;  // null while there is none

    // When any object of the class wrote the last line, in milliseconds; the log's lock guards it.
    static std::uint32_t s_LastTick;
};

/// The same with the format of columns, the file `name`.cr_log, and the limit of 20971520 bytes. It gets
/// lines only if its file could be opened at the start.
class CORVALEN_API FCorvalenLog {
public:
    FCorvalenLog(char16_t const* name, unsigned length);
    FCorvalenLog(char const* name, unsigned length);
    ~FCorvalenLog();
    FCorvalenLog(FCorvalenLog const&) = delete;
    FCorvalenLog& operator=(FCorvalenLog const&) = delete;

protected:
    /// Completes the name and opens the file; if that works, writes its first line and registers Proc.
    void InitCompLog();
    /// Writes one line to the object in `user`.
    static void Proc(void* user, unsigned severity, std::uint64_t component, char const* name,
                     unsigned threadId, long time, char const* context, char const* text);

private:
    static int FormatFirstLine(char* buffer, std::size_t size, char const* time);

    char16_t* m_Path = nullptr;
    unsigned m_PathSize = 0;
    CompLogFile* m_File = nullptr;

    // Who opened the last file; first lines bear it.
    static std::uint32_t s_StartThreadId;
};

}  // namespace System::Diagnostics
