#pragma once

#include <dirent.h>

#include <memory>

#include "platform/NamedObject.h"

namespace System::Platform {

struct DirectoryCloser {
    void operator()(DIR* directory) const { static_cast<void>(::closedir(directory)); }
};

/// A listing of the directory that holds the inboxes; null if there is none yet.
inline std::unique_ptr<DIR, DirectoryCloser> OpenInboxDirectory() {
    return std::unique_ptr<DIR, DirectoryCloser>(::opendir(SharedPlace().directory.c_str()));
}

}  // namespace System::Platform
