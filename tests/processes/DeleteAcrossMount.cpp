// DeleteAcrossMount <tree> <count>: mounts <tree>/outside on <tree>/doomed/0 to <count - 1>, for itself
// alone, and deletes <tree>/doomed. Prints "refused" or "deleted", or "no mounts" where it may not mount.

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/FileSystem.h"

namespace {

bool MountForItself(std::string const& from, std::string const& to, int count) {
    bool const isAlone = ::unshare(CLONE_NEWNS) == 0 || ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
    bool isDone = isAlone && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    for (int i = 0; isDone && i < count; ++i) {
        isDone = ::mount(from.c_str(), (to + std::to_string(i)).c_str(), nullptr, MS_BIND, nullptr) == 0;
    }
    return isDone;
}

}  // namespace

int main(int, char** argv) {
    std::string const tree = argv[1];
    if (!MountForItself(tree + "/outside", tree + "/doomed/", std::atoi(argv[2]))) {
        std::puts("no mounts");
        return 0;
    }
    std::puts(System::Platform::FileSystem::RemoveTree((tree + "/doomed").c_str()) ? "deleted" : "refused");
    return 0;
}
