#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Bench {

/// The middle of the values; the mean of the two middle ones of an even number, 0 of none.
[[nodiscard]] double MedianOf(std::vector<double> values);

/// Nanoseconds for each of `count` operations that one call of `act` with that number does.
[[nodiscard]] double NsEach(std::size_t count, std::function<void(std::size_t count)> const& act);

/// Keeps the calling thread on the n-th processor that the process may use, counted from 0; false if there is
/// none.
bool PinTo(unsigned n);

/// Programs that do the same work, measured by turns in one run, so that what the machine does meanwhile
/// happens to all of them.
class Contest {
public:
    /// The first one added is what the others are compared with.
    void Add(std::string name, std::function<void(std::size_t count)> act);
    /// Runs each once to warm up, then `rounds` times by turns, and prints a table under `title`: the median
    /// of the nanoseconds of one operation, and how many times the first one's that is.
    void Run(std::string const& title, int rounds, std::size_t count) const;

private:
    struct Entry {
        std::string name;
        std::function<void(std::size_t count)> act;
    };

    std::vector<Entry> m_Entries;
};

}  // namespace Bench
