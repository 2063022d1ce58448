#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Bench {

struct Options {
    /// Parts of the names of the transports to measure; all if there is none.
    std::vector<std::string> only;
    /// The file that gets the table with commas; none if empty.
    std::string csv;
    unsigned roundTrips = 20'000;
    unsigned notifications = 1'000'000;
    unsigned idleSeconds = 10;

    [[nodiscard]] bool Wants(std::string const& transport) const;
};

/// None, with the usage on standard error, if the arguments make no sense.
std::optional<Options> ReadOptions(int argc, char** argv);

}  // namespace Bench
