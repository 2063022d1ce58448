#include "platform/RegistryPlaces.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string_view>

#include "platform/FileDescriptor.h"
#include "platform/RegistryFile.h"
#include "platform/Retry.h"

namespace System::Platform {

namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;
// The coarsest clock of a usual file system counts in steps of two seconds.
constexpr std::int64_t kSettlingNs = 2 * kNsPerSecond;

std::int64_t Nanoseconds(timespec const& time) {
    return time.tv_sec * kNsPerSecond + time.tv_nsec;
}

// The variable, or null if it is not set or empty. None for a program with more rights than its user, who
// could lend it a registry of his own.
char const* Variable(char const* name) {
    char const* const value = ::secure_getenv(name);
    return value == nullptr || *value == '\0' ? nullptr : value;
}

void AddFolder(std::vector<std::string>& folders, std::string_view base) {
    // A relative path is none, by the rules of these variables.
    if (base.starts_with('/')) {
        folders.push_back(std::string(base) + "/corvalen/registry");
    }
}

std::vector<std::string> Folders() {
    std::vector<std::string> folders;
    char const* const directories = Variable("XDG_CONFIG_DIRS");
    std::string_view rest = directories == nullptr ? "/etc/xdg" : directories;
    while (!rest.empty()) {
        std::string_view const base = rest.substr(0, rest.find(':'));
        AddFolder(folders, base);
        rest.remove_prefix(std::min(base.size() + 1, rest.size()));
    }
    std::ranges::reverse(folders);
    if (char const* const own = Variable("XDG_CONFIG_HOME")) {
        AddFolder(folders, own);
    } else if (char const* const home = Variable("HOME")) {
        AddFolder(folders, std::string(home) + "/.config");
    }
    return folders;
}

RegistryFileState StateOf(std::string const& path) {
    RegistryFileState state{.path = path};
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        state.error = errno;
        return state;
    }
    state.device = status.st_dev;
    state.inode = status.st_ino;
    state.size = static_cast<std::uint64_t>(status.st_size);
    state.modifiedNs = Nanoseconds(status.st_mtim);
    state.changedNs = Nanoseconds(status.st_ctim);
    return state;
}

bool IsRegistryFileName(std::string_view name) {
    return name.ends_with(".reg") && !name.starts_with('.');
}

void SurveyFolder(std::string const& folder, std::vector<RegistryFileState>& files) {
    std::vector<std::string> paths;
    std::error_code error;
    std::filesystem::directory_iterator entry(folder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (IsRegistryFileName(entry->path().filename().native())) {
            paths.push_back(entry->path().native());
        }
    }
    if (error && error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory) {
        files.push_back({.path = folder, .error = error.value()});
    }
    std::ranges::sort(paths);
    std::ranges::transform(paths, std::back_inserter(files), StateOf);
}

}  // namespace

RegistrySurvey SurveyRegistryFiles() {
    RegistrySurvey survey;
    for (std::string const& folder : Folders()) {
        SurveyFolder(folder, survey.files);
    }
    timespec now{};
    // The clock of the file system; it can't fail.
    static_cast<void>(::clock_gettime(CLOCK_REALTIME, &now));
    survey.isSettled = std::ranges::all_of(survey.files, [&](RegistryFileState const& state) {
        return state.changedNs + kSettlingNs < Nanoseconds(now);
    });
    return survey;
}

int ReadRegistryFile(std::string const& path, std::string& bytes) {
    bytes.clear();
    // Without O_NONBLOCK, opening a pipe that somebody left there would wait for a writer.
    FileDescriptor const file(
        RetryOnInterrupt([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    struct stat status {};
    if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return EINVAL;
    }
    // The file may grow while it is read: what counts against the bound is what was read.
    constexpr std::size_t kStep = 65536;
    for (std::size_t used = 0;;) {
        bytes.resize(used + kStep);
        ssize_t const got = RetryOnInterrupt([&] { return ::read(file.Get(), bytes.data() + used, kStep); });
        int const error = got < 0 ? errno : 0;
        used += got < 0 ? 0 : static_cast<std::size_t>(got);
        if (error != 0 || used > kMaxRegistryFileSize) {
            bytes.clear();
            return error != 0 ? error : EFBIG;
        }
        if (got == 0) {
            bytes.resize(used);
            return 0;
        }
    }
}

bool IsWritableFile(std::string const& path) {
    return ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

}  // namespace System::Platform
