#include "platform/Bell.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/InboxFile.h"
#include "platform/NamedObject.h"
#include "platform/Retry.h"

namespace System::Platform {

namespace {

constexpr std::string_view kPrefix = ".bell_";

std::string PathOf(std::uint32_t inboxNumber) {
    return SharedPlace().directory + "/" + BellFileName(inboxNumber);
}

// Both ends at once, also in a sender: a write to a FIFO whose reader died would raise SIGPIPE.
int OpenBothEnds(std::string const& path, FileDescriptor& bell) {
    FileDescriptor opened(
        RetryOnInterrupt([&] { return ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC); }));
    if (!opened.IsOpen()) {
        return errno;
    }
    struct stat status {};
    if (::fstat(opened.Get(), &status) != 0) {
        return errno;
    }
    if (!S_ISFIFO(status.st_mode)) {
        return EBADMSG;
    }
    bell = std::move(opened);
    return 0;
}

}  // namespace

std::string BellFileName(std::uint32_t inboxNumber) {
    return FileNameOfNumber(kPrefix, inboxNumber);
}

std::uint32_t NumberOfBellFile(char const* name) {
    return NumberInFileName(kPrefix, name);
}

int CreateBell(std::uint32_t inboxNumber, FileDescriptor& bell) {
    std::string const path = PathOf(inboxNumber);
    // What an owner of this number left behind when it was killed.
    RemoveBell(inboxNumber);
    if (::mkfifo(path.c_str(), SharedPlace().mode) != 0) {
        return errno;
    }
    int const error = OpenBothEnds(path, bell);
    if (error != 0 || ::fchmod(bell.Get(), SharedPlace().mode) != 0) {
        int const reason = error != 0 ? error : errno;
        RemoveBell(inboxNumber);
        return reason;
    }
    return 0;
}

int OpenBell(std::uint32_t inboxNumber, FileDescriptor& bell) {
    return OpenBothEnds(PathOf(inboxNumber), bell);
}

void RemoveBell(std::uint32_t inboxNumber) {
    // Mostly there is none.
    static_cast<void>(::unlink(PathOf(inboxNumber).c_str()));
}

void RingBell(FileDescriptor const& bell) {
    char const byte = 0;
    static_cast<void>(RetryOnInterrupt([&] { return ::write(bell.Get(), &byte, 1); }));
}

void SilenceBell(FileDescriptor const& bell) {
    char bytes[256];
    while (RetryOnInterrupt([&] { return ::read(bell.Get(), bytes, sizeof bytes); }) > 0) {
    }
}

}  // namespace System::Platform
