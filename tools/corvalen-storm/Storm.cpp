#include "Storm.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "Balance.h"

namespace Storm {

namespace {

constexpr std::int64_t kNsPerMs = 1'000'000;
constexpr std::int64_t kNsPerSecond = 1000 * kNsPerMs;
// Nobody is held as long as this but by a fault.
constexpr std::int64_t kStuckNs = 60 * kNsPerSecond;
constexpr std::int64_t kTerminalProgressNs = kNsPerSecond / 4;
constexpr std::int64_t kFileProgressNs = 5 * kNsPerSecond;
constexpr std::uint32_t kLongestPauseUs = 16000;
constexpr std::uint32_t kShortPauseUs = 300;
constexpr int kTendMs = 1;
// The purge goes by whole seconds and leaves what is younger than two.
constexpr std::time_t kTellingSeconds = 3;

}  // namespace

Conductor::Conductor(Options const& options, Board& board, Crew& crew)
    : m_Options(options),
      m_Board(board),
      m_Crew(crew),
      m_Random(options.seed),
      m_BeginNs(NowNs()),
      m_GateClosedNs(m_BeginNs),
      m_IsTerminal(::isatty(STDOUT_FILENO) != 0) {}

bool Conductor::Rage() {
    ScheduleKill();
    while (!IsOver()) {
        if (!Tend()) {
            return false;
        }
        if (NowNs() >= m_NextKillNs) {
            KillOne();
            ScheduleKill();
        }
        Crew::AwaitEnd(kTendMs);
    }
    m_EndNs = NowNs();
    ShowProgress(true);
    return true;
}

bool Conductor::Settle() {
    if (!EnterPhase(Phase::kQuiet, "the clients to finish") ||
        !TendUntil("the last start", [this] { return m_Board.gate.Get() != 0; })) {
        return false;
    }
    std::time_t const quietSince = std::time(nullptr);
    if (!TendUntil("the clock", [&] { return std::time(nullptr) >= quietSince + kTellingSeconds; })) {
        return false;
    }
    m_Crew.Examiner().assignment.holdingSince = std::time(nullptr);
    if (!EnterPhase(Phase::kHold, "the clients to hold their answers") || !m_Crew.Start(m_Crew.Examiner()) ||
        !TendUntil("the examiner", [this] { return m_Crew.Examiner().pid == 0; })) {
        return false;
    }
    m_Board.phase.Set(static_cast<std::uint32_t>(Phase::kRelease));
    auto& clients = m_Crew.Clients();
    auto const haveLeft = [&] {
        return std::all_of(clients.begin(), clients.end(), [](Member const& one) { return one.pid == 0; });
    };
    if (!TendUntil("the clients to leave", haveLeft)) {
        return false;
    }
    m_Board.phase.Set(static_cast<std::uint32_t>(Phase::kEnd));
    return TendUntil("the server to leave", [this] { return m_Crew.Server().pid == 0; }) && SendVisitors();
}

// An opening looks at some dozens of files only, so that one visitor may not find all that many clients left.
bool Conductor::SendVisitors() {
    constexpr std::size_t kClientsForAVisit = 16;
    Member& visitor = m_Crew.Visitor();
    for (std::size_t i = 0; i <= m_Crew.Clients().size() / kClientsForAVisit; ++i) {
        if (!m_Crew.Start(visitor) || !TendUntil("a visitor to leave", [&] { return visitor.pid == 0; })) {
            return false;
        }
    }
    return true;
}

double Conductor::Seconds() const {
    return static_cast<double>((m_EndNs != 0 ? m_EndNs : NowNs()) - m_BeginNs) / kNsPerSecond;
}

std::uint64_t Conductor::Kills() const {
    return m_Crew.ClientKills() + m_Crew.ServerKills();
}

bool Conductor::IsOver() const {
    bool const isTimeUp = m_Options.seconds != 0 && Seconds() >= m_Options.seconds;
    return isTimeUp || (m_Options.kills != 0 && Kills() >= m_Options.kills);
}

// One look at everybody. Nobody is started any more once the storm has come to rest: who falls then is missed
// in the balance.
bool Conductor::Tend() {
    m_Crew.Reap();
    if (PhaseOf(m_Board) <= Phase::kQuiet) {
        for (Member& client : m_Crew.Clients()) {
            if (client.pid == 0 && !m_Crew.Start(client)) {
                return false;
            }
        }
        if (!TendServer()) {
            return false;
        }
    }
    ShowProgress(false);
    return true;
}

// A server formats the pool, so that none is started before all clients have noticed that the last one is
// dead, and have let go of what they had from it.
bool Conductor::TendServer() {
    Member& server = m_Crew.Server();
    if (m_Board.gate.Get() != 0) {
        m_GateClosedNs = NowNs();
        return true;
    }
    if (NowNs() - m_GateClosedNs > kStuckNs) {
        std::fprintf(stderr, "\nstuck: %s\n",
                     server.pid != 0 ? "the server does not open" : "a client is held");
        return false;
    }
    if (server.pid == 0) {
        return !AreAllClientsAtGate() || m_Crew.Start(server);
    }
    if (!server.isKilled && m_Board.readyServer.load() == server.assignment.life) {
        m_Board.gate.Set(server.assignment.life);
    }
    return true;
}

bool Conductor::AreAllClientsAtGate() {
    auto const& clients = m_Crew.Clients();
    return std::all_of(clients.begin(), clients.end(), [this](Member const& client) {
        return m_Board.clients[client.assignment.slot].isAtGate.load() != 0;
    });
}

// The server dies as often as three clients, in whatever it is doing: opening, waiting, in a handler.
void Conductor::KillOne() {
    constexpr std::size_t kServerShare = 3;
    std::size_t const clients = m_Crew.Clients().size();
    std::size_t const choice = m_Random() % (clients + kServerShare);
    Member& victim = choice < clients ? m_Crew.Clients()[choice] : m_Crew.Server();
    if (victim.pid != 0 && !victim.isKilled) {
        m_Crew.Kill(victim);
    }
}

void Conductor::ScheduleKill() {
    bool const isShort = m_Random() % 4 == 0;
    std::uint32_t const pauseUs =
        static_cast<std::uint32_t>(m_Random()) % (isShort ? kShortPauseUs : kLongestPauseUs);
    m_NextKillNs = NowNs() + std::int64_t{pauseUs} * 1000;
}

void Conductor::ShowProgress(bool isLast) {
    if (!isLast && NowNs() < m_NextProgressNs) {
        return;
    }
    m_NextProgressNs = NowNs() + (m_IsTerminal ? kTerminalProgressNs : kFileProgressNs);
    Totals const totals = TotalsOf(m_Board);
    std::printf("%s%7.1f s  %6llu kills  %9llu sent  %9llu answered  %llu wrong%s", m_IsTerminal ? "\r" : "",
                Seconds(), static_cast<unsigned long long>(Kills()),
                static_cast<unsigned long long>(totals.sent),
                static_cast<unsigned long long>(totals.answered),
                static_cast<unsigned long long>(totals.wrong), m_IsTerminal && !isLast ? "" : "\n");
    std::fflush(stdout);
}

template <typename Condition>
bool Conductor::TendUntil(char const* what, Condition condition) {
    std::int64_t const begin = NowNs();
    while (!condition()) {
        if (!Tend()) {
            return false;
        }
        if (NowNs() - begin > kStuckNs) {
            std::fprintf(stderr, "\nstuck: waited for %s\n", what);
            return false;
        }
        Crew::AwaitEnd(kTendMs);
    }
    return true;
}

bool Conductor::EnterPhase(Phase phase, char const* what) {
    m_Board.phase.Set(static_cast<std::uint32_t>(phase));
    return TendUntil(what, [this, phase] {
        auto const& clients = m_Crew.Clients();
        return std::all_of(clients.begin(), clients.end(), [this, phase](Member const& client) {
            return m_Board.clients[client.assignment.slot].confirmed.load() >=
                   static_cast<std::uint32_t>(phase);
        });
    });
}

}  // namespace Storm
