// starved memory|descriptors: opens a channel where the machine has little left, for itself alone, reports
// the error's number, then opens it again with enough, and reports that. "no mounts" where it may not mount.

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <iostream>
#include <string>

#include "corvalen/rpc/RpcChannel.h"
#include "tests/support/Unique.h"

namespace {

class Channel : public System::RPC::RpcChannel {
public:
    using RpcChannel::RpcChannel;
    std::uint32_t OnRequest(std::uint32_t, std::uint32_t) override { return 0; }
    void OnNotify(std::uint32_t, std::uint32_t) override {}
};

bool MountSmallMemory(char const* size) {
    return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("none", "/dev/shm", "tmpfs", 0, size) == 0;
}

void LimitDescriptorsTo(rlim_t count) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = count;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

void ReportOpen(Channel& channel) {
    std::cout << channel.OpenServer(u"s") << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
    std::u16string const name = Support::UniqueWideName("few");
    Channel channel(name.c_str());
    if (argc > 1 && argv[1] == std::string("memory")) {
        bool const isAlone = ::unshare(CLONE_NEWNS) == 0 || ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
        if (!isAlone || !MountSmallMemory("size=256k")) {
            std::cout << "no mounts" << std::endl;
            return 0;
        }
        ReportOpen(channel);
        MountSmallMemory("size=8m");
    } else {
        rlimit before{};
        ::getrlimit(RLIMIT_NOFILE, &before);
        int const next = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        LimitDescriptorsTo(static_cast<rlim_t>(next) + 1);
        ReportOpen(channel);
        LimitDescriptorsTo(before.rlim_cur);
        ::close(next);
    }
    ReportOpen(channel);
    channel.Close();
}
