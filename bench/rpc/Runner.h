#pragma once

#include <cstdint>
#include <optional>

#include "bench/rpc/ServerProcess.h"
#include "bench/rpc/Transport.h"

namespace Bench {

struct RoundTrips {
    double p50Us = 0;
    double p99Us = 0;
    double p999Us = 0;
    /// Processor time of both processes and the transport's daemon for each message, in microseconds.
    double processorUs = 0;
    std::uint64_t wrong = 0;
};

struct Notifications {
    /// From the first send until the last was handled, divided by their number.
    double eachUs = 0;
    double processorUs = 0;
};

struct Question {
    Transport* transport = nullptr;
    Placement placement = Placement::kTwoProcessors;
    Waiting waiting = Waiting::kSleeping;
    std::size_t size = 64;
    unsigned count = 20'000;
};

/// Runs `question.count` round trips between two processes after a warm-up; none if it could not be run.
std::optional<RoundTrips> MeasureRoundTrips(Question const& question);
/// Sends `question.count` notifications after a warm-up; none if they could not be sent.
std::optional<Notifications> MeasureNotifications(Question const& question);
/// Percent of a processor that an idle server of `transport`, with its daemon, uses in `seconds`.
std::optional<double> MeasureIdle(Transport& transport, unsigned seconds);

}  // namespace Bench
