#include "bench/rpc/ServerProcess.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "bench/rpc/Spawn.h"
#include "bench/support/Contest.h"

namespace Bench {

namespace {

constexpr char kServe[] = "--serve";
constexpr char kPolling[] = "polling";
constexpr std::array kPlacements = {Placement::kFree, Placement::kTwoProcessors, Placement::kOneProcessor};

// The client's processor is the first of those that the program may use.
void PlaceServer(Placement placement) {
    ShareProcessor(placement == Placement::kOneProcessor);
    if (placement != Placement::kFree && !PinTo(placement == Placement::kTwoProcessors ? 1 : 0)) {
        std::fputs("the server cannot be pinned to a processor\n", stderr);
    }
}

Placement PlacementOf(char const* name) {
    for (Placement const placement : kPlacements) {
        if (std::strcmp(NameOf(placement), name) == 0) {
            return placement;
        }
    }
    return Placement::kFree;
}

}  // namespace

char const* NameOf(Placement placement) {
    switch (placement) {
        case Placement::kFree:
            return "free";
        case Placement::kTwoProcessors:
            return "two processors";
        default:
            return "one processor";
    }
}

ClientPlace::ClientPlace(Placement placement) {
    ::sched_getaffinity(0, sizeof m_Before, &m_Before);
    ShareProcessor(placement == Placement::kOneProcessor);
    if (placement != Placement::kFree && !PinTo(0)) {
        std::fputs("the client cannot be pinned to a processor\n", stderr);
    }
}

ClientPlace::~ClientPlace() {
    ::sched_setaffinity(0, sizeof m_Before, &m_Before);
}

ServerProcess::ServerProcess(Transport const& transport, std::string const& key, Waiting waiting,
                             Placement placement) {
    char const* const argv[] = {"rpc",
                                kServe,
                                transport.Name(),
                                key.c_str(),
                                waiting == Waiting::kPolling ? kPolling : "sleeping",
                                NameOf(placement),
                                nullptr};
    m_Pid = Spawn("/proc/self/exe", argv, "ready", m_IsReady);
}

ServerProcess::~ServerProcess() {
    if (m_Pid > 0) {
        ::kill(m_Pid, SIGKILL);
        End();
    }
}

void ServerProcess::End() {
    int status = 0;
    ::waitpid(m_Pid, &status, 0);
    m_Pid = -1;
}

std::optional<int> ServeIfAsked(int argc, char** argv) {
    if (argc < 6 || std::strcmp(argv[1], kServe) != 0) {
        return std::nullopt;
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    PlaceServer(PlacementOf(argv[5]));
    for (auto const& transport : AllTransports()) {
        if (std::strcmp(transport->Name(), argv[2]) == 0) {
            return transport->Serve(
                argv[3], std::strcmp(argv[4], kPolling) == 0 ? Waiting::kPolling : Waiting::kSleeping);
        }
    }
    return 2;
}

}  // namespace Bench
