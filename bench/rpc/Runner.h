#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "bench/rpc/Transport.h"

namespace Bench {

enum class Placement { kFree, kTwoProcessors, kOneProcessor };

char const* NameOf(Placement placement);

struct RoundTrips {
    double p50Us = 0;
    double p99Us = 0;
    double p999Us = 0;
    /// Processor time of both processes for each message, in microseconds.
    double processorUs = 0;
    std::uint64_t wrong = 0;
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
/// Microseconds for each of `question.count` notifications, from the first send until the last was handled.
std::optional<double> MeasureNotifications(Question const& question);
/// Percent of a processor that an idle server of `transport` uses in `seconds`.
std::optional<double> MeasureIdle(Transport& transport, unsigned seconds);

/// What a program with transports does first in its main: if it was started as a server process, it serves
/// and this returns the exit code.
std::optional<int> ServeIfAsked(int argc, char** argv);

}  // namespace Bench
