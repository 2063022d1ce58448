// How long a request and its answer take between two processes, beside what the kernel offers and the raw
// limits.

#include <cstdio>

#include "bench/rpc/Runner.h"

int main(int argc, char** argv) {
    using namespace Bench;
    if (auto const code = ServeIfAsked(argc, argv)) {
        return *code;
    }
    auto const transports = AllTransports();
    std::uint64_t wrong = 0;
    std::printf("%-16s %7s %-15s %9s %9s %7s\n", "transport", "bytes", "placement", "p50 us", "p99 us",
                "ratio");
    for (Placement const placement :
         {Placement::kFree, Placement::kTwoProcessors, Placement::kOneProcessor}) {
        for (std::size_t const size : {std::size_t{64}, std::size_t{4096}}) {
            double own = 0;
            for (auto const& transport : transports) {
                // A spinning pair on one processor waits for the scheduler at every step.
                if (transport->Name() == std::string("raw spinning") &&
                    placement == Placement::kOneProcessor) {
                    continue;
                }
                auto const result =
                    MeasureRoundTrips({transport.get(), placement, Waiting::kSleeping, size, 20'000});
                if (!result) {
                    continue;
                }
                own = own == 0 ? result->p50Us : own;
                wrong += result->wrong;
                std::printf("%-16s %7zu %-15s %9.2f %9.2f %7.2f\n", transport->Name(), size,
                            NameOf(placement), result->p50Us, result->p99Us, result->p50Us / own);
            }
        }
    }
    std::printf("wrong answers: %llu\n", static_cast<unsigned long long>(wrong));
    return wrong == 0 ? 0 : 1;
}
