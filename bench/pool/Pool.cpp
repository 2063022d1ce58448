// What one allocation with its release costs in a heap that processes share: the pool, with the shape of a
// channel's, under a lock, beside the heaps of Boost.Interprocess, which bring their own. Boost's manage as
// many bytes. Three patterns: an empty heap, one with a thousand live blocks, and random churn around a
// thousand. Each figure is the median of several rounds, in nanoseconds for a pair; the rounds of the heaps
// alternate, so that a busy moment of the machine hits them all.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>

#include "bench/pool/PoolBench.h"
#include "corvalen/rpc/MemoryPool.h"

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
constexpr unsigned kPairs = 20000;
constexpr unsigned kRounds = 15;

// One word that an uncontended lock costs, as a lock between processes does.
class SpinLock {
public:
    void Lock() {
        while (m_Word.exchange(1, std::memory_order_acquire) != 0) {
        }
    }
    void Unlock() { m_Word.store(0, std::memory_order_release); }

private:
    std::atomic<std::uint32_t> m_Word{0};
};

struct LockedPool {
    std::unique_ptr<std::uint32_t[]> memory{
        new std::uint32_t[MemoryPool::CalculateSize(kBlockSize, kBlockCount) / sizeof(std::uint32_t) + 1]};
    MemoryPool pool{kBlockSize, kBlockCount, memory.get()};
    SpinLock lock;
};

Heap PoolHeap() {
    auto const locked = std::make_shared<LockedPool>();
    return {"pool",
            [locked](std::uint32_t size) {
                locked->lock.Lock();
                std::uint32_t const handle = locked->pool.NewHandle(size);
                locked->lock.Unlock();
                return std::uint64_t{handle};
            },
            [locked](std::uint64_t block) {
                locked->lock.Lock();
                locked->pool.DisposeHandle(static_cast<std::uint32_t>(block));
                locked->lock.Unlock();
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
    heaps.insert(heaps.begin(), PoolHeap());
    using Pattern = std::pair<char const*, double (*)(Heap const&)>;
    std::printf("%-20s%-24s%10s%10s\n", "pattern", "heap", "ns", "to pool");
    for (auto const& [name, run] :
         {Pattern{"empty", Empty}, Pattern{"thousand live", ThousandLive}, Pattern{"random churn", Churn}}) {
        std::map<std::string, std::vector<double>> times;
        for (unsigned round = 0; round < kRounds; ++round) {
            for (Heap const& heap : heaps) {
                times[heap.name].push_back(run(heap));
            }
        }
        double const ours = Median(times["pool"]);
        for (Heap const& heap : heaps) {
            double const time = Median(times[heap.name]);
            std::printf("%-20s%-24s%10.1f%10.2f\n", name, heap.name.c_str(), time, time / ours);
        }
    }
    return 0;
}
