#include "Traces.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>

namespace Storm {

namespace {

constexpr char kDirectory[] = "/dev/shm/Corvalen/Temp";

std::set<std::string> FilesThere() {
    std::set<std::string> names;
    std::error_code ignored;
    for (auto const& entry : std::filesystem::directory_iterator(kDirectory, ignored)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

// Whoever uses a file there has a lock on a byte of it.
bool IsHeld(std::string const& name) {
    std::string const path = std::string(kDirectory) + "/" + name;
    int const descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor < 0) {
        // Gone since, or not ours to open: nothing that this storm has left.
        return true;
    }
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    bool const isHeld = ::fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    ::close(descriptor);
    return isHeld;
}

}  // namespace

Traces::Traces() : m_Before(FilesThere()) {}

std::vector<std::string> Traces::Left(std::string const& channel) const {
    std::vector<std::string> left;
    for (std::string const& name : FilesThere()) {
        bool const isOurs = name.find(channel) != std::string::npos;
        // Inboxes bear numbers, so that ours are told by their time only.
        bool const isInbox = name.starts_with('.');
        if (isOurs || (isInbox && !m_Before.contains(name) && !IsHeld(name))) {
            left.push_back(name);
        }
    }
    return left;
}

}  // namespace Storm
