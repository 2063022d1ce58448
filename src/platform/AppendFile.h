#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/FileDescriptor.h"

struct iovec;

namespace System::Platform {

/// A log file that several processes may append to and rotate at the same time, with one older generation
/// under a second name. A relative name stays relative to the current directory of the time of Open.
///
/// Threads: the caller lets one thread at a time in.
/// Processes: a line goes to the file with one write, so that lines of several processes never mix. Whoever
/// rotates holds a lock on the file meanwhile; the others notice soon that the name stands for another file
/// and follow. A child made by fork opens the file anew.
class AppendFile {
public:
    static constexpr std::size_t kMaxPieces = 16;

    /// Opens `path` for appending, made if it is not there; false if that fails.
    [[nodiscard]] bool Open(std::string path, std::string olderPath);
    [[nodiscard]] bool IsOpen() const { return m_File.IsOpen(); }

    /// Goes over to the file that bears the name now, if it was rotated or removed by someone else, and takes
    /// note of its size. In a stream of lines without a pause it looks there after some milliseconds or
    /// kilobytes only, so that it may be called before each line.
    void Follow();

    /// Appends the pieces, at most kMaxPieces, as one line that arrives whole or not at all: what a full disk
    /// leaves of it is taken back. Returns whether it arrived.
    bool Append(std::span<std::string_view const> pieces);

    /// Where the last line ended, which is the size of the file, or -1 for what has no size (a pipe).
    [[nodiscard]] std::int64_t Position() const { return m_IsRegular ? m_Size : -1; }
    /// Whether nothing is in the file yet.
    [[nodiscard]] bool IsEmpty() const { return m_Size == 0; }

    /// Renames the file to the older name, whose file it replaces, and begins a new one with `firstLine`. If
    /// the renaming fails, `firstLine` and all later lines go to the same file, and nothing is lost. If
    /// another process was faster, its new file is taken and nothing renamed. Closed afterwards if no
    /// file could be opened and the one at hand has no name any more.
    void Rotate(std::string_view firstLine);

private:
    [[nodiscard]] FileDescriptor OpenAtName() const;
    [[nodiscard]] int Base() const;
    // Goes over to `file` and returns the one before.
    [[nodiscard]] FileDescriptor Adopt(FileDescriptor file);
    // Takes over the size as well, if it is.
    [[nodiscard]] bool IsUnderItsName();
    bool WriteAll(iovec* pieces, int count, std::size_t length);
    void TakeBack(std::size_t written);

    std::string m_Path;
    std::string m_OlderPath;
    FileDescriptor m_Base;  // what a relative path starts from
    FileDescriptor m_File;
    dev_t m_Device = 0;
    ino_t m_Inode = 0;
    bool m_IsRegular = false;
    std::int64_t m_Size = 0;
    std::uint32_t m_Epoch = 0;        // the process that opened it
    std::int64_t m_LastLineNs = 0;    // when Follow was called last
    std::int64_t m_NextLookNs = 0;    // when Follow looks again
    std::int64_t m_NextLookSize = 0;  // or from which size on
};

}  // namespace System::Platform
