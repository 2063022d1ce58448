#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "corvalen/Export.h"

namespace System::Platform {
class Thread;
}

namespace System::Threading {

class CMonitor;

/// The work of a thread, and a way to ask it to end.
class CORVALEN_API IRunnable {
public:
    virtual ~IRunnable();

    /// The thread's body; returns when the work has ended. An exception that leaves it ends the process.
    virtual void Run() = 0;
    /// Asks Run to end. Called on another thread while Run is running, which then has 2 seconds to return.
    virtual void Abort() = 0;
};

/// What every kind of thread offers; CComThread tells what the calls do.
class CORVALEN_API IThread {
public:
    virtual ~IThread();

    virtual bool Start() = 0;
    virtual bool Abort() = 0;
    virtual void SetPriorityNormal() = 0;
    virtual void SetPriorityHigh() = 0;
    virtual void SetPriorityLow() = 0;
    virtual bool IsValidThread() = 0;
    virtual void SetName(char const* name) = 0;
};

/// A system thread that runs an IRunnable on the first processor that the process may use, and stands in a
/// list of the process by which ThreadName finds the name of an id.
///
///     state    | IsValidThread | IsRunning     | Start      | Abort         | enters when
///     New      | false         | false         | -> Running | false         | constructed
///     Running  | true          | true          | false      | -> Stopped    | Start
///     Ended    | true          | false         | false      | false         | Run has returned
///     Stopped  | false         | true or false | -> Running | false         | Abort
///
/// Threads: an object is used by the thread that controls it; Abort and the destructor are not for the thread
/// that it runs. Its name is in the list for as long as the object lives, also after the thread has ended.
/// Set the name before other threads may ask for it. Errors: nothing throws but a failed allocation. Broken
/// rules are reported through CDebug::Assert with the source name "ComThread". An object made while the
/// library is not started is reported and does not stand in the list. Ownership: the runnable stays the
/// caller's and has to outlive the thread.
class CORVALEN_API CComThread : public IThread {
public:
    /// Requires: `runnable` is not null.
    explicit CComThread(IRunnable* runnable);
    /// Stops the thread as Abort does if it still runs, after it has left the list.
    ~CComThread() override;
    CComThread(CComThread const&) = delete;
    CComThread& operator=(CComThread const&) = delete;

    /// Starts the thread; false if it was started before and not stopped by Abort, or if the system has none
    /// to give. The id, the name and the processor are in place before the thread's first instruction.
    bool Start() override;
    /// Asks the runnable to end and waits for 2000 ms; then ends the thread by force, wherever it is, with
    /// the warning "Forcing a thread to quit". No destructor of what it has on its stack runs then, and the
    /// locks of the library that it holds pass to their next takers as abandoned. False if nothing runs.
    bool Abort() override;
    /// Nice values 5, -5 and 10 between Start and Abort, no effect otherwise. A thread on which none was
    /// called keeps the system's default. A value that the system refuses is left as it is.
    void SetPriorityNormal() override;
    void SetPriorityHigh() override;
    void SetPriorityLow() override;
    /// Whether it has been started and not stopped by Abort; true also when it has ended by itself.
    bool IsValidThread() override;
    /// Keeps a copy of `name`, whose first 15 bytes the system's tools show as well. Takes no lock.
    void SetName(char const* name) override;

    /// Whether Run runs, or is about to.
    [[nodiscard]] bool IsRunning() const;
    /// The name, "?" if none was set; good until the next SetName.
    [[nodiscard]] char const* GetName() const;

    /// Starts and stops the list; the first Init makes the calling thread the main thread, which is to make
    /// the last Terminate, when no object is left. Other calls count.
    static void Init();
    static void Terminate();

    /// The name of the newest object whose thread has the id, "Main" for the main thread, else "Unknown". The
    /// text belongs to the calling thread and is good until its next call.
    [[nodiscard]] static char const* ThreadName(unsigned long id);

protected:
    /// What the system thread enters; `thread` is its CComThread.
    static unsigned long threadProc(void* thread);

private:
    class ListLock;

    void SetPriority(int level);
    void EnterList();
    void LeaveList();

    Platform::Thread* m_Handle = nullptr;
    IRunnable* m_Runnable;
    std::atomic<bool> m_Running{false};
    std::string m_Name{"?"};
    std::atomic<std::uint32_t> m_ThreadId{0};
    CComThread* m_Next = nullptr;
    CComThread* m_Prev = nullptr;
    bool m_IsListed = false;

    static int s_InitCount;
    static CMonitor* s_Monitor;
    static std::uint32_t s_MainThreadId;
    static CComThread* s_First;
    static CComThread* s_Last;
};

}  // namespace System::Threading
