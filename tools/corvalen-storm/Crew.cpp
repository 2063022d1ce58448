#include "Crew.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace Storm {

namespace {

constexpr char kMemberFlag[] = "--member";
constexpr long kNsPerMs = 1'000'000;

sigset_t EndOfAChild() {
    sigset_t set;
    ::sigemptyset(&set);
    ::sigaddset(&set, SIGCHLD);
    return set;
}

std::array<std::string, 9> ArgumentsOf(Assignment const& assignment) {
    return {"corvalen-storm",
            kMemberFlag,
            assignment.role,
            assignment.channel,
            std::to_string(assignment.slot),
            std::to_string(assignment.life),
            std::to_string(assignment.seed),
            std::to_string(::getpid()),
            std::to_string(assignment.holdingSince)};
}

// 0 on failure.
pid_t Spawn(Assignment const& assignment, int boardDescriptor) {
    std::array<std::string, 9> arguments = ArgumentsOf(assignment);
    std::array<char*, 10> pointers{};
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        pointers[i] = arguments[i].data();
    }
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawnattr_init(&attributes);
    ::posix_spawn_file_actions_adddup2(&actions, boardDescriptor, kBoardDescriptor);
    sigset_t none;
    ::sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t pid = 0;
    int const error = ::posix_spawn(&pid, "/proc/self/exe", &actions, &attributes, pointers.data(), environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? pid : 0;
}

}  // namespace

Crew::Crew(Board& board, int boardDescriptor, std::string const& channel, std::uint32_t clients,
           std::uint32_t seed)
    : m_Board(board), m_BoardDescriptor(boardDescriptor), m_Clients(clients) {
    // Taken by AwaitEnd instead of a handler.
    sigset_t const set = EndOfAChild();
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
    m_Server.assignment = {.role = "server", .channel = channel};
    m_Visitor.assignment = {.role = "visitor", .channel = channel};
    m_Examiner.assignment = {.role = "examiner", .channel = channel};
    for (std::uint32_t slot = 0; slot < clients; ++slot) {
        m_Clients[slot].assignment = {
            .role = "client", .channel = channel, .slot = slot, .seed = seed + slot};
    }
}

Crew::~Crew() {
    auto const end = [this](Member& member) {
        if (member.pid != 0) {
            Kill(member);
            static_cast<void>(::waitpid(std::exchange(member.pid, 0), nullptr, 0));
        }
    };
    end(m_Server);
    end(m_Examiner);
    end(m_Visitor);
    for (Member& client : m_Clients) {
        end(client);
    }
}

bool Crew::Start(Member& member) {
    ++member.assignment.life;
    member.assignment.seed += static_cast<std::uint32_t>(m_Clients.size());
    member.isKilled = false;
    if (member.assignment.role == "client") {
        ClientSlot& slot = m_Board.clients[member.assignment.slot];
        slot.isAtGate = 1;
        slot.endpoint = 0;
    }
    member.pid = Spawn(member.assignment, m_BoardDescriptor);
    if (member.pid == 0) {
        std::fprintf(stderr, "\ncannot start a %s\n", member.assignment.role.c_str());
    }
    return member.pid != 0;
}

void Crew::Kill(Member& member) {
    member.isKilled = true;
    bool const isServer = member.assignment.role == "server";
    if (isServer) {
        // Noted first: a caller may be told of the death before kill() returns to us.
        m_Board.serverKilledNs = NowNs();
        m_Board.killedServer = member.assignment.life;
    }
    ::kill(member.pid, SIGKILL);
    ++(isServer ? m_ServerKills : m_ClientKills);
}

void Crew::Reap() {
    int status = 0;
    for (pid_t pid = ::waitpid(-1, &status, WNOHANG); pid > 0; pid = ::waitpid(-1, &status, WNOHANG)) {
        if (Member* const member = FindMember(pid)) {
            NoteEnd(*member, status);
        }
    }
}

void Crew::NoteEnd(Member& member, int status) {
    member.pid = 0;
    bool const isLeaving = PhaseOf(m_Board) >= Phase::kHold;
    bool const hasLeft = WIFEXITED(status) && WEXITSTATUS(status) == 0 && isLeaving;
    bool const wasKilled = member.isKilled && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    if (!hasLeft && !wasKilled) {
        ++m_Fallen;
        std::fprintf(stderr, "\n%s %u fell: %s %i\n", member.assignment.role.c_str(), member.assignment.slot,
                     WIFSIGNALED(status) ? "signal" : "exit code",
                     WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
    }
    if (member.assignment.role == "client") {
        NoteClientDeath(member);
    } else if (member.assignment.role == "server" && !hasLeft) {
        m_Board.killedServer = member.assignment.life;
        m_Board.gate.Set(0);
    }
}

void Crew::NoteClientDeath(Member const& member) {
    ClientSlot& slot = m_Board.clients[member.assignment.slot];
    slot.isAtGate = 1;
    if (std::uint32_t const endpoint = slot.endpoint.exchange(0); endpoint != 0) {
        std::uint32_t const count = m_Board.deadEndpointCount.load();
        m_Board.deadEndpoints[count % m_Board.deadEndpoints.size()] = endpoint;
        m_Board.deadEndpointCount = count + 1;
    }
}

Member* Crew::FindMember(pid_t pid) {
    for (Member* const one : {&m_Server, &m_Examiner, &m_Visitor}) {
        if (one->pid == pid) {
            return one;
        }
    }
    for (Member& client : m_Clients) {
        if (client.pid == pid) {
            return &client;
        }
    }
    return nullptr;
}

void Crew::AwaitEnd(int ms) {
    sigset_t const set = EndOfAChild();
    timespec const limit{ms / 1000, ms % 1000 * kNsPerMs};
    // Interrupted, timed out or told: the caller looks at all of them anyway.
    static_cast<void>(::sigtimedwait(&set, nullptr, &limit));
}

bool ReadAssignment(int argc, char** argv, Assignment& assignment) {
    if (argc != 9 || std::string(argv[1]) != kMemberFlag) {
        return false;
    }
    auto const number = [argv](int at) {
        return static_cast<std::uint32_t>(std::strtoul(argv[at], nullptr, 10));
    };
    assignment = {.role = argv[2],
                  .channel = argv[3],
                  .slot = number(4),
                  .life = number(5),
                  .seed = number(6),
                  .parent = number(7),
                  .holdingSince = std::strtoll(argv[8], nullptr, 10)};
    return true;
}

}  // namespace Storm
