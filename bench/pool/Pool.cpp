// What one allocation with its release costs in a heap that processes share: a channel's NewHandle and
// DisposeHandle, with the lock that its processes share, and the pool by itself, without one, beside the
// heaps of Boost.Interprocess with their own locks, which manage as many bytes. Three patterns: an empty
// heap, one with a thousand live blocks, and random churn around a thousand. Each figure is the median of
// several rounds, in nanoseconds for a pair; the rounds of the heaps alternate, so that a busy moment of the
// machine hits them all.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>

#include "bench/pool/PoolBench.h"
#include "corvalen/rpc/MemoryPool.h"
#include "corvalen/rpc/RpcChannel.h"

#ifndef CORVALEN_BENCH_BOOST_INTERPROCESS
std::vector<Bench::Heap> Bench::BoostHeaps() {
    return {};
}
#endif

namespace {

using Bench::Heap;
using System::RPC::MemoryPool;

constexpr std::uint16_t kBlockSize = 256;
constexpr std::uint16_t kBlockCount = 4096;
constexpr std::uint32_t kMessageSize = 72;
constexpr unsigned kLiveBlocks = 1000;
constexpr unsigned kPairs = 2000;
constexpr unsigned kRounds = 101;

class Channel : public System::RPC::RpcChannel {
public:
    using RpcChannel::RpcChannel;
    ~Channel() override {
        if (IsOpen()) {
            Close();
        }
    }
    std::uint32_t OnRequest(std::uint32_t /*sender*/, std::uint32_t /*handle*/) override { return 0; }
    void OnNotify(std::uint32_t /*sender*/, std::uint32_t /*handle*/) override {}
};

Heap ChannelHeap() {
    std::string const name = "bench_pool_" + std::to_string(::getpid());
    auto const channel = std::make_shared<Channel>(std::u16string(name.begin(), name.end()).c_str());
    if (int const error = channel->OpenServer(u"bench"); error != 0) {
        std::fprintf(stderr, "cannot open a channel: %i\n", error);
        std::exit(1);
    }
    return {"channel", [channel](std::uint32_t size) { return std::uint64_t{channel->NewHandle(size)}; },
            [channel](std::uint64_t block) {
                channel->DisposeHandle(static_cast<std::uint32_t>(block));
            }};
}

struct PoolInMemory {
    std::unique_ptr<std::uint32_t[]> memory{
        new std::uint32_t[MemoryPool::CalculateSize(kBlockSize, kBlockCount) / sizeof(std::uint32_t) + 1]};
    MemoryPool pool{kBlockSize, kBlockCount, memory.get()};
};

Heap PoolHeap() {
    auto const owner = std::make_shared<PoolInMemory>();
    return {"pool, no lock",
            [owner](std::uint32_t size) { return std::uint64_t{owner->pool.NewHandle(size)}; },
            [owner](std::uint64_t block) {
                owner->pool.DisposeHandle(static_cast<std::uint32_t>(block));
            }};
}

std::uint64_t Allocate(Heap const& heap, std::uint32_t size) {
    std::uint64_t const block = heap.allocate(size);
    if (block == 0) {
        std::fprintf(stderr, "%s is full\n", heap.name.c_str());
        std::exit(1);
    }
    return block;
}

double TimePairs(Heap const& heap) {
    auto const start = std::chrono::steady_clock::now();
    for (unsigned i = 0; i < kPairs; ++i) {
        heap.free(Allocate(heap, kMessageSize));
    }
    std::chrono::duration<double, std::nano> const time = std::chrono::steady_clock::now() - start;
    return time.count() / kPairs;
}

double Empty(Heap const& heap) {
    return TimePairs(heap);
}

double ThousandLive(Heap const& heap) {
    std::vector<std::uint64_t> live(kLiveBlocks);
    for (auto& block : live) {
        block = Allocate(heap, kMessageSize);
    }
    double const time = TimePairs(heap);
    std::for_each(live.begin(), live.end(), heap.free);
    return time;
}

// Each step frees a random one of a thousand blocks and takes one of a random size instead. The sizes are
// those of messages: mostly short, up to four blocks of the pool.
double Churn(Heap const& heap) {
    std::mt19937 random(1);
    auto const size = [&] {
        return static_cast<std::uint32_t>(16 + random() % 16 * (random() % 64));
    };
    std::vector<std::uint64_t> live(kLiveBlocks);
    for (auto& block : live) {
        block = Allocate(heap, size());
    }
    std::vector<std::pair<std::uint32_t, std::uint32_t>> steps(kPairs);
    for (auto& step : steps) {
        step = {static_cast<std::uint32_t>(random() % kLiveBlocks), size()};
    }
    auto const start = std::chrono::steady_clock::now();
    for (auto const& [which, bytes] : steps) {
        heap.free(live[which]);
        live[which] = Allocate(heap, bytes);
    }
    std::chrono::duration<double, std::nano> const time = std::chrono::steady_clock::now() - start;
    std::for_each(live.begin(), live.end(), heap.free);
    return time.count() / kPairs;
}

double Median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

}  // namespace

int main() {
    std::vector<Heap> heaps = Bench::BoostHeaps();
    heaps.insert(heaps.begin(), {ChannelHeap(), PoolHeap()});
    using Pattern = std::pair<char const*, double (*)(Heap const&)>;
    std::printf("%-20s%-24s%10s%10s\n", "pattern", "heap", "ns", "ratio");
    for (auto const& [name, run] :
         {Pattern{"empty", Empty}, Pattern{"thousand live", ThousandLive}, Pattern{"random churn", Churn}}) {
        std::map<std::string, std::vector<double>> times;
        for (unsigned round = 0; round < kRounds; ++round) {
            for (Heap const& heap : heaps) {
                times[heap.name].push_back(run(heap));
            }
        }
        double const ours = Median(times["channel"]);
        for (Heap const& heap : heaps) {
            double const time = Median(times[heap.name]);
            std::printf("%-20s%-24s%10.1f%10.2f\n", name, heap.name.c_str(), time, time / ours);
        }
    }
    return 0;
}
