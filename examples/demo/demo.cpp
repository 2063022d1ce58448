// The demo: a message centre and three clients, four processes on one channel. In the middle of its work one
// client is killed and started again. Nothing may be lost or wrong: then the exit code is 0.
//
//   demo MESSAGES LOG-FOLDER [ROUNDS]

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "common/Child.h"
#include "common/MessageFile.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kClients = 3;
constexpr unsigned kVictim = 1;  // index of the client that is killed

struct Settings {
    std::string programs;  // the folder of the demo's programs
    std::string messages;
    std::filesystem::path logs;
    std::string channel;
    unsigned rounds = 300;
    unsigned share = 0;  // messages that each client hands in
};

struct Client {
    std::string name;
    Demo::Child process;
    unsigned progress = 0;
    bool killed = false;
    bool finished = false;
    bool good = false;
    unsigned requests = 0;
    unsigned notifications = 0;
    unsigned mismatches = 0;
    double p50 = 0;
    double p99 = 0;
};

struct CentreCounts {
    bool known = false;
    unsigned requests = 0;
    unsigned notified = 0;
    unsigned unreachable = 0;
    unsigned left = 0;
    unsigned purged = 0;
    unsigned after = 0;
};

class Demonstration {
public:
    explicit Demonstration(Settings settings)
        : m_Settings(std::move(settings)),
          m_Deadline(Clock::now() + std::chrono::minutes(4)),
          m_Centre({m_Settings.programs + "/message-centre", m_Settings.channel, LogName()}) {}

    /// Whether everything arrived, once and whole.
    bool Run() {
        if (NextLineOfCentre() != "ready") {
            std::fputs("the message centre did not open\n", stderr);
            return false;
        }
        for (unsigned i = 0; i < kClients; ++i) {
            StartClient("client " + std::to_string(i + 1));
        }
        while (AnyoneAtWork()) {
            if (!ReceiveFromClients()) {
                std::fputs("the clients do not get on\n", stderr);
                return false;
            }
        }
        StopCentre();
        PrintTable();
        PrintLogs();
        return IsAllWell();
    }

private:
    [[nodiscard]] std::string LogName() const { return (m_Settings.logs / "message_centre").string(); }

    void StartClient(std::string const& name) {
        Demo::Child process({m_Settings.programs + "/message-client", m_Settings.channel, m_Settings.messages,
                             std::to_string(m_Settings.rounds)});
        m_Clients.push_back({.name = name, .process = std::move(process)});
    }

    [[nodiscard]] bool AnyoneAtWork() const {
        for (Client const& client : m_Clients) {
            if (client.process.IsRunning()) {
                return true;
            }
        }
        return false;
    }

    [[nodiscard]] int MillisecondsLeft() const {
        auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(m_Deadline - Clock::now());
        return left.count() > 0 ? static_cast<int>(left.count()) : 0;
    }

    std::string NextLineOfCentre() {
        for (;;) {
            if (auto line = m_Centre.TakeLine()) {
                return *line;
            }
            pollfd entry{m_Centre.Output(), POLLIN, 0};
            if (entry.fd < 0 || ::poll(&entry, 1, MillisecondsLeft()) <= 0) {
                return {};
            }
            m_Centre.Receive();
        }
    }

    // False if nothing came before the deadline.
    bool ReceiveFromClients() {
        std::vector<pollfd> entries;
        for (Client const& client : m_Clients) {
            entries.push_back({client.process.Output(), POLLIN, 0});
        }
        if (::poll(entries.data(), entries.size(), MillisecondsLeft()) <= 0) {
            return false;
        }
        for (std::size_t i = 0; i < entries.size(); ++i) {
            if (entries[i].revents != 0) {
                ReceiveFrom(i);
            }
        }
        return true;
    }

    void ReceiveFrom(std::size_t index) {
        Client& client = m_Clients[index];
        client.process.Receive();
        while (auto line = client.process.TakeLine()) {
            Read(client, *line);
        }
        if (client.process.Output() < 0) {
            client.good = client.process.Wait() == 0 && client.finished;
        } else if (index == kVictim && client.progress >= m_Settings.share / 3 && !client.killed) {
            KillAndStartAgain(client);
        }
        PrintProgress();
    }

    static void Read(Client& client, std::string const& line) {
        long p50 = 0;
        long p99 = 0;
        if (std::sscanf(line.c_str(), "progress %u", &client.progress) == 1) {
            return;
        }
        client.finished = std::sscanf(line.c_str(), "result %u %u %u %ld %ld", &client.requests,
                                      &client.notifications, &client.mismatches, &p50, &p99) == 5;
        client.p50 = static_cast<double>(p50) / 10;
        client.p99 = static_cast<double>(p99) / 10;
    }

    void KillAndStartAgain(Client& client) {
        client.process.Kill();
        client.killed = true;
        std::printf("       %s is killed after about %u messages, and started again\n", client.name.c_str(),
                    client.progress);
        StartClient(client.name + " again");
    }

    void PrintProgress() {
        constexpr unsigned kStep = 10;
        unsigned done = 0;
        for (Client const& client : m_Clients) {
            done += client.killed ? 0 : client.progress;
        }
        unsigned const all = kClients * m_Settings.share;
        unsigned const percent = 100 * (done / kClients) / (all / kClients);
        if (percent >= m_Shown + kStep) {
            m_Shown = percent - percent % kStep;
            std::printf("%4u %% %7u of %u messages\n", m_Shown, done, all);
        }
    }

    void StopCentre() {
        m_Centre.WriteLine("stop");
        CentreCounts& counts = m_Counts;
        bool const told = std::sscanf(NextLineOfCentre().c_str(), "done %u %u %u %u %u %u", &counts.requests,
                                      &counts.notified, &counts.unreachable, &counts.left, &counts.purged,
                                      &counts.after) == 6;
        counts.known = m_Centre.Wait() == 0 && told;
    }

    void PrintTable() const {
        std::printf("\n%-16s %10s %14s %11s %9s %9s\n", "", "requests", "notifications", "mismatches",
                    "p50 [us]", "p99 [us]");
        unsigned requests = 0;
        unsigned notifications = 0;
        unsigned mismatches = 0;
        for (Client const& client : m_Clients) {
            if (client.killed) {
                std::printf("%-16s %10s killed with SIGKILL\n", client.name.c_str(), "");
                continue;
            }
            std::printf("%-16s %10u %14u %11u %9.1f %9.1f%s\n", client.name.c_str(), client.requests,
                        client.notifications, client.mismatches, client.p50, client.p99,
                        client.good ? "" : "  FAILED");
            requests += client.requests;
            notifications += client.notifications;
            mismatches += client.mismatches;
        }
        std::printf("%-16s %10u %14u %11u\n", "together", requests, notifications, mismatches);
        std::printf(
            "\nthe centre took %u messages, sent %u notifications, could not reach a client %u times\n",
            m_Counts.requests, m_Counts.notified, m_Counts.unreachable);
        std::printf("handles left in the pool: %u before the purge, %u purged, %u after it\n", m_Counts.left,
                    m_Counts.purged, m_Counts.after);
    }

    void PrintLogs() const {
        for (char const* extension : {".rlg", ".cr_log"}) {
            std::string const path = LogName() + extension;
            std::printf("\nthe last lines of %s\n", path.c_str());
            std::ifstream file(path);
            std::deque<std::string> lines;
            for (std::string line; std::getline(file, line);) {
                lines.push_back(line.substr(0, line.find('\r')));
                if (lines.size() > 3) {
                    lines.pop_front();
                }
            }
            for (std::string const& line : lines) {
                std::printf("  %.150s\n", line.c_str());
            }
        }
    }

    [[nodiscard]] bool IsAllWell() const {
        unsigned requests = 0;
        for (Client const& client : m_Clients) {
            bool const whole = client.good && client.mismatches == 0 && client.requests == m_Settings.share &&
                               client.notifications == m_Settings.share;
            if (!client.killed && !whole) {
                return false;
            }
            requests += client.requests;
        }
        return requests == kClients * m_Settings.share && m_Counts.known && m_Counts.requests >= requests &&
               m_Counts.after == 0;
    }

    Settings m_Settings;
    Clock::time_point m_Deadline;
    Demo::Child m_Centre;
    std::deque<Client> m_Clients;
    CentreCounts m_Counts;
    unsigned m_Shown = 0;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: demo MESSAGES LOG-FOLDER [ROUNDS]\n", stderr);
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    ::signal(SIGPIPE, SIG_IGN);  // a child that has gone shows in what it left, not by our end
    Settings settings{.programs = std::filesystem::canonical("/proc/self/exe").parent_path().string(),
                      .messages = argv[1],
                      .logs = argv[2],
                      .channel = "corvalen_demo_" + std::to_string(::getpid())};
    settings.rounds = argc > 3 ? static_cast<unsigned>(std::atoi(argv[3])) : settings.rounds;
    settings.share = settings.rounds * static_cast<unsigned>(Demo::ReadMessageFile(settings.messages).size());
    std::error_code error;
    std::filesystem::create_directories(settings.logs, error);
    if (settings.share == 0 || error) {
        std::fprintf(stderr, "no messages in %s, or no folder %s\n", argv[1], argv[2]);
        return 2;
    }
    std::printf("a message centre and %u clients, %u messages each; logs go to %s\n", kClients,
                settings.share, argv[2]);
    bool const well = Demonstration(settings).Run();
    std::puts(well ? "\nnothing was lost, nothing was wrong" : "\nFAILED: something was lost or wrong");
    return well ? 0 : 1;
}
