// DeleteAcrossMount <tree>: mounts <tree>/outside on <tree>/doomed/mount, for itself alone, and deletes
// <tree>/doomed. Prints "refused" or "deleted", or "no mounts" where it may not mount.

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "platform/FileSystem.h"

namespace {

bool MountForItself(std::string const& from, std::string const& to) {
    bool const isAlone = ::unshare(CLONE_NEWNS) == 0 || ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
    return isAlone && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

}  // namespace

int main(int, char** argv) {
    std::string const tree = argv[1];
    if (!MountForItself(tree + "/outside", tree + "/doomed/mount")) {
        std::puts("no mounts");
        return 0;
    }
    std::puts(System::Platform::FileSystem::RemoveTree((tree + "/doomed").c_str()) ? "deleted" : "refused");
    return 0;
}
