#pragma once

#include <fcntl.h>

#include <cerrno>
#include <cstdint>

#include "platform/Retry.h"

namespace System::Platform::FileLock {

// Exclusive locks on bytes of a file, held by the open file: whoever dies holds none, and they need no byte
// to be there. Two descriptors of one process exclude each other as two processes do.

inline struct flock Bytes(short type, std::int64_t first, std::int64_t count) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = first;
    lock.l_len = count;
    return lock;
}

/// 0, EAGAIN if somebody else holds the byte, or another errno value.
inline int TryTake(int descriptor, std::int64_t byte) {
    struct flock lock = Bytes(F_WRLCK, byte, 1);
    if (RetryOnInterrupt([&] { return ::fcntl(descriptor, F_OFD_SETLK, &lock); }) == 0) {
        return 0;
    }
    return errno == EACCES ? EAGAIN : errno;
}

inline void Release(int descriptor, std::int64_t first, std::int64_t count) {
    struct flock lock = Bytes(F_UNLCK, first, count);
    // Can only fail for want of memory to split a range; then the close that follows releases it.
    static_cast<void>(::fcntl(descriptor, F_OFD_SETLK, &lock));
}

/// Whether anybody but this open file holds one of the bytes.
inline bool IsTakenByOther(int descriptor, std::int64_t first, std::int64_t count) {
    struct flock lock = Bytes(F_WRLCK, first, count);
    return ::fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace System::Platform::FileLock
