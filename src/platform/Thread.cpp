#include "platform/Thread.h"

#include <pthread.h>
#include <sched.h>
#include <setjmp.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "platform/Clock.h"
#include "platform/Event.h"
#include "platform/ProcessEpoch.h"
#include "platform/StopDelay.h"
#include "platform/StopSignal.h"
#include "platform/ThreadId.h"

namespace System::Platform {

namespace {

constexpr std::int64_t kPatienceMs = 500;
constexpr std::int64_t kForceLimitMs = 10000;
constexpr std::size_t kMaxNameBytes = 15;
constexpr int kNiceStep = 5;
constexpr long kLookNs = 50'000;
// More than the last steps of a thread need: its thread_local destructors and the system's own.
constexpr std::size_t kGapBytes = 64 * 1024;

// The system refuses a set that is smaller than its own; this has room for 8192.
using ProcessorSet = std::array<cpu_set_t, 8>;

bool ContinuesCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

}  // namespace

// Shared by the controlling object and the thread, for as long as either needs it.
struct Thread::State {
    Body body;
    void* argument;
    std::atomic<int> owners{2};
    Event isKnown{EventReset::kAuto};
    Event gate{EventReset::kAuto};
    Event ended{EventReset::kManual};
    std::uint32_t id = 0;
    bool isResumed = false;    // of the controlling object only
    bool isCancelled = false;  // written before the gate opens
    std::uint32_t epoch = ProcessEpoch();
    std::atomic<StopRequest> request{StopRequest::kNone};
    pthread_t thread{};
    bool isJoined = false;  // of the controlling object only
};

void Thread::Release(State* state) {
    if (state->owners.fetch_sub(1) == 1) {
        delete state;
    }
}

// The last steps on the thread, also when it leaves by pthread_exit.
class Thread::EndOfThread {
public:
    explicit EndOfThread(State* state) : m_State(state) {}
    ~EndOfThread() {
        Detail::t_Stop.landing.store(nullptr, std::memory_order_relaxed);
        StopSignal::SetRequest(nullptr);
        m_State->ended.Set();
        Release(m_State);
    }
    EndOfThread(EndOfThread const&) = delete;
    EndOfThread& operator=(EndOfThread const&) = delete;

private:
    State* m_State;
};

void* Thread::Enter(void* argument) {
    auto* const state = static_cast<State*>(argument);
    EndOfThread const end(state);
    StopSignal::Unblock();
    state->id = CurrentThreadId();
    state->isKnown.Set();
    static_cast<void>(state->gate.Wait(-1));
    if (state->isCancelled) {
        return nullptr;
    }
    sigjmp_buf landing;
    if (::sigsetjmp(landing, 1) == 0) {
        StopSignal::SetRequest(&state->request);
        Detail::t_Stop.landing.store(&landing, std::memory_order_relaxed);
        Run(*state);
    }
    return nullptr;
}

// Locks that lie on the stack of a stopped thread are handed on by the kernel when the thread exits, through
// links in them. The gap keeps the thread's last steps from writing over them.
[[gnu::noinline]] void Thread::Run(State& state) {
    [[maybe_unused]] char volatile gap[kGapBytes];
    gap[0] = 0;
    static_cast<void>(state.body(state.argument));
    gap[0] = 1;
}

Thread* Thread::CreateSuspended(Body body, void* argument) {
    if (!StopSignal::Prepare()) {
        return nullptr;
    }
    std::unique_ptr<State> state(new (std::nothrow) State{.body = body, .argument = argument});
    std::unique_ptr<Thread> thread(new (std::nothrow) Thread(state.get()));
    if (state == nullptr || thread == nullptr) {
        return nullptr;
    }
    if (::pthread_create(&state->thread, nullptr, Enter, state.get()) != 0) {
        thread->m_State = nullptr;
        return nullptr;
    }
    static_cast<void>(state.release()->isKnown.Wait(-1));
    return thread.release();
}

Thread::~Thread() {
    // In a forked child nobody is left who could give up the thread's share of the state.
    if (m_State == nullptr || IsElsewhere()) {
        return;
    }
    Cancel();
    if (!m_State->isJoined) {
        // Neither can fail: the thread is ours and nobody else joins it.
        static_cast<void>(m_State->ended.Wait(0) ? ::pthread_join(m_State->thread, nullptr)
                                                 : ::pthread_detach(m_State->thread));
    }
    Release(m_State);
}

std::uint32_t Thread::Id() const {
    return m_State->id;
}

void Thread::Resume() {
    m_State->isResumed = true;
    m_State->gate.Set();
}

void Thread::Cancel() {
    if (!m_State->isResumed) {
        m_State->isCancelled = true;
        Resume();
    }
}

void Thread::SetName(char const* name) {
    std::string_view const whole(name);
    std::size_t size = std::min(whole.size(), kMaxNameBytes);
    while (size > 0 && size < whole.size() && ContinuesCharacter(whole[size])) {
        --size;
    }
    if (!IsElsewhere() && !m_State->isJoined) {
        // Fails for a thread that has ended, whose name nobody sees.
        static_cast<void>(::pthread_setname_np(m_State->thread, std::string(whole.substr(0, size)).c_str()));
    }
}

void Thread::PinToFirstProcessor() {
    ProcessorSet allowed{};
    if (::sched_getaffinity(::getpid(), sizeof allowed, allowed.data()) != 0) {
        return;
    }
    int processor = 0;
    while (!CPU_ISSET_S(processor, sizeof allowed, allowed.data())) {
        ++processor;  // ends: a process may run on one at least
    }
    ProcessorSet first{};
    CPU_SET_S(processor, sizeof first, first.data());
    static_cast<void>(::pthread_setaffinity_np(m_State->thread, sizeof first, first.data()));
}

void Thread::SetPriority(int level) {
    if (!IsElsewhere() && !m_State->ended.Wait(0)) {
        static_cast<void>(::setpriority(PRIO_PROCESS, m_State->id, -level * kNiceStep));
    }
}

bool Thread::WaitForEnd(std::int64_t timeoutMs) {
    Deadline const deadline(timeoutMs);
    if (IsElsewhere()) {
        return true;
    }
    if (!m_State->ended.Wait(timeoutMs)) {
        return false;
    }
    // What is left are the thread's last steps, for whose end the system has no wait on the monotonic clock
    // that the sanitizers know.
    while (!TryJoin()) {
        if (deadline.HasPassed()) {
            return false;
        }
        timespec const look{0, kLookNs};
        static_cast<void>(::nanosleep(&look, nullptr));
    }
    return true;
}

bool Thread::ForceEnd() {
    Deadline const patience(kPatienceMs);
    Deadline const limit(kForceLimitMs);
    Cancel();
    m_State->request = StopRequest::kOutsideRuntime;
    if (m_State->id == CurrentThreadId()) {
        Detail::EndStoppedThread();
    }
    // The handler may find the thread at a place where it must not end: ask again and again.
    while (!WaitForEnd(0)) {
        if (limit.HasPassed()) {
            return false;
        }
        if (patience.HasPassed()) {
            m_State->request = StopRequest::kAnywhere;
        }
        StopSignal::Send(m_State->thread);
        static_cast<void>(WaitForEnd(1));
    }
    return true;
}

bool Thread::TryJoin() {
    m_State->isJoined = m_State->isJoined || ::pthread_tryjoin_np(m_State->thread, nullptr) == 0;
    return m_State->isJoined;
}

bool Thread::IsElsewhere() const {
    return m_State->epoch != ProcessEpoch();
}

}  // namespace System::Platform
