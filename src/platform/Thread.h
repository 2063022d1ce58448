#pragma once

#include <cstdint>

namespace System::Platform {

/// A thread of this process that can be ended by force.
///
/// Threads: an object belongs to the thread that controls it, which is not the thread that it stands for;
/// ForceEnd alone may be called there, and does not return.
/// Processes: in a forked child, where the thread does not exist, it counts as ended.
class Thread {
public:
    using Body = unsigned long (*)(void* argument);

    /// Makes a thread that waits at a gate before it calls `body`. Null if the system has none to give.
    [[nodiscard]] static Thread* CreateSuspended(Body body, void* argument);
    /// Lets go of the thread: waits for the last steps of one that has ended; one that has not stays behind
    /// by itself, or leaves without calling its body if it was never resumed.
    ~Thread();
    Thread(Thread const&) = delete;
    Thread& operator=(Thread const&) = delete;

    [[nodiscard]] std::uint32_t Id() const;
    /// Opens the gate.
    void Resume();
    /// The first 15 bytes of `name`, whole characters of UTF-8, become the name that the system's tools show.
    void SetName(char const* name);
    /// Keeps the thread on the first processor that the process may run on, if the system allows it.
    void PinToFirstProcessor();
    /// `level` 0 is the system's default, each step above or below it is five nice values. A refusal leaves
    /// the priority as it is.
    void SetPriority(int level);
    /// Waits at most `timeoutMs` milliseconds; whether the thread has ended.
    [[nodiscard]] bool WaitForEnd(std::int64_t timeoutMs);
    /// Ends the thread wherever it is. Nothing on its stack is destroyed; its thread_local objects are, and
    /// what it had locked is left behind. It goes at once if it runs code of its own or waits in the kernel,
    /// and when it comes out of the C and C++ runtime (whose locks must not stay behind) otherwise, yet after
    /// half a second there as well. A StopDelay is waited for. False if it still runs after 10 seconds, since
    /// it blocks the signal or is stuck in the kernel.
    [[nodiscard]] bool ForceEnd();

private:
    struct State;
    class EndOfThread;

    explicit Thread(State* state) : m_State(state) {}
    static void* Enter(void* state);
    static void Release(State* state);
    static void Run(State& state);
    void Cancel();
    [[nodiscard]] bool TryJoin();
    [[nodiscard]] bool IsElsewhere() const;

    State* m_State;
};

}  // namespace System::Platform
