#include "text/Runs.h"

#include <atomic>

namespace System::Text {

namespace {

// Stands for "not asked yet"; never called.
constexpr Runs kUndecided{};
constinit std::atomic<Runs const*> s_Current{&kUndecided};

Runs const* RunsOf(RunLevel level) {
    switch (level) {
        case RunLevel::kRule:
            return nullptr;
#if defined(__x86_64__)
        case RunLevel::kSse2:
            return &kSse2Runs;
        case RunLevel::kAvx2:
            return &kAvx2Runs;
        case RunLevel::kAvx512:
            return &kAvx512Runs;
#endif
        default:
            return &kPortableRuns;
    }
}

}  // namespace

RunLevel BestRunLevel() {
#if defined(__x86_64__)
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("popcnt")) {
        return RunLevel::kSse2;
    }
    bool const hasMasks = __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
                          __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2") &&
                          __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
    return hasMasks ? RunLevel::kAvx512 : RunLevel::kAvx2;
#else
    return RunLevel::kPortable;
#endif
}

// Relaxed, and decided twice if two threads come at once: both find the same constant table.
Runs const* CurrentRuns() {
    Runs const* runs = s_Current.load(std::memory_order_relaxed);
    if (runs == &kUndecided) [[unlikely]] {
        runs = RunsOf(BestRunLevel());
        s_Current.store(runs, std::memory_order_relaxed);
    }
    return runs;
}

bool SetRunLevel(RunLevel level) {
    if (level > BestRunLevel()) {
        return false;
    }
    s_Current.store(RunsOf(level), std::memory_order_relaxed);
    return true;
}

}  // namespace System::Text
