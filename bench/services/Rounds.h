#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace Bench {

/// One of those that are compared. `prepare` is not timed.
struct Contestant {
    std::string name;
    std::function<void()> prepare;
    std::function<void()> work;
};

inline double MillisecondsOf(std::function<void()> const& work) {
    auto const start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

/// Lets all take turns, so that a busy moment of the machine hits them all, and prints the medians, with how
/// much the others take of the time of the first.
inline void Compare(char const* title, unsigned rounds, std::vector<Contestant> const& contestants) {
    std::vector<std::vector<double>> times(contestants.size());
    for (unsigned round = 0; round < rounds; ++round) {
        for (std::size_t turn = 0; turn < contestants.size(); ++turn) {
            std::size_t const i = (turn + round) % contestants.size();
            contestants[i].prepare();
            times[i].push_back(MillisecondsOf(contestants[i].work));
        }
    }
    std::printf("%s (median of %u)\n", title, rounds);
    double first = 0;
    for (std::size_t i = 0; i < contestants.size(); ++i) {
        auto const middle = times[i].begin() + static_cast<std::ptrdiff_t>(times[i].size() / 2);
        std::nth_element(times[i].begin(), middle, times[i].end());
        first = i == 0 ? *middle : first;
        std::printf("  %-34s %10.3f ms   x %.2f\n", contestants[i].name.c_str(), *middle, *middle / first);
    }
}

}  // namespace Bench
