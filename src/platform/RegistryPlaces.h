#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace System::Platform {

/// One registry file as it was when somebody looked. Two looks that give equal states saw the same file.
struct RegistryFileState {
    std::string path;
    int error = 0;  // why it can't be looked at, an errno value
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modifiedNs = 0;
    std::int64_t changedNs = 0;

    bool operator==(RegistryFileState const&) const = default;
};

struct RegistrySurvey {
    std::vector<RegistryFileState> files;  // in the order of reading: later files go over earlier ones
    /// Whether every file is so old that a further change would give it another time. While a survey is not
    /// settled, equal states don't prove equal bytes.
    bool isSettled = true;
};

/// Looks at every "*.reg" in "corvalen/registry" under the directories of $XDG_CONFIG_DIRS, the most
/// important one, which is the first, last, and then under $XDG_CONFIG_HOME; in a folder in the order of the
/// bytes of their names. Hidden files don't count. A folder that is missing has no files; one that can't be
/// read is listed in place of its files, with the error.
RegistrySurvey SurveyRegistryFiles();

/// Reads a whole file of at most kMaxRegistryFileSize bytes; 0 or an errno value (EFBIG, EINVAL if it is not
/// a regular file).
[[nodiscard]] int ReadRegistryFile(std::string const& path, std::string& bytes);

/// Whether this process may write the file now.
[[nodiscard]] bool IsWritableFile(std::string const& path);

}  // namespace System::Platform
