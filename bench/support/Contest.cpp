#include "bench/support/Contest.h"

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

namespace Bench {

double MedianOf(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    std::size_t const middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double NsEach(std::size_t count, std::function<void(std::size_t count)> const& act) {
    auto const start = std::chrono::steady_clock::now();
    act(count);
    std::chrono::duration<double, std::nano> const taken = std::chrono::steady_clock::now() - start;
    return taken.count() / static_cast<double>(count);
}

bool PinTo(unsigned n) {
    cpu_set_t allowed;
    if (::sched_getaffinity(0, sizeof allowed, &allowed) != 0) {
        return false;
    }
    for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
        if (CPU_ISSET(processor, &allowed) && n-- == 0) {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(processor, &one);
            return ::sched_setaffinity(0, sizeof one, &one) == 0;
        }
    }
    return false;
}

void Contest::Add(std::string name, std::function<void(std::size_t count)> act) {
    m_Entries.push_back({std::move(name), std::move(act)});
}

void Contest::Run(std::string const& title, int rounds, std::size_t count) const {
    std::vector<std::vector<double>> taken(m_Entries.size());
    for (int round = -1; round < rounds; ++round) {
        for (std::size_t n = 0; n < m_Entries.size(); ++n) {
            double const ns = NsEach(count, m_Entries[n].act);
            if (round >= 0) {
                taken[n].push_back(ns);
            }
        }
    }
    std::printf("\n%s\n%-44s %12s %8s\n", title.c_str(), "", "ns each", "ratio");
    double const first = m_Entries.empty() ? 0 : MedianOf(taken[0]);
    for (std::size_t n = 0; n < m_Entries.size(); ++n) {
        double const median = MedianOf(taken[n]);
        std::printf("%-44s %12.2f %8.2f\n", m_Entries[n].name.c_str(), median, median / first);
    }
    std::fflush(stdout);
}

}  // namespace Bench
