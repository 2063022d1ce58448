#include "corvalen/platform/MessageQueue.h"

#include <pthread.h>

#include <cstdlib>

#include "platform/ProcessEpoch.h"
#include "platform/ThreadQueue.h"

namespace System::Platform {

struct MessageQueue::State {
    ThreadQueue queue;
};

// Makes a thread's queue and ends it with the thread, also with one that is ended by force, whose stack is
// not unwound: a key's destructor runs for it all the same.
struct MessageQueueOwner {
    MessageQueueOwner() {
        // Without a key (a process has a thousand) queues would outlive their threads until the process ends.
        m_HasKey = ::pthread_key_create(&m_Key, End) == 0;
    }

    MessageQueue& Current() {
        MessageQueue* queue = t_Queue;
        if (queue != nullptr && queue->m_State->queue.Epoch() == ProcessEpoch()) [[likely]] {
            return *queue;
        }
        // What a forked child inherits is its parent's; the parent ends it, not the child.
        queue = new MessageQueue;
        t_Queue = queue;
        if (m_HasKey) {
            static_cast<void>(::pthread_setspecific(m_Key, queue));
        }
        return *queue;
    }

    ThreadQueue& CurrentThreadQueue() { return Current().m_State->queue; }

    static MessageQueueOwner& Instance() {
        static MessageQueueOwner* const s_Instance = new MessageQueueOwner;
        return *s_Instance;
    }

private:
    static void End(void* queue) {
        delete static_cast<MessageQueue*>(queue);
        t_Queue = nullptr;
    }

    static constinit thread_local MessageQueue* t_Queue;

    pthread_key_t m_Key{};
    bool m_HasKey;
};

constinit thread_local MessageQueue* MessageQueueOwner::t_Queue = nullptr;

ThreadQueue& ThreadQueue::Current() {
    return MessageQueueOwner::Instance().CurrentThreadQueue();
}

MessageQueue& MessageQueue::Current() {
    return MessageQueueOwner::Instance().Current();
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
