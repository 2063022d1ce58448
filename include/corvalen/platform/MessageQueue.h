#pragma once

#include <cstdint>

#include "corvalen/Export.h"

namespace System::Platform {

/// One message of a thread's queue. `window` 0 marks a message of the thread itself, such as a timer's tick.
struct Message {
    std::uint32_t window = 0;
    std::uint32_t message = 0;
    std::uint32_t wParam = 0;
    std::int64_t lParam = 0;
};

/// Gets a timer's ticks: window 0, message kTimerMessage, the timer's id, the millisecond tick count.
using TimerProc = void (*)(std::uint32_t window, std::uint32_t message, std::uint32_t id, std::uint32_t time);

/// The message queue of one thread: what others post to its windows, what they send and wait for, and the
/// ticks of its timers. A thread that has opened a channel or set a timer keeps taking its messages, for
/// instance
///
///     MessageQueue& queue = MessageQueue::Current();
///     while (running) {
///         if (queue.Wait(-1)) {
///             Message message;
///             while (queue.Peek(message)) {
///                 queue.Dispatch(message);
///             }
///         }
///     }
///
/// or gives Descriptor() to the loop that it has already (epoll, GLib, Qt, libuv, asio), and takes what is
/// there whenever the descriptor is readable.
///
/// Threads: a queue belongs to its thread; call it there only. Who wants to end the loop from elsewhere sends
/// a notification to a channel of the thread, or polls a descriptor of his own beside Descriptor().
/// Errors: nothing throws but a failed allocation.
class CORVALEN_API MessageQueue {
public:
    static constexpr std::uint32_t kTimerMessage = 0x0113;
    static constexpr int kForever = -1;

    /// The queue of the calling thread, made at the first call, gone with the thread.
    static MessageQueue& Current();

    /// Serves the requests that wait, then takes the oldest posted message, or a timer's tick if no message
    /// is there. False if there was nothing to take.
    bool Peek(Message& message);
    /// Hands `message` to the procedure of its window or timer and returns the procedure's result; 0 if there
    /// is no such window or timer any more.
    long Dispatch(Message const& message);
    /// Sleeps until Peek has something to do, at most `timeoutMs` milliseconds (kForever, or below 0: without
    /// limit), and returns whether it has. Looks for a while before it sleeps if that has lately paid.
    bool Wait(int timeoutMs = kForever);
    /// A descriptor that is readable exactly while Peek has something to do; -1 if the system has none to
    /// give. It stays the queue's: poll it, never read, write or close it.
    int Descriptor();

    /// Starts a timer of this thread that ticks every `periodMs` milliseconds while the thread takes its
    /// messages. Ticks that were not taken in time count as one. Returns its id, 0 on failure and for
    /// a null `proc`.
    std::uint32_t SetTimer(std::uint32_t periodMs, TimerProc proc);
    /// Ends a timer of this thread; false if there is none with this id.
    bool KillTimer(std::uint32_t id);

    MessageQueue(MessageQueue const&) = delete;
    MessageQueue& operator=(MessageQueue const&) = delete;

private:
    MessageQueue();
    ~MessageQueue();
    friend struct MessageQueueOwner;

    struct State;
    State* m_State;
};

}  // namespace System::Platform
