#include "platform/ObjectFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/Retry.h"

namespace System::Platform {

namespace {

constexpr int kOpenFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// A new file appears under its name only with its mode set, so that no other user is refused meanwhile.
// Returns -1 with errno; a file system or a container that can't do it says so.
int CreateComplete(Place const& place, std::string const& path) {
    int const file = ::open(place.directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, place.mode);
    if (file < 0) {
        return -1;
    }
    std::string const self = "/proc/self/fd/" + std::to_string(file);
    if (::fchmod(file, place.mode) == 0 &&
        ::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0) {
        return file;
    }
    int const error = errno;
    static_cast<void>(::close(file));
    errno = error;
    return -1;
}

}  // namespace

bool ObjectFile::IsShared(Place const& place) {
    return (place.mode & (S_IRWXG | S_IRWXO)) != 0;
}

int ObjectFile::Open(std::string const& path) {
    return ::open(path.c_str(), kOpenFlags);
}

void ObjectFile::MakeDirectories(std::string const& path) {
    constexpr mode_t kEverybodysOwn = 01777;
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        std::string const part = path.substr(0, end);
        if (::mkdir(part.c_str(), kEverybodysOwn) == 0) {
            // Past the umask. If it fails, others will see why when they create a file there.
            static_cast<void>(::chmod(part.c_str(), kEverybodysOwn));
        }
        if (end == std::string::npos) {
            return;
        }
    }
}

int ObjectFile::Create(Place const& place, std::string const& path) {
    int const complete = CreateComplete(place, path);
    if (complete >= 0 || errno == EEXIST || errno == ENOSPC || errno == EMFILE || errno == ENFILE) {
        return complete;
    }
    int const file = ::open(path.c_str(), kOpenFlags | O_CREAT | O_EXCL, place.mode);
    if (file >= 0) {
        static_cast<void>(::fchmod(file, place.mode));
    }
    return file;
}

int ObjectFile::CheckIdentity(int descriptor, std::string const& path, bool isShared, std::uint64_t& size) {
    struct stat open {};
    struct stat named {};
    if (::fstat(descriptor, &open) != 0) {
        return errno;
    }
    if (!S_ISREG(open.st_mode)) {
        return EINVAL;
    }
    if (::lstat(path.c_str(), &named) != 0 || named.st_ino != open.st_ino || named.st_dev != open.st_dev) {
        return kTryAgain;
    }
    // A second name for the file is nothing of ours, and a private place holds only what its user made.
    if (open.st_nlink != 1 || (!isShared && open.st_uid != ::geteuid())) {
        return EACCES;
    }
    size = static_cast<std::uint64_t>(open.st_size);
    return 0;
}

int ObjectFile::Reserve(int descriptor, std::uint64_t offset, std::uint64_t bytes) {
    if (bytes == 0) {
        return 0;
    }
    auto const start = static_cast<off_t>(offset);
    auto const length = static_cast<off_t>(bytes);
    return RetryOnInterrupt([&] { return ::fallocate(descriptor, 0, start, length); }) == 0 ? 0 : errno;
}

int ObjectFile::ReserveNew(int descriptor, std::uint64_t bytes) {
    int const error = Reserve(descriptor, 0, bytes);
    // The C library can write the zeros itself where the file system can't reserve; only into a file that
    // nobody else has mapped yet, since it would overwrite what they write.
    return error == EOPNOTSUPP ? ::posix_fallocate(descriptor, 0, static_cast<off_t>(bytes)) : error;
}

}  // namespace System::Platform
