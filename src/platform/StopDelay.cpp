#include "platform/StopDelay.h"

namespace System::Platform::Detail {

constinit thread_local StopState t_Stop{};

void EndStoppedThread() {
    t_Stop.isPending.store(false, std::memory_order_relaxed);
    // Null from here on, so that a second signal finds nothing to stop.
    if (sigjmp_buf* landing = t_Stop.landing.exchange(nullptr, std::memory_order_relaxed);
        landing != nullptr) {
        ::siglongjmp(*landing, 1);
    }
}

}  // namespace System::Platform::Detail
