// What a message between two processes costs: this library, what one would use instead, what the kernel
// offers by itself, and the limits of the machine. Requests with checked answers, notifications, idle
// servers.

#include <signal.h>

#include <array>

#include "bench/rpc/Options.h"
#include "bench/rpc/Runner.h"
#include "bench/rpc/Table.h"

namespace {

using namespace Bench;

constexpr std::array kPlacements = {Placement::kFree, Placement::kTwoProcessors, Placement::kOneProcessor};
constexpr std::array kWaitings = {Waiting::kSleeping, Waiting::kPolling};
constexpr std::array kSizes = {std::size_t{64}, std::size_t{4096}, kMaxPayload};
constexpr std::size_t kNotificationSize = 64;

using Transports = std::vector<std::unique_ptr<Transport>>;

char const* NameOf(Waiting waiting) {
    return waiting == Waiting::kSleeping ? "waiting" : "polling";
}

// The transports that were wanted, ours first if it is among them.
Transports WantedTransports(Options const& options) {
    Transports wanted;
    for (auto& transport : AllTransports()) {
        if (options.Wants(transport->Name())) {
            wanted.push_back(std::move(transport));
        }
    }
    return wanted;
}

// Figures of transports under the same conditions, as multiples of ours.
class Ratios {
public:
    std::optional<double> Of(Transport const& transport, double us) {
        if (transport.IsOwn()) {
            m_Own = us;
        }
        return m_Own ? std::optional(us / *m_Own) : std::nullopt;
    }

private:
    std::optional<double> m_Own;
};

class Comparison {
public:
    Comparison(Options const& options, Table const& table)
        : m_Options(options), m_Table(table), m_Transports(WantedTransports(options)) {}

    /// Returns the number of wrong answers, and of our own measurements that failed.
    std::uint64_t Run() {
        for (Waiting const waiting : kWaitings) {
            for (Placement const placement : kPlacements) {
                for (std::size_t const size : kSizes) {
                    CompareRoundTrips({nullptr, placement, waiting, size, m_Options.roundTrips});
                }
                CompareNotifications(
                    {nullptr, placement, waiting, kNotificationSize, m_Options.notifications});
            }
        }
        CompareIdleServers();
        return m_Faults;
    }

private:
    void CompareRoundTrips(Question question) {
        Ratios ratios;
        for (auto const& transport : m_Transports) {
            question.transport = transport.get();
            if (!transport->Can(question.waiting)) {
                continue;
            }
            if (auto const result = MeasureRoundTrips(question)) {
                m_Faults += result->wrong;
                m_Table.Add({"round trip", transport->Name(), ::NameOf(question.waiting),
                             NameOf(question.placement), question.size, result->p50Us, result->p99Us,
                             result->p999Us, result->processorUs, ratios.Of(*transport, result->p50Us)});
            } else {
                Miss(*transport);
            }
        }
    }

    void CompareNotifications(Question question) {
        Ratios ratios;
        for (auto const& transport : m_Transports) {
            question.transport = transport.get();
            if (!transport->CanNotify() || !transport->Can(question.waiting)) {
                continue;
            }
            if (auto const result = MeasureNotifications(question)) {
                m_Table.Add({"notification", transport->Name(), ::NameOf(question.waiting),
                             NameOf(question.placement), question.size, result->eachUs, std::nullopt,
                             std::nullopt, result->processorUs, ratios.Of(*transport, result->eachUs)});
            } else {
                Miss(*transport);
            }
        }
    }

    void CompareIdleServers() {
        for (auto const& transport : m_Transports) {
            if (!transport->CanSleep()) {
                continue;
            }
            if (auto const percent = MeasureIdle(*transport, m_Options.idleSeconds)) {
                m_Table.Add({"idle", transport->Name(), ::NameOf(Waiting::kSleeping),
                             NameOf(Placement::kFree), 0, std::nullopt, std::nullopt, std::nullopt, *percent,
                             std::nullopt});
            } else {
                Miss(*transport);
            }
        }
    }

    // Ours has to work everywhere; a peer says itself what it lacks here.
    void Miss(Transport const& transport) {
        std::fprintf(stderr, "%s: not measured\n", transport.Name());
        m_Faults += transport.IsOwn() ? 1 : 0;
    }

    Options const& m_Options;
    Table const& m_Table;
    Transports m_Transports;
    std::uint64_t m_Faults = 0;
};

}  // namespace

int main(int argc, char** argv) {
    // A peer that ends is a failed measurement, not the end of the run.
    ::signal(SIGPIPE, SIG_IGN);
    if (auto const code = ServeIfAsked(argc, argv)) {
        return *code;
    }
    auto const options = ReadOptions(argc, argv);
    if (!options) {
        return 2;
    }
    Table const table(options->csv);
    if (!table.IsValid()) {
        std::perror(options->csv.c_str());
        return 2;
    }
    std::uint64_t const faults = Comparison(*options, table).Run();
    std::printf("wrong or missing answers: %llu\n", static_cast<unsigned long long>(faults));
    return faults == 0 ? 0 : 1;
}
