#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Bench {

// What is compared: a client process asks a server process, with a payload in, and gets a small answer that
// it checks. Each transport plays both sides; the runner starts the server as a process of its own.

struct Answer {
    std::uint64_t sequence;  // that of the request
    std::uint64_t sum;       // of the payload's first and last eight bytes
};

// A request with this sequence ends the server.
constexpr std::uint64_t kStop = ~std::uint64_t{0};
// One with this asks for the number of notifications that were handled; the answer's sum is that.
constexpr std::uint64_t kHowMany = kStop - 1;
constexpr std::size_t kMaxPayload = 65536;

/// Fills a payload: its sequence, then bytes that depend on it.
void Fill(void* payload, std::uint64_t sequence, std::size_t size);
/// Whether this answers what Fill makes of `sequence` and of at least sizeof(Answer) bytes.
bool IsAnswer(Answer const& answer, std::uint64_t sequence);

/// What a server process answers, and how many notifications it has handled. Any thread may use it.
class Answers {
public:
    /// The answer to a payload, whose first eight bytes are its sequence.
    [[nodiscard]] Answer To(void const* payload, std::size_t size) const;
    void HandleNotification() { m_Notified.fetch_add(1, std::memory_order_relaxed); }

private:
    std::atomic<std::uint64_t> m_Notified{0};
};

/// Says on standard output that clients can connect.
void ReportReady();
/// Whether client and server have one processor together.
void ShareProcessor(bool isShared);
/// What a polling thread does between two looks: on a shared processor it lets the other side run.
void PausePolling();

enum class Waiting { kSleeping, kPolling };

class Client {
public:
    virtual ~Client() = default;
    /// Sends `size` bytes that start with `sequence`, and waits for the answer.
    virtual Answer Ask(std::uint64_t sequence, std::size_t size) = 0;
    /// Sends a notification of `size` bytes; false if that is not possible now.
    virtual bool Notify(std::uint64_t sequence, std::size_t size) = 0;
};

class Transport {
public:
    virtual ~Transport() = default;
    [[nodiscard]] virtual char const* Name() const = 0;
    /// Whether it is the one that the others are compared with.
    [[nodiscard]] virtual bool IsOwn() const { return false; }
    [[nodiscard]] virtual bool CanSleep() const { return true; }
    [[nodiscard]] virtual bool CanPoll() const { return false; }
    [[nodiscard]] virtual bool CanNotify() const { return false; }
    [[nodiscard]] bool Can(Waiting waiting) const {
        return waiting == Waiting::kSleeping ? CanSleep() : CanPoll();
    }
    /// Starts what client and server need beside them, in the client's process, before the server is started;
    /// false, with the reason on standard error, if that is not possible here.
    virtual bool Prepare(std::string const&) { return true; }
    /// The process that Prepare started and that works for each message, or 0.
    [[nodiscard]] virtual pid_t DaemonPid() const { return 0; }
    /// Serves under `key`, in the server process: prints "ready" once clients can connect, answers until it
    /// gets the sequence kStop.
    virtual int Serve(std::string const& key, Waiting waiting) = 0;
    /// None, with the reason on standard error, if there is no connection.
    virtual std::unique_ptr<Client> Connect(std::string const& key, Waiting waiting) = 0;
};

// Each is made by a file of this folder; a peer that is not installed is missing from AllTransports.
std::unique_ptr<Transport> MakeOwn();
std::unique_ptr<Transport> MakeRawSpinning();
std::unique_ptr<Transport> MakeRawFutex();
std::unique_ptr<Transport> MakePipe();
std::unique_ptr<Transport> MakeSeqPacket();
std::unique_ptr<Transport> MakeZeroMq();
std::unique_ptr<Transport> MakeNng();
std::unique_ptr<Transport> MakeBoostQueue();
std::unique_ptr<Transport> MakeIceoryx();
std::unique_ptr<Transport> MakePrivateSdBus();
std::unique_ptr<Transport> MakeDaemonSdBus();

/// Ours first, then the peers, then the limits.
std::vector<std::unique_ptr<Transport>> AllTransports();

}  // namespace Bench
