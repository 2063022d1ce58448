#pragma once

#include <cerrno>

namespace System::Platform {

// Repeats `call` while a signal interrupts it. Never for close(): the descriptor is gone even when close
// reports an interrupt.
template <typename Call>
auto RetryOnInterrupt(Call&& call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

}  // namespace System::Platform
