#include "bench/rpc/Runner.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace Bench {

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr char kServe[] = "--serve";
constexpr unsigned kWarmUp = 2000;

double Microseconds(SteadyClock::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}

void PinTo(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    if (::sched_setaffinity(0, sizeof set, &set) != 0) {
        std::perror("sched_setaffinity");
    }
}

// The client always runs on processor 0 when it is pinned.
int ServerProcessor(Placement placement) {
    return placement == Placement::kTwoProcessors ? 1 : 0;
}

class Pinned {
public:
    explicit Pinned(Placement placement) {
        ::sched_getaffinity(0, sizeof m_Before, &m_Before);
        if (placement != Placement::kFree) {
            PinTo(0);
        }
    }
    ~Pinned() { ::sched_setaffinity(0, sizeof m_Before, &m_Before); }
    Pinned(Pinned const&) = delete;
    Pinned& operator=(Pinned const&) = delete;

private:
    cpu_set_t m_Before;
};

double ProcessorUs(int who) {
    rusage usage{};
    ::getrusage(who, &usage);
    auto const us = [](timeval const& time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    };
    return us(usage.ru_utime) + us(usage.ru_stime);
}

class ServerProcess {
public:
    ServerProcess(Transport const& transport, std::string const& key, Waiting waiting, Placement placement) {
        int output[2];
        if (::pipe2(output, O_CLOEXEC) != 0) {
            return;
        }
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        std::string const processor =
            std::to_string(placement == Placement::kFree ? -1 : ServerProcessor(placement));
        char const* const argv[] = {"server",
                                    kServe,
                                    transport.Name(),
                                    key.c_str(),
                                    waiting == Waiting::kPolling ? "polling" : "sleeping",
                                    processor.c_str(),
                                    nullptr};
        if (::posix_spawn(&m_Pid, "/proc/self/exe", &actions, nullptr, const_cast<char**>(argv), environ) !=
            0) {
            m_Pid = -1;
        }
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(output[1]);
        char line[8];
        m_IsReady = m_Pid > 0 && ::read(output[0], line, sizeof line) > 0;
        ::close(output[0]);
    }
    ~ServerProcess() {
        if (m_Pid > 0) {
            ::kill(m_Pid, SIGKILL);
            End();
        }
    }
    ServerProcess(ServerProcess const&) = delete;
    ServerProcess& operator=(ServerProcess const&) = delete;

    [[nodiscard]] bool IsReady() const { return m_IsReady; }
    [[nodiscard]] pid_t Pid() const { return m_Pid; }
    void End() {
        int status = 0;
        ::waitpid(m_Pid, &status, 0);
        m_Pid = -1;
    }

private:
    pid_t m_Pid = -1;
    bool m_IsReady = false;
};

std::string NewKey() {
    static unsigned s_Count = 0;
    return "corvbench_" + std::to_string(::getpid()) + "_" + std::to_string(++s_Count);
}

double At(std::vector<double> const& sorted, double part) {
    return sorted[std::min(sorted.size() - 1,
                           static_cast<std::size_t>(part * static_cast<double>(sorted.size())))];
}

// A connection to a server process of its own, for as long as one measurement takes.
struct Session {
    explicit Session(Question const& question)
        : pinned(question.placement),
          key(NewKey()),
          server(*question.transport, key, question.waiting, question.placement),
          client(server.IsReady() ? question.transport->Connect(key, question.waiting) : nullptr) {}
    ~Session() {
        if (client != nullptr) {
            client->Ask(kStop, sizeof(Answer));
            server.End();
        }
    }

    Pinned pinned;
    std::string key;
    ServerProcess server;
    std::unique_ptr<Client> client;
};

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

std::optional<RoundTrips> MeasureRoundTrips(Question const& question) {
    std::vector<double> times;
    RoundTrips result;
    double const childrenBefore = ProcessorUs(RUSAGE_CHILDREN);
    double const selfBefore = ProcessorUs(RUSAGE_SELF);
    {
        Session session(question);
        if (session.client == nullptr) {
            return std::nullopt;
        }
        for (unsigned i = 0; i < kWarmUp + question.count; ++i) {
            auto const begin = SteadyClock::now();
            Answer const answer = session.client->Ask(i, question.size);
            auto const end = SteadyClock::now();
            result.wrong += answer.sequence != i ? 1 : 0;
            if (i >= kWarmUp) {
                times.push_back(Microseconds(end - begin));
            }
        }
    }
    double const spent =
        ProcessorUs(RUSAGE_SELF) - selfBefore + ProcessorUs(RUSAGE_CHILDREN) - childrenBefore;
    result.processorUs = spent / (kWarmUp + question.count);
    std::sort(times.begin(), times.end());
    result.p50Us = At(times, 0.5);
    result.p99Us = At(times, 0.99);
    result.p999Us = At(times, 0.999);
    return result;
}

std::optional<double> MeasureNotifications(Question const& question) {
    Session session(question);
    if (session.client == nullptr) {
        return std::nullopt;
    }
    for (unsigned i = 0; i < kWarmUp; ++i) {
        session.client->Ask(i, question.size);
    }
    auto const begin = SteadyClock::now();
    for (unsigned i = 0; i < question.count;) {
        if (session.client->Notify(i, question.size)) {
            ++i;
        }
    }
    // A request may overtake notifications; the server counts, and answers this one when it has all.
    session.client->AwaitNotified(question.count);
    return Microseconds(SteadyClock::now() - begin) / question.count;
}

std::optional<double> MeasureIdle(Transport& transport, unsigned seconds) {
    Question question;
    question.transport = &transport;
    question.placement = Placement::kFree;
    Session session(question);
    if (session.client == nullptr) {
        return std::nullopt;
    }
    for (unsigned i = 0; i < kWarmUp; ++i) {
        session.client->Ask(i, question.size);
    }
    auto const ticks = [&session] {
        std::FILE* const file =
            std::fopen(("/proc/" + std::to_string(session.server.Pid()) + "/schedstat").c_str(), "r");
        unsigned long long ns = 0;
        if (file != nullptr) {
            static_cast<void>(!std::fscanf(file, "%llu", &ns));
            std::fclose(file);
        }
        return static_cast<double>(ns);
    };
    double const before = ticks();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    return (ticks() - before) / (seconds * 1e9) * 100;
}

std::optional<int> ServeIfAsked(int argc, char** argv) {
    if (argc < 6 || std::strcmp(argv[1], kServe) != 0) {
        return std::nullopt;
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (int const processor = std::atoi(argv[5]); processor >= 0) {
        PinTo(processor);
    }
    for (auto const& transport : AllTransports()) {
        if (std::strcmp(transport->Name(), argv[2]) == 0) {
            return transport->Serve(
                argv[3], std::strcmp(argv[4], "polling") == 0 ? Waiting::kPolling : Waiting::kSleeping);
        }
    }
    return 2;
}

}  // namespace Bench
