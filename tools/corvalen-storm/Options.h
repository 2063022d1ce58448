#pragma once

#include <cstdint>
#include <optional>

namespace Storm {

/// What the user asks for. The storm ends when the kills are done or the time is over, whichever is first.
struct Options {
    std::uint64_t kills = 0;    // 0: no bound
    std::uint32_t seconds = 0;  // 0: no bound
    std::uint32_t seed = 0;
    std::uint32_t clients = 6;
};

/// Reads the command line; none, with a word on standard error, if it is wrong or asks for help.
std::optional<Options> ReadOptions(int argc, char** argv);

}  // namespace Storm
