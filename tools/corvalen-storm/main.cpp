// corvalen-storm: what is left of a channel's promises when its processes are killed at random moments.

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "Balance.h"
#include "Board.h"
#include "Crew.h"
#include "Options.h"
#include "Roles.h"
#include "Storm.h"
#include "Traces.h"

namespace {

using namespace Storm;

constexpr int kWrongUse = 2;

int RunMember(Assignment const& assignment) {
    // Nobody goes on alone. The parent may have died before this was in place.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (static_cast<std::uint32_t>(::getppid()) != assignment.parent) {
        return 1;
    }
    Board* const board = InheritBoard();
    if (board == nullptr) {
        std::perror("corvalen-storm: the board");
        return 1;
    }
    if (assignment.role == "server") {
        return RunServer(*board, assignment);
    }
    if (assignment.role == "client") {
        return RunClient(*board, assignment);
    }
    return assignment.role == "examiner" ? RunExaminer(*board, assignment) : RunVisitor(*board, assignment);
}

int RunStorm(Options const& options) {
    int descriptor = -1;
    Board* const board = CreateBoard(descriptor);
    if (board == nullptr) {
        std::perror("corvalen-storm: the board");
        return 1;
    }
    std::printf("seed %u, %u clients\n", options.seed, options.clients);
    Traces const traces;
    std::string const channel = "storm_" + std::to_string(::getpid()) + "_" + std::to_string(options.seed);
    Crew crew(*board, descriptor, channel, options.clients, options.seed);
    Conductor conductor(options, *board, crew);
    bool const isThrough = conductor.Rage() && conductor.Settle();
    bool const holds = DrawBalance(*board, crew, conductor.Seconds(), traces.Left(channel));
    return isThrough && holds ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    Assignment assignment;
    if (ReadAssignment(argc, argv, assignment)) {
        return RunMember(assignment);
    }
    auto const options = ReadOptions(argc, argv);
    return options ? RunStorm(*options) : kWrongUse;
}
