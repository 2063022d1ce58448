// How many 64-byte records a process passes to another through a shared stream, beside a pipe and a Unix
// socket. One write for each record; the reader takes what has piled up and checks every record. Both run all
// the time: on one processor they take turns, on two they run side by side. Each figure is the median of
// several rounds, in nanoseconds for a record; the rounds of the roads alternate, so that a busy moment of
// the machine hits them all.

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "bench/mailbox/Roads.h"

extern char** environ;

namespace {

constexpr std::size_t kRecordSize = 64;
constexpr std::uint32_t kRecords = 200'000;
constexpr unsigned kRounds = 11;

using Record = std::array<std::byte, kRecordSize>;

void WriteRecords(Bench::Road& road) {
    Record record{};
    for (std::uint32_t number = 0; number < kRecords; ++number) {
        std::memcpy(record.data(), &number, sizeof number);
        std::memcpy(record.data() + kRecordSize - sizeof number, &number, sizeof number);
        road.Write(record);
    }
}

bool IsRecord(std::byte const* bytes, std::uint32_t number) {
    return std::memcmp(bytes, &number, sizeof number) == 0 &&
           std::memcmp(bytes + kRecordSize - sizeof number, &number, sizeof number) == 0;
}

// Nanoseconds for a record, from the first that arrives to the last.
double ReadRecords(Bench::Road& road) {
    std::vector<std::byte> bytes;
    std::uint32_t next = 0;
    road.Read(bytes);
    auto const start = std::chrono::steady_clock::now();
    while (true) {
        std::size_t used = 0;
        for (; bytes.size() - used >= kRecordSize; used += kRecordSize) {
            if (!IsRecord(bytes.data() + used, next++)) {
                std::fprintf(stderr, "record %u is wrong\n", next - 1);
                std::abort();
            }
        }
        bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(used));
        if (next == kRecords) {
            break;
        }
        road.Read(bytes);
    }
    std::chrono::duration<double, std::nano> const taken = std::chrono::steady_clock::now() - start;
    return taken.count() / kRecords;
}

double RunRound(std::string const& kind) {
    auto const road = Bench::OpenRoad(kind);
    std::string const address = road->Address();
    char const* const arguments[] = {"mailbox", kind.c_str(), address.c_str(), nullptr};
    pid_t writer = 0;
    if (::posix_spawn(&writer, "/proc/self/exe", nullptr, nullptr, const_cast<char**>(arguments), environ) !=
        0) {
        std::perror("posix_spawn");
        std::abort();
    }
    double const taken = ReadRecords(*road);
    int status = 0;
    ::waitpid(writer, &status, 0);
    return taken;
}

double MedianOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

int main(int count, char** arguments) {
    if (count == 3) {
        WriteRecords(*Bench::OpenRoad(arguments[1], arguments[2]));
        return 0;
    }
    std::map<std::string, std::vector<double>> taken;
    for (unsigned round = 0; round < kRounds; ++round) {
        for (auto const& kind : Bench::RoadKinds()) {
            taken[kind].push_back(RunRound(kind));
        }
    }
    double const ours = MedianOf(taken["shared stream"]);
    std::printf("64-byte records from one process to another, medians of %u rounds of %u records\n", kRounds,
                kRecords);
    std::printf("%-16s %12s %24s\n", "road", "ns/record", "times a shared stream's");
    for (auto const& kind : Bench::RoadKinds()) {
        double const median = MedianOf(taken[kind]);
        std::printf("%-16s %12.1f %24.2f\n", kind.c_str(), median, median / ours);
    }
}
