#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

namespace Storm {

constexpr unsigned kMaxClients = 64;
constexpr unsigned kHeldPerClient = 4;
/// The descriptor under which a spawned process finds the board.
constexpr int kBoardDescriptor = 3;

/// What the processes of a storm are about. Clients confirm each phase but the first.
enum class Phase : std::uint32_t {
    kRun,      // exchange messages and be killed
    kQuiet,    // own nothing
    kHold,     // own kHeldPerClient answers each
    kRelease,  // clients give them back and leave
    kEnd,      // the server leaves
};

/// A word that processes wait on until it changes.
class Signal {
public:
    [[nodiscard]] std::uint32_t Get() const { return m_Word.load(); }
    void Set(std::uint32_t value);
    /// Waits while the word is `value`, a tenth of a second at most: the caller looks again anyway.
    void WaitWhile(std::uint32_t value) const;

private:
    std::atomic<std::uint32_t> m_Word;
};

/// Times in steps of about six percent, from a microsecond to an hour.
class TimeHistogram {
public:
    void Add(std::int64_t ns);
    [[nodiscard]] std::uint64_t Count() const;
    /// The time that `share` (0 to 1) of all stay below or at, in milliseconds.
    [[nodiscard]] double Percentile(double share) const;
    [[nodiscard]] double MaxMs() const;

private:
    static constexpr unsigned kStepsPerOctave = 16;
    static constexpr unsigned kOctaves = 32;

    std::array<std::atomic<std::uint64_t>, kStepsPerOctave * kOctaves> m_Counts;
    std::atomic<std::int64_t> m_MaxNs;
};

using Counter = std::atomic<std::uint64_t>;

/// What one client has done in all of its lives. Each request is counted once as sent, and once by its end,
/// unless the client is killed in between.
struct ClientSlot {
    Counter sent, answered, refused, givenUp, wrong, notified, delivered;
    std::atomic<std::uint32_t> isAtGate;
    std::atomic<std::uint32_t> endpoint;
    std::atomic<std::uint32_t> confirmed;  // Phase
    std::array<std::atomic<std::uint32_t>, kHeldPerClient> held;
};

/// Memory that all processes of one storm share and that outlives each of them. It is made of zeros.
struct Board {
    Signal phase;  // Phase
    /// Which server serves, counted from 1; 0: the gate is closed. A client passes the gate before it uses
    /// the channel and comes back when the server is dead, since the next one formats the pool.
    Signal gate;
    std::atomic<std::uint32_t> readyServer;
    std::atomic<std::uint32_t> killedServer;
    std::atomic<std::int64_t> serverKilledNs;

    /// Endpoints of clients that were killed, for the server to purge.
    std::array<std::atomic<std::uint32_t>, 256> deadEndpoints;
    std::atomic<std::uint32_t> deadEndpointCount;

    TimeHistogram heldTimes;
    Counter wrongAtServer, outOfOrder, requestsHandled, notificationsHandled, purgedMeanwhile;
    Counter errorsLogged, mappingsLeft;
    Counter deathsInTheLock;  // as the next owners of the channel's lock report them
    /// What the examiner found at the end.
    Counter liveBeforePurge, purged, liveAfterPurge, notOwned, lost;
    std::atomic<std::uint32_t> isExamined;

    std::array<ClientSlot, kMaxClients> clients;
};

/// Creates the board, whose descriptor the caller hands to the processes it spawns; null on failure.
Board* CreateBoard(int& descriptor);
/// The board of the process that spawned this one; null on failure.
Board* InheritBoard();

[[nodiscard]] Phase PhaseOf(Board const& board);
[[nodiscard]] std::int64_t NowNs();

}  // namespace Storm
