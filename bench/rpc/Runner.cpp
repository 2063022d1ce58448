#include "bench/rpc/Runner.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace Bench {

namespace {

using SteadyClock = std::chrono::steady_clock;

// Requests before what is measured: for each ten of those one, or so many.
constexpr unsigned kWarmUpPart = 10;
constexpr unsigned kWarmUpRequests = 1000;

double Microseconds(SteadyClock::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}

std::string NewKey() {
    static unsigned s_Count = 0;
    return "corvbench_" + std::to_string(::getpid()) + "_" + std::to_string(++s_Count);
}

double At(std::vector<double> const& sorted, double part) {
    return sorted[std::min(sorted.size() - 1,
                           static_cast<std::size_t>(part * static_cast<double>(sorted.size())))];
}

// Processor time of all threads of a running process, 0 for none, in microseconds.
double ProcessorUs(pid_t process) {
    clockid_t clock{};
    timespec time{};
    if (process <= 0 || ::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
        return 0;
    }
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

// A connection to a server process of its own, for as long as one measurement takes.
class Session {
public:
    explicit Session(Question const& question) : m_Transport(*question.transport), m_Key(NewKey()) {
        // What is started later inherits the place: all of it if all run on one processor, else nothing.
        if (question.placement == Placement::kOneProcessor) {
            m_Place.emplace(question.placement);
        }
        if (!m_Transport.Prepare(m_Key)) {
            return;
        }
        m_Server.emplace(m_Transport, m_Key, question.waiting, question.placement);
        if (!m_Place) {
            m_Place.emplace(question.placement);
        }
        m_Client = m_Server->IsReady() ? m_Transport.Connect(m_Key, question.waiting) : nullptr;
    }
    ~Session() {
        if (IsOpen()) {
            bool const isEnding = m_Client->Ask(kStop, sizeof(Answer)).sequence == kStop;
            m_Client.reset();  // some servers end when their last client has gone
            if (isEnding) {
                m_Server->End();
            }
        }
    }
    Session(Session const&) = delete;
    Session& operator=(Session const&) = delete;

    [[nodiscard]] bool IsOpen() const { return m_Client != nullptr; }
    [[nodiscard]] Client& Peer() const { return *m_Client; }
    [[nodiscard]] double ServerUs() const {
        return ProcessorUs(m_Server->Pid()) + ProcessorUs(m_Transport.DaemonPid());
    }

private:
    Transport& m_Transport;
    std::string m_Key;
    std::optional<ClientPlace> m_Place;
    std::optional<ServerProcess> m_Server;
    std::unique_ptr<Client> m_Client;
};

std::uint64_t AskRepeatedly(Client& client, unsigned count, std::size_t size, std::vector<double>* times) {
    std::uint64_t wrong = 0;
    for (unsigned i = 0; i < count; ++i) {
        auto const begin = SteadyClock::now();
        Answer const answer = client.Ask(i, size);
        auto const end = SteadyClock::now();
        wrong += IsAnswer(answer, i) ? 0 : 1;
        if (times != nullptr) {
            times->push_back(Microseconds(end - begin));
        }
    }
    return wrong;
}

}  // namespace

std::optional<RoundTrips> MeasureRoundTrips(Question const& question) {
    Session session(question);
    if (!session.IsOpen()) {
        return std::nullopt;
    }
    RoundTrips result;
    result.wrong = AskRepeatedly(session.Peer(), question.count / kWarmUpPart, question.size, nullptr);
    std::vector<double> times;
    times.reserve(question.count);
    double const before = ProcessorUs(::getpid()) + session.ServerUs();
    result.wrong += AskRepeatedly(session.Peer(), question.count, question.size, &times);
    result.processorUs = (ProcessorUs(::getpid()) + session.ServerUs() - before) / question.count;
    std::sort(times.begin(), times.end());
    result.p50Us = At(times, 0.5);
    result.p99Us = At(times, 0.99);
    result.p999Us = At(times, 0.999);
    return result;
}

std::optional<Notifications> MeasureNotifications(Question const& question) {
    Session session(question);
    if (!session.IsOpen()) {
        return std::nullopt;
    }
    AskRepeatedly(session.Peer(), kWarmUpRequests, question.size, nullptr);
    double const before = ProcessorUs(::getpid()) + session.ServerUs();
    auto const begin = SteadyClock::now();
    for (unsigned i = 0; i < question.count;) {
        if (session.Peer().Notify(i, question.size)) {
            ++i;
        } else {
            std::this_thread::yield();
        }
    }
    // A request may overtake notifications, so one is not enough.
    while (session.Peer().Ask(kHowMany, sizeof(Answer)).sum < question.count) {
        std::this_thread::yield();
    }
    double const taken = Microseconds(SteadyClock::now() - begin);
    double const spent = ProcessorUs(::getpid()) + session.ServerUs() - before;
    return Notifications{taken / question.count, spent / question.count};
}

std::optional<double> MeasureIdle(Transport& transport, unsigned seconds) {
    Session session({&transport, Placement::kFree, Waiting::kSleeping, sizeof(Answer), 0});
    if (!session.IsOpen()) {
        return std::nullopt;
    }
    AskRepeatedly(session.Peer(), kWarmUpRequests, sizeof(Answer), nullptr);
    double const before = session.ServerUs();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    return (session.ServerUs() - before) / (seconds * 1e6) * 100;
}

}  // namespace Bench
