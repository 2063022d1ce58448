#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Board.h"
#include "Roles.h"

namespace Storm {

/// One process of the storm, alive or not.
struct Member {
    Assignment assignment;
    pid_t pid = 0;  // 0: not running
    bool isKilled = false;
};

/// The processes of the storm: this program once more, with a part of its own. They end with the storm.
class Crew {
public:
    Crew(Board& board, int boardDescriptor, std::string const& channel, std::uint32_t clients,
         std::uint32_t seed);
    ~Crew();
    Crew(Crew const&) = delete;
    Crew& operator=(Crew const&) = delete;

    /// Starts a member anew, in its next life.
    bool Start(Member& member);
    /// Ends a running member with SIGKILL; Reap sees it.
    void Kill(Member& member);
    /// Takes note of all that have ended. Whoever was not killed and did not leave with 0 in the phase of
    /// leaving counts as fallen.
    void Reap();

    [[nodiscard]] Member& Server() { return m_Server; }
    [[nodiscard]] Member& Examiner() { return m_Examiner; }
    [[nodiscard]] Member& Visitor() { return m_Visitor; }
    [[nodiscard]] std::vector<Member>& Clients() { return m_Clients; }
    [[nodiscard]] std::uint64_t Fallen() const { return m_Fallen; }
    [[nodiscard]] std::uint64_t ClientKills() const { return m_ClientKills; }
    [[nodiscard]] std::uint64_t ServerKills() const { return m_ServerKills; }

    /// Waits until a member ends, at most `ms` milliseconds.
    static void AwaitEnd(int ms);

private:
    void NoteEnd(Member& member, int status);
    void NoteClientDeath(Member const& member);
    Member* FindMember(pid_t pid);

    Board& m_Board;
    int m_BoardDescriptor;
    Member m_Server;
    Member m_Examiner;
    Member m_Visitor;
    std::vector<Member> m_Clients;
    std::uint64_t m_Fallen = 0;
    std::uint64_t m_ClientKills = 0;
    std::uint64_t m_ServerKills = 0;
};

/// Reads what Crew::Start put onto the command line; false if this process is no member.
bool ReadAssignment(int argc, char** argv, Assignment& assignment);

}  // namespace Storm
