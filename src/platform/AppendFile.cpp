#include "platform/AppendFile.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/Clock.h"
#include "platform/ProcessEpoch.h"
#include "platform/Retry.h"
#include "platform/StopDelay.h"

namespace System::Platform {

namespace {

// Two rotations take far longer, so that no line goes to a file that the second has removed; and in a stream
// of lines the look costs nothing that could be measured.
constexpr std::int64_t kLookIntervalNs = 20'000'000;
constexpr std::int64_t kLookIntervalBytes = 64 * 1024;
// Lines that follow each other faster than this make a stream: hardly anybody has changed the file in
// between.
constexpr std::int64_t kPauseNs = 5'000;
// Lines up to this length are put together first, which costs less than a write of many pieces.
constexpr std::size_t kGatherSize = 4096;
constexpr mode_t kMode = 0666;

bool IsLockedByOther(int file, int operation) {
    // Where a file system has no locks, rotating without one is better than never.
    return RetryOnInterrupt([&] { return ::flock(file, operation | LOCK_NB); }) != 0 && errno == EWOULDBLOCK;
}

// Never left to the closing: in a child of a fork that does not log, the description lives on with its lock.
void Unlock(int file) {
    // A lock that is ours can't fail to be given back; on a file system without locks there is none.
    static_cast<void>(::flock(file, LOCK_UN));
}

bool HasAName(int file) {
    struct stat status {};
    return ::fstat(file, &status) == 0 && status.st_nlink > 0;
}

iovec PieceOf(std::string_view text) {
    return {const_cast<char*>(text.data()), text.size()};
}

// Moves the start of the pieces forward by `written` bytes.
void Advance(iovec*& pieces, int& count, std::size_t written) {
    while (count > 0 && written >= pieces->iov_len) {
        written -= pieces->iov_len;
        ++pieces;
        --count;
    }
    if (count > 0) {
        pieces->iov_base = static_cast<char*>(pieces->iov_base) + written;
        pieces->iov_len -= written;
    }
}

}  // namespace

int AppendFile::Base() const {
    return m_Base.IsOpen() ? m_Base.Get() : AT_FDCWD;
}

FileDescriptor AppendFile::OpenAtName() const {
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY;
    return FileDescriptor(RetryOnInterrupt([&] { return ::openat(Base(), m_Path.c_str(), kFlags, kMode); }));
}

FileDescriptor AppendFile::Adopt(FileDescriptor file) {
    struct stat status {};
    m_IsRegular = ::fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode);
    m_Device = status.st_dev;
    m_Inode = status.st_ino;
    m_Size = m_IsRegular ? status.st_size : 0;
    m_Epoch = ProcessEpoch();
    m_NextLookNs = 0;
    return std::exchange(m_File, std::move(file));
}

bool AppendFile::Open(std::string path, std::string olderPath) {
    m_Path = std::move(path);
    m_OlderPath = std::move(olderPath);
    if (!m_Path.starts_with('/')) {
        // Without it the current directory of each moment serves.
        m_Base.Reset(RetryOnInterrupt([] { return ::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC); }));
    }
    if (FileDescriptor file = OpenAtName(); file.IsOpen()) {
        static_cast<void>(Adopt(std::move(file)));
    }
    return IsOpen();
}

bool AppendFile::IsUnderItsName() {
    struct stat status {};
    if (::fstatat(Base(), m_Path.c_str(), &status, 0) != 0 || status.st_dev != m_Device ||
        status.st_ino != m_Inode) {
        return false;
    }
    if (m_IsRegular) {
        m_Size = status.st_size;
    }
    return true;
}

void AppendFile::Follow() {
    if (!IsOpen()) {
        return;
    }
    // In a child of a fork the description, and with it the lock, is still the parent's.
    bool const isInherited = m_Epoch != ProcessEpoch();
    std::int64_t const now = Clock::MonotonicNs();
    bool const isInStream =
        now - std::exchange(m_LastLineNs, now) < kPauseNs && now < m_NextLookNs && m_Size < m_NextLookSize;
    if (isInStream && !isInherited) {
        return;
    }
    StopDelay const delay;
    bool const isElsewhere = isInherited || !IsUnderItsName();
    // Who holds the lock is just making the new file; until then the old one takes the lines.
    int const locked = m_File.Get();
    if (isElsewhere && (isInherited || !IsLockedByOther(locked, LOCK_SH))) {
        FileDescriptor old;
        if (FileDescriptor file = OpenAtName(); file.IsOpen()) {
            old = Adopt(std::move(file));
        }
        if (!isInherited) {
            Unlock(locked);
        }
    }
    m_NextLookNs = now + kLookIntervalNs;
    m_NextLookSize = m_Size + kLookIntervalBytes;
}

bool AppendFile::Append(std::span<std::string_view const> pieces) {
    std::size_t length = 0;
    for (std::string_view const piece : pieces) {
        length += piece.size();
    }
    if (length > kGatherSize) {
        iovec vector[kMaxPieces];
        int count = 0;
        for (std::string_view const piece : pieces.first(std::min(pieces.size(), kMaxPieces))) {
            vector[count++] = PieceOf(piece);
        }
        return WriteAll(vector, count, length);
    }
    char line[kGatherSize];
    char* end = line;
    for (std::string_view const piece : pieces) {
        end = static_cast<char*>(::mempcpy(end, piece.data(), piece.size()));
    }
    iovec whole = PieceOf({line, length});
    return WriteAll(&whole, 1, length);
}

bool AppendFile::WriteAll(iovec* pieces, int count, std::size_t length) {
    std::size_t written = 0;
    while (written < length) {
        auto const step = RetryOnInterrupt([&] {
            return count == 1 ? ::write(m_File.Get(), pieces->iov_base, pieces->iov_len)
                              : ::writev(m_File.Get(), pieces, count);
        });
        if (step <= 0) {
            TakeBack(written);
            return false;
        }
        written += static_cast<std::size_t>(step);
        Advance(pieces, count, static_cast<std::size_t>(step));
    }
    m_Size += static_cast<std::int64_t>(length);
    return true;
}

void AppendFile::TakeBack(std::size_t written) {
    struct stat status {};
    off_t const end = ::lseek(m_File.Get(), 0, SEEK_CUR);
    // With a line of another process behind it, the rest of ours has to stay.
    if (written > 0 && m_IsRegular && ::fstat(m_File.Get(), &status) == 0 && status.st_size == end) {
        // If this fails too, nothing more can be done for the line.
        static_cast<void>(!::ftruncate(m_File.Get(), end - static_cast<off_t>(written)));
    }
}

void AppendFile::Rotate(std::string_view firstLine) {
    StopDelay const delay;
    m_NextLookNs = 0;
    int const locked = m_File.Get();
    if (m_Epoch != ProcessEpoch() || IsLockedByOther(locked, LOCK_EX)) {
        // Someone else is at it, or this description is not ours alone: the next line goes on from here.
        return;
    }
    bool const isOurs = IsUnderItsName();
    if (isOurs) {
        // Not left to the renaming: taking the place of a file there makes some file systems write the whole
        // present one to the disk first. Fails if there is none.
        static_cast<void>(::unlinkat(Base(), m_OlderPath.c_str(), 0));
    }
    bool const isRenamed = isOurs && ::renameat(Base(), m_Path.c_str(), Base(), m_OlderPath.c_str()) == 0;
    FileDescriptor old;
    if (FileDescriptor file = OpenAtName(); file.IsOpen()) {
        old = Adopt(std::move(file));
    } else {
        if (isRenamed) {
            // No descriptor or no room for another file: back to where we were, if the name is still free.
            static_cast<void>(
                ::renameat2(Base(), m_OlderPath.c_str(), Base(), m_Path.c_str(), RENAME_NOREPLACE));
        }
        if (!HasAName(locked)) {
            Unlock(locked);
            m_File.Reset();
            return;
        }
    }
    if (isOurs) {
        Append(std::span(&firstLine, 1));
    }
    // Others wait for the lock until the new file has its first line.
    Unlock(locked);
}

}  // namespace System::Platform
