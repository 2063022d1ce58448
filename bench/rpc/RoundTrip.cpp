// The short question: how long a request and its answer take between two processes, beside what the kernel
// offers and the raw limits. `rpc` asks it of all peers.

#include <cstdio>
#include <string_view>

#include "bench/rpc/Runner.h"
#include "bench/rpc/ServerProcess.h"
#include "bench/rpc/Transport.h"

namespace {

using namespace Bench;

struct Row {
    Placement placement;
    std::size_t size;
};

// Prints the times of all transports, and counts wrong answers.
std::uint64_t Compare(std::vector<std::unique_ptr<Transport>> const& transports, Row const& row) {
    std::uint64_t wrong = 0;
    double own = 0;
    for (auto const& transport : transports) {
        // A spinning pair on one processor waits for the scheduler at every step.
        if (transport->Name() == std::string_view("raw spinning") &&
            row.placement == Placement::kOneProcessor) {
            continue;
        }
        auto const result = MeasureRoundTrips({transport.get(), row.placement, Waiting::kSleeping, row.size});
        if (!result) {
            continue;
        }
        own = own == 0 ? result->p50Us : own;
        wrong += result->wrong;
        std::printf("%-14s %6zu  %-14s %9.2f %9.2f %8.2f\n", transport->Name(), row.size,
                    NameOf(row.placement), result->p50Us, result->p99Us, result->p50Us / own);
    }
    return wrong;
}

}  // namespace

int main(int argc, char** argv) {
    if (auto const code = ServeIfAsked(argc, argv)) {
        return *code;
    }
    auto const transports = AllTransports();
    std::printf("%-14s %6s  %-14s %9s %9s %8s\n", "transport", "bytes", "placement", "p50 us", "p99 us",
                "to ours");
    std::uint64_t wrong = 0;
    for (Placement const placement :
         {Placement::kFree, Placement::kTwoProcessors, Placement::kOneProcessor}) {
        for (std::size_t const size : {std::size_t{64}, std::size_t{4096}}) {
            wrong += Compare(transports, {placement, size});
        }
    }
    std::printf("wrong answers: %llu\n", static_cast<unsigned long long>(wrong));
    return wrong == 0 ? 0 : 1;
}
