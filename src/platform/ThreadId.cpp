#include "platform/ThreadId.h"

#include <unistd.h>

namespace System::Platform::Detail {

constinit thread_local CachedThreadId t_ThreadId{0, 0};

std::uint32_t AskForThreadId(std::uint32_t epoch) {
    t_ThreadId = {static_cast<std::uint32_t>(::gettid()), epoch};
    return t_ThreadId.id;
}

}  // namespace System::Platform::Detail
