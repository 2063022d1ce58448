#pragma once

#include <pthread.h>

#include <atomic>

namespace System::Platform {

/// Where a thread that has been asked to go may be ended.
enum class StopRequest : int { kNone, kOutsideRuntime, kAnywhere };

/// The signal that ends one thread: a real-time signal whose handler leaves the stack of the thread that it
/// interrupts, by way of Detail::t_Stop, if the thread's request and the place where it is allow that.
namespace StopSignal {

/// Chooses a signal that nobody handles, installs the handler, and notes where the C and C++ runtime lies.
/// Once in a process; false if no signal is free.
[[nodiscard]] bool Prepare();
/// Makes the calling thread one that can be ended: `request` is looked at when the signal comes. Null takes
/// that back.
void SetRequest(std::atomic<StopRequest> const* request);
/// Lets the signal through on the calling thread, whatever it has inherited.
void Unblock();
void Send(pthread_t thread);

}  // namespace StopSignal
}  // namespace System::Platform
