#include "platform/InboxSweep.h"

#include <unistd.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "platform/Bell.h"
#include "platform/InboxDirectory.h"
#include "platform/InboxFile.h"

namespace System::Platform {

namespace {

// About 10 microseconds each.
constexpr std::size_t kMaxLooks = 32;

// An owner makes its bell after its inbox and removes it before, so a bell without an inbox is left over.
void RemoveIfLeft(std::uint32_t bellNumber, std::string const& directory) {
    std::string const inbox = directory + "/" + InboxFileName(bellNumber);
    if (::access(inbox.c_str(), F_OK) != 0) {
        RemoveBell(bellNumber);
    }
}

}  // namespace

void SweepDeadInboxes() {
    std::string const path = SharedPlace().directory;
    auto const directory = OpenInboxDirectory();
    if (directory == nullptr) {
        return;
    }
    std::vector<std::uint32_t> inboxes;
    while (dirent const* const entry = ::readdir(directory.get())) {
        if (std::uint32_t const bell = NumberOfBellFile(entry->d_name); bell != 0) {
            RemoveIfLeft(bell, path);
        } else if (std::uint32_t const number = NumberOfInboxFile(entry->d_name); number != 0) {
            inboxes.push_back(number);
        }
    }
    // From another place each time, so that many living ones don't hide a dead one for ever.
    std::size_t const start = inboxes.empty() ? 0 : std::random_device()() % inboxes.size();
    for (std::size_t i = 0; i < std::min(inboxes.size(), kMaxLooks); ++i) {
        // Opening one that has no living holder removes it.
        InboxFile inbox;
        static_cast<void>(inbox.Open(inboxes[(start + i) % inboxes.size()]));
    }
}

}  // namespace System::Platform
