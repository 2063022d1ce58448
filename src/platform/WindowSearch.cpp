#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/InboxDirectory.h"
#include "platform/InboxFile.h"
#include "platform/PeerInbox.h"
#include "platform/Retry.h"
#include "platform/Window.h"

namespace System::Platform {

namespace {

// Read and not mapped: a peer that cuts the file off meanwhile costs us nothing.
bool ReadAt(FileDescriptor const& file, void* to, std::size_t size, std::size_t offset) {
    return RetryOnInterrupt([&] { return ::pread(file.Get(), to, size, static_cast<off_t>(offset)); }) ==
           static_cast<ssize_t>(size);
}

bool IsText(char16_t const* units, std::size_t capacity, std::u16string_view text) {
    return text.size() < capacity && std::equal(text.begin(), text.end(), units) && units[text.size()] == 0;
}

std::vector<WindowRec> WindowsOf(int directory, char const* name) {
    FileDescriptor const file(RetryOnInterrupt(
        [&] { return ::openat(directory, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
    InboxHeadRec head;
    if (!file.IsOpen() || !ReadAt(file, &head, sizeof head, 0) || head.signature != kInboxSignature) {
        return {};
    }
    std::vector<WindowRec> windows(std::min(head.windowCount, kWindowSlots));
    if (!ReadAt(file, windows.data(), windows.size() * sizeof(WindowRec), kWindowsOffset)) {
        windows.clear();
    }
    return windows;
}

}  // namespace

std::uint32_t FindMessageWindow(std::u16string_view className, std::u16string_view title) {
    auto const directory = OpenInboxDirectory();
    if (directory == nullptr) {
        return 0;
    }
    while (dirent const* const entry = ::readdir(directory.get())) {
        if (NumberOfInboxFile(entry->d_name) == 0) {
            continue;
        }
        for (WindowRec const& rec : WindowsOf(::dirfd(directory.get()), entry->d_name)) {
            if (rec.window != 0 && IsText(rec.className, kClassNameUnits, className) &&
                IsText(rec.title, kTitleUnits, title) && IsWindowOfClass(rec.window, className)) {
                return rec.window;
            }
        }
    }
    return 0;
}

}  // namespace System::Platform
