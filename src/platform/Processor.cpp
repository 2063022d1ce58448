#include "platform/Processor.h"

#include <sched.h>
#include <unistd.h>

namespace System::Platform {

std::uint32_t CurrentProcessor() {
    return static_cast<std::uint32_t>(::sched_getcpu() + 1);
}

unsigned UsableProcessors() {
    cpu_set_t set;
    if (::sched_getaffinity(0, sizeof set, &set) != 0) {
        return 1;
    }
    int const count = CPU_COUNT(&set);
    return count > 0 ? static_cast<unsigned>(count) : 1;
}

void YieldProcessor() {
    // Never fails.
    static_cast<void>(::sched_yield());
}

unsigned MachineProcessors() {
    static unsigned const s_Count = [] {
        long const count = ::sysconf(_SC_NPROCESSORS_ONLN);
        return count > 0 ? static_cast<unsigned>(count) : 1U;
    }();
    return s_Count;
}

}  // namespace System::Platform
