#include "platform/ProcessEpoch.h"

#include <pthread.h>

namespace System::Platform {

std::atomic<std::uint32_t> Detail::s_ProcessEpoch{kFirstProcessEpoch};

namespace {

void CountChild() {
    Detail::s_ProcessEpoch.fetch_add(1, std::memory_order_relaxed);
}

// At load, not at first use: a fork in the midst of a lazy registration would leave a child that can't tell.
// The only failure is want of memory at load; such a process has no child that could work.
[[gnu::constructor]] void RegisterForkHandler() {
    static_cast<void>(::pthread_atfork(nullptr, nullptr, CountChild));
}

}  // namespace
}  // namespace System::Platform
