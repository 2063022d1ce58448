#pragma once

#include <atomic>

namespace System::Platform {

// Orders the two sides of a store that is followed by a load, where one side runs often and the other seldom.
// The often side pays nothing but LightBarrier; the seldom side makes every running thread of the process
// pass a barrier. After HeavyBarrier a thread sees all that others stored before their last LightBarrier, or
// they see, behind it, what this thread stored before.

namespace Detail {
extern std::atomic<bool> s_HasProcessBarrier;
}

inline void LightBarrier() {
    if (Detail::s_HasProcessBarrier.load(std::memory_order_relaxed)) [[likely]] {
        std::atomic_signal_fence(std::memory_order_seq_cst);
    } else {
        std::atomic_thread_fence(std::memory_order_seq_cst);
    }
}

void HeavyBarrier();

}  // namespace System::Platform
