#include "platform/HelperThread.h"

#include <pthread.h>
#include <signal.h>

#include <cstdint>
#include <mutex>
#include <new>
#include <utility>

#include "platform/Event.h"
#include "platform/Processor.h"
#include "platform/StopDelay.h"

namespace System::Platform {

namespace {

// A helper that is without work for longer has lost its maker, or is not worth its memory.
constexpr std::int64_t kIdleMs = 100;

}  // namespace

struct HelperThread::Shared {
    std::mutex mutex;
    std::unique_ptr<Task> waiting;
    unsigned unfinished = 0;
    bool isRunning = false;
    bool isStopping = false;
    Event given{EventReset::kAuto};
    Event done{EventReset::kAuto};

    // Holds the lock for a few instructions, in which its owner is not ended by force.
    class Guard {
    public:
        explicit Guard(Shared& shared) : m_Lock(shared.mutex) {}

    private:
        StopDelay m_Delay;
        std::lock_guard<std::mutex> m_Lock;
    };
};

void HelperThread::RunAndCount(Shared& shared, std::unique_ptr<Task> task) noexcept {
    try {
        task->Run();
    } catch (std::bad_alloc const&) {
        // The task stays undone, and who gave it sees what is missing.
    }
    task.reset();
    Shared::Guard const guard(shared);
    --shared.unfinished;
}

void* HelperThread::Work(void* argument) {
    std::unique_ptr<std::shared_ptr<Shared>> const own(static_cast<std::shared_ptr<Shared>*>(argument));
    Shared& shared = **own;
    static_cast<void>(::pthread_setname_np(::pthread_self(), "corvalen helper"));
    for (bool isIdle = false;; isIdle = !shared.given.Wait(kIdleMs)) {
        std::unique_ptr<Task> task;
        {
            Shared::Guard const guard(shared);
            task = std::move(shared.waiting);
            if (task == nullptr && shared.isStopping) {
                return nullptr;
            }
            if (task == nullptr && isIdle) {
                shared.isRunning = false;
                return nullptr;
            }
        }
        if (task != nullptr) {
            RunAndCount(shared, std::move(task));
            shared.done.Set();
        }
    }
}

HelperThread::~HelperThread() {
    if (m_Shared == nullptr) {
        return;
    }
    Finish();
    {
        Shared::Guard const guard(*m_Shared);
        m_Shared->isStopping = true;
    }
    m_Shared->given.Set();
    Join();
}

bool HelperThread::HasRoom() {
    if (m_Shared == nullptr) {
        m_IsRefused = m_IsRefused || UsableProcessors() < 2;
        return !m_IsRefused;
    }
    Shared::Guard const guard(*m_Shared);
    return !m_IsRefused && m_Shared->waiting == nullptr;
}

void HelperThread::Give(std::unique_ptr<Task> task) {
    if (m_Shared == nullptr) {
        m_Shared = std::make_shared<Shared>();
    }
    bool isRunning = false;
    {
        Shared::Guard const guard(*m_Shared);
        m_Shared->waiting = std::move(task);
        ++m_Shared->unfinished;
        isRunning = std::exchange(m_Shared->isRunning, true);
    }
    if (isRunning) {
        m_Shared->given.Set();
    } else if (!Start()) {
        {
            Shared::Guard const guard(*m_Shared);
            m_Shared->isRunning = false;
        }
        m_IsRefused = true;
        Finish();
    }
}

void HelperThread::Join() {
    if (m_Thread) {
        // Can't fail: the thread is ours, and nobody else joins it.
        static_cast<void>(::pthread_join(*m_Thread, nullptr));
        m_Thread.reset();
    }
}

bool HelperThread::Start() {
    Join();  // with one that has left because it was idle
    std::unique_ptr<std::shared_ptr<Shared>> own(new (std::nothrow) std::shared_ptr<Shared>(m_Shared));
    pthread_attr_t attributes;
    if (own == nullptr || ::pthread_attr_init(&attributes) != 0) {
        return false;
    }
    sigset_t all;
    ::sigfillset(&all);
    pthread_t thread{};
    bool const isStarted = ::pthread_attr_setsigmask_np(&attributes, &all) == 0 &&
                           ::pthread_create(&thread, &attributes, Work, own.get()) == 0;
    ::pthread_attr_destroy(&attributes);
    if (isStarted) {
        static_cast<void>(own.release());  // the thread's from now on
        m_Thread = thread;
    }
    return isStarted;
}

void HelperThread::Finish() {
    if (m_Shared == nullptr) {
        return;
    }
    for (;;) {
        std::unique_ptr<Task> task;
        {
            Shared::Guard const guard(*m_Shared);
            task = std::move(m_Shared->waiting);
            if (task == nullptr && m_Shared->unfinished == 0) {
                return;
            }
        }
        if (task != nullptr) {
            RunAndCount(*m_Shared, std::move(task));
        } else {
            static_cast<void>(m_Shared->done.Wait(-1));
        }
    }
}

}  // namespace System::Platform
