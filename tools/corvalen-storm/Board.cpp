#include "Board.h"

#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <ctime>

namespace Storm {

namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr std::int64_t kNsPerUs = 1000;
constexpr double kNsPerMs = 1e6;
constexpr long kLongestWaitNs = 100'000'000;

Board* Map(int descriptor) {
    void* const memory = ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    return memory != MAP_FAILED ? static_cast<Board*>(memory) : nullptr;
}

}  // namespace

void Signal::Set(std::uint32_t value) {
    m_Word.store(value);
    ::syscall(SYS_futex, &m_Word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

void Signal::WaitWhile(std::uint32_t value) const {
    timespec const limit{0, kLongestWaitNs};
    ::syscall(SYS_futex, &m_Word, FUTEX_WAIT, value, &limit, nullptr, 0);
}

void TimeHistogram::Add(std::int64_t ns) {
    auto const us = static_cast<std::uint64_t>(std::max<std::int64_t>(ns / kNsPerUs, 1));
    unsigned const octave = static_cast<unsigned>(std::bit_width(us)) - 1;
    auto const step = static_cast<unsigned>(((us << 4) >> octave) - kStepsPerOctave);
    m_Counts[std::min<std::size_t>(octave * kStepsPerOctave + step, m_Counts.size() - 1)]++;
    std::int64_t max = m_MaxNs.load();
    while (ns > max && !m_MaxNs.compare_exchange_weak(max, ns)) {
    }
}

std::uint64_t TimeHistogram::Count() const {
    std::uint64_t count = 0;
    for (auto const& bucket : m_Counts) {
        count += bucket.load();
    }
    return count;
}

double TimeHistogram::Percentile(double share) const {
    auto const wanted = static_cast<std::uint64_t>(static_cast<double>(Count()) * share);
    std::uint64_t seen = 0;
    for (unsigned i = 0; i < m_Counts.size(); ++i) {
        seen += m_Counts[i].load();
        if (seen > wanted) {
            unsigned const octave = i / kStepsPerOctave;
            std::uint64_t const upper = std::uint64_t{i % kStepsPerOctave + kStepsPerOctave + 1} << octave;
            double const ms = static_cast<double>(upper) / kStepsPerOctave * kNsPerUs / kNsPerMs;
            return std::min(ms, MaxMs());
        }
    }
    return MaxMs();
}

double TimeHistogram::MaxMs() const {
    return static_cast<double>(m_MaxNs.load()) / kNsPerMs;
}

Board* CreateBoard(int& descriptor) {
    descriptor = ::memfd_create("corvalen-storm", MFD_CLOEXEC);
    if (descriptor < 0 || ::ftruncate(descriptor, sizeof(Board)) != 0) {
        return nullptr;
    }
    return Map(descriptor);
}

Board* InheritBoard() {
    return Map(kBoardDescriptor);
}

Phase PhaseOf(Board const& board) {
    return static_cast<Phase>(board.phase.Get());
}

std::int64_t NowNs() {
    timespec now{};
    // This clock exists on every Linux.
    static_cast<void>(::clock_gettime(CLOCK_MONOTONIC, &now));
    return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

}  // namespace Storm
