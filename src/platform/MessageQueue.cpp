#include "corvalen/platform/MessageQueue.h"

#include <utility>

#include "platform/ProcessEpoch.h"
#include "platform/StopDelay.h"
#include "platform/ThreadQueue.h"

namespace System::Platform {

struct MessageQueue::State {
    ThreadQueue queue;
};

namespace {

// Beside its owner, since it is asked for after that one's end too: destructors of static objects run behind
// those of the main thread's own.
constinit thread_local MessageQueue* t_Queue = nullptr;

}  // namespace

// Makes a thread's queue, and ends it with the thread: a destructor of the thread's own runs also for one
// that is ended by force, and for the main thread when the process exits.
struct MessageQueueOwner {
    ~MessageQueueOwner() {
        // What a forked child inherits is its parent's; the parent ends it.
        MessageQueue* const queue = std::exchange(t_Queue, nullptr);
        if (queue != nullptr && queue->m_State->queue.Epoch() == ProcessEpoch()) {
            delete queue;
        }
    }

    static MessageQueue& Current() {
        if (t_Queue == nullptr || t_Queue->m_State->queue.Epoch() != ProcessEpoch()) [[unlikely]] {
            Make();
        }
        return *t_Queue;
    }

    static ThreadQueue& CurrentThreadQueue() { return Current().m_State->queue; }

private:
    static void Make() {
        static thread_local MessageQueueOwner t_Owner;
        StopDelay const stopDelay;
        t_Queue = new MessageQueue;
        t_Owner.isNeeded = true;
    }

    bool isNeeded = false;  // to be made for its destructor
};

ThreadQueue& ThreadQueue::Current() {
    return MessageQueueOwner::CurrentThreadQueue();
}

MessageQueue& MessageQueue::Current() {
    return MessageQueueOwner::Current();
}

MessageQueue::MessageQueue() : m_State(new State) {}

MessageQueue::~MessageQueue() {
    delete m_State;
}

bool MessageQueue::Peek(Message& message) {
    return m_State->queue.Peek(message);
}

long MessageQueue::Dispatch(Message const& message) {
    return m_State->queue.Dispatch(message);
}

bool MessageQueue::Wait(int timeoutMs) {
    return m_State->queue.Wait(timeoutMs);
}

int MessageQueue::Descriptor() {
    return m_State->queue.Descriptor();
}

std::uint32_t MessageQueue::SetTimer(std::uint32_t periodMs, TimerProc proc) {
    std::uint32_t const id = m_State->queue.Timers().Add(periodMs, proc);
    m_State->queue.RefreshDescriptor();
    return id;
}

bool MessageQueue::KillTimer(std::uint32_t id) {
    bool const isRemoved = m_State->queue.Timers().Remove(id);
    m_State->queue.RefreshDescriptor();
    return isRemoved;
}

}  // namespace System::Platform
