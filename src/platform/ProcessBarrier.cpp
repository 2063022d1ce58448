#include "platform/ProcessBarrier.h"

#include <linux/membarrier.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/ErrnoGuard.h"

namespace System::Platform {

constinit std::atomic<bool> Detail::s_HasProcessBarrier{false};

namespace {

bool Command(int command) {
    return ::syscall(SYS_membarrier, command, 0, 0) == 0;
}

// Before any lock is taken, and again in a forked child, whose address space is another one.
void Register() {
    ErrnoGuard const keepErrno;
    Detail::s_HasProcessBarrier = Command(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED);
}

[[gnu::constructor]] void RegisterAtLoad() {
    Register();
    static_cast<void>(::pthread_atfork(nullptr, nullptr, Register));
}

}  // namespace

void HeavyBarrier() {
    ErrnoGuard const keepErrno;
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (Detail::s_HasProcessBarrier.load(std::memory_order_relaxed)) {
        // Does not fail once it is registered.
        static_cast<void>(Command(MEMBARRIER_CMD_PRIVATE_EXPEDITED));
    }
}

}  // namespace System::Platform
