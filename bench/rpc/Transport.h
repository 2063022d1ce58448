#pragma once

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

/// The answer to a payload, whose first eight bytes are its sequence.
Answer AnswerTo(void const* payload, std::size_t size);

enum class Waiting { kSleeping, kPolling };

class Client {
public:
    virtual ~Client() = default;
    /// Sends `size` bytes that start with `sequence`, and waits for the answer.
    virtual Answer Ask(std::uint64_t sequence, std::size_t size) = 0;
    /// Sends a notification of `size` bytes; false if that is not possible now.
    virtual bool Notify(std::uint64_t sequence, std::size_t size) = 0;
    /// Returns once the server has handled `count` notifications in all. Where messages stay in order, an
    /// answer to a request tells that.
    virtual void AwaitNotified(unsigned count);
};

class Transport {
public:
    virtual ~Transport() = default;
    [[nodiscard]] virtual char const* Name() const = 0;
    /// Whether the other end is asked, or the raw limit of the machine.
    [[nodiscard]] virtual bool IsLimit() const { return false; }
    [[nodiscard]] virtual bool CanPoll() const { return false; }
    [[nodiscard]] virtual bool CanNotify() const { return false; }
    [[nodiscard]] virtual bool CanCarry(std::size_t) const { return true; }
    /// Serves under `key`, in the server process: prints "ready" once clients can connect, answers until it
    /// gets the sequence kStop.
    virtual int Serve(std::string const& key, Waiting waiting) = 0;
    virtual std::unique_ptr<Client> Connect(std::string const& key, Waiting waiting) = 0;
};

constexpr std::uint64_t kStop = ~std::uint64_t{0};
constexpr std::size_t kMaxPayload = 65536;

/// Says on standard output that clients can connect.
void ReportReady();
/// Fills a payload: its sequence, then bytes that depend on it.
void Fill(void* payload, std::uint64_t sequence, std::size_t size);

// One for each file of this folder; a peer that is not installed is missing from AllTransports.
std::unique_ptr<Transport> MakeOwn();
std::unique_ptr<Transport> MakeRawSpinning();
std::unique_ptr<Transport> MakeRawFutex();
std::unique_ptr<Transport> MakePipe();
std::unique_ptr<Transport> MakeSeqPacket();

std::vector<std::unique_ptr<Transport>> AllTransports();

}  // namespace Bench
