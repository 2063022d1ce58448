#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "Board.h"
#include "Crew.h"
#include "Options.h"

namespace Storm {

/// Runs a storm: keeps the crew going, kills, and at the end brings all of them to rest.
class Conductor {
public:
    Conductor(Options const& options, Board& board, Crew& crew);

    /// Kills and starts until the bound is reached; false if the crew got stuck.
    bool Rage();
    /// Lets the clients hold a few answers each, has the pool examined and purged, and sends all home; false
    /// if the crew got stuck.
    bool Settle();

    [[nodiscard]] double Seconds() const;

private:
    [[nodiscard]] std::uint64_t Kills() const;
    [[nodiscard]] bool IsOver() const;
    bool Tend();
    bool TendServer();
    bool AreAllClientsAtGate();
    void KillOne();
    void ScheduleKill();
    void ShowProgress(bool isLast);
    template <typename Condition>
    bool TendUntil(char const* what, Condition condition);
    bool SendVisitors();
    bool EnterPhase(Phase phase, char const* what);

    Options const m_Options;
    Board& m_Board;
    Crew& m_Crew;
    std::mt19937 m_Random;
    std::int64_t const m_BeginNs;
    std::int64_t m_EndNs = 0;
    std::int64_t m_NextKillNs = 0;
    std::int64_t m_NextProgressNs = 0;
    std::int64_t m_GateClosedNs = 0;
    bool const m_IsTerminal;
};

}  // namespace Storm
