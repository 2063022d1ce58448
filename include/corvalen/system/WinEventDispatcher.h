#pragma once

#include <atomic>

#include "corvalen/Export.h"
#include "corvalen/threading/ComThread.h"

namespace System {

/// Owns a thread that takes and dispatches the messages of its own queue until it is stopped: those of
/// windows and timers that are made on it, and what is posted to them. The thread never sleeps and keeps the
/// first processor busy. Only a Run that overrides this one can make them there: where a thread is to have
/// some, or is to sleep, a CComThread with the loop of Platform::MessageQueue is the better choice.
///
/// Threads: Init, Abort and the destructor belong to the thread that controls the object; Abort may also come
/// from elsewhere. Run is the worker's.
/// Errors: nothing throws but a failed allocation. If the system has no thread to give, nothing is dispatched
/// and nothing reported.
class CORVALEN_API CWinEventDispatcher : public Threading::IRunnable {
public:
    CWinEventDispatcher();
    /// Stops the worker as CComThread::Abort does, and destroys it.
    ~CWinEventDispatcher() override;
    CWinEventDispatcher(CWinEventDispatcher const&) = delete;
    CWinEventDispatcher& operator=(CWinEventDispatcher const&) = delete;

    /// Starts the worker unless it is to run already. After an Abort the earlier worker is stopped and
    /// destroyed first.
    void Init();
    /// Dispatches until Abort, which it looks for once in about 2 milliseconds and between two messages only.
    void Run() override;
    /// Tells the worker to end, and returns at once.
    void Abort() override;

private:
    void DestroyWorker();

    Threading::CComThread* m_Worker = nullptr;
    std::atomic<bool> m_Running{false};
};

}  // namespace System
