#include "platform/Futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>

#include "platform/Clock.h"

namespace System::Platform {

namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;

int Operation(int operation, bool isShared) {
    return isShared ? operation : operation | FUTEX_PRIVATE_FLAG;
}

}  // namespace

void FutexWait(std::uint32_t& word, std::uint32_t expected, std::int64_t timeoutNs, bool isShared) {
    timespec const limit{timeoutNs / kNsPerSecond, timeoutNs % kNsPerSecond};
    // Every outcome (woken, changed, timed out, interrupted) means the same to the caller: look again.
    static_cast<void>(::syscall(SYS_futex, &word, Operation(FUTEX_WAIT, isShared), expected,
                                timeoutNs == Deadline::kNever ? nullptr : &limit, nullptr, 0));
}

void FutexWake(std::uint32_t& word, int count, bool isShared) {
    // Fails only for a word that is no longer mapped, where nobody sleeps.
    static_cast<void>(
        ::syscall(SYS_futex, &word, Operation(FUTEX_WAKE, isShared), count, nullptr, nullptr, 0));
}

}  // namespace System::Platform
