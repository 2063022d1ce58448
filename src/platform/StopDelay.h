#pragma once

#include <setjmp.h>

#include <atomic>

namespace System::Platform {

namespace Detail {

// What the stop signal's handler and the thread that it interrupts share. The atomics are lock-free and only
// ever touched by their own thread: they are there for the handler, not for other threads.
struct StopState {
    std::atomic<unsigned> depth{0};             // StopDelay objects that the thread has
    std::atomic<bool> isPending{false};         // a stop came while depth was above 0
    std::atomic<sigjmp_buf*> landing{nullptr};  // where a stopped thread goes on; null: it can't be stopped
};

// In the static block of the thread: the handler may read it at any moment, which a block that is allocated
// at first use would not allow.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local StopState t_Stop;

// Leaves everything that the thread has on its stack, and ends it. Returns only if it can't be stopped.
void EndStoppedThread();

}  // namespace Detail

/// Puts off a forced stop of the calling thread for as long as one of these lives on it: the stop is noted,
/// and carried out when the thread's last one goes. So the destructor may not return. Made for short
/// stretches that must not be left half done, such as changes of memory that other processes see; a stretch
/// that waits holds up whoever stops the thread. Costs about a nanosecond.
///
/// Threads: belongs to the thread that made it.
class StopDelay {
public:
    StopDelay() {
        auto& depth = Detail::t_Stop.depth;
        depth.store(depth.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
    ~StopDelay() {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        auto& stop = Detail::t_Stop;
        unsigned const left = stop.depth.load(std::memory_order_relaxed) - 1;
        // A stop that comes before this store is pending behind it; one that comes after is not put off.
        stop.depth.store(left, std::memory_order_relaxed);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (left == 0 && stop.isPending.load(std::memory_order_relaxed)) [[unlikely]] {
            Detail::EndStoppedThread();
        }
    }
    /// Whether a stop has come that is carried out as soon as this one goes.
    [[nodiscard]] bool IsStopDue() const {
        return Detail::t_Stop.isPending.load(std::memory_order_relaxed) &&
               Detail::t_Stop.depth.load(std::memory_order_relaxed) == 1;
    }
    StopDelay(StopDelay const&) = delete;
    StopDelay& operator=(StopDelay const&) = delete;
};

}  // namespace System::Platform
