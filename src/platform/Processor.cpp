#include "platform/Processor.h"

#include <sched.h>

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

unsigned UsableProcessorsLately() {
    constexpr unsigned kUsesBetweenReads = 256;
    thread_local unsigned t_Count = 0;
    thread_local unsigned t_Uses = 0;
    if (t_Uses++ % kUsesBetweenReads == 0) {
        t_Count = UsableProcessors();
    }
    return t_Count;
}

}  // namespace System::Platform
