#include "platform/ThreadId.h"

#include <unistd.h>

#include "platform/ProcessEpoch.h"

namespace System::Platform {

namespace {

struct CachedId {
    std::uint32_t id;
    std::uint32_t epoch;  // 0 until the first call; no process has that epoch
};

[[gnu::tls_model("initial-exec")]] constinit thread_local CachedId t_Id{0, 0};

[[gnu::noinline]] std::uint32_t AskKernel(std::uint32_t epoch) {
    t_Id = {static_cast<std::uint32_t>(::gettid()), epoch};
    return t_Id.id;
}

}  // namespace

std::uint32_t CurrentThreadId() {
    std::uint32_t const epoch = ProcessEpoch();
    return t_Id.epoch == epoch ? t_Id.id : AskKernel(epoch);
}

}  // namespace System::Platform
