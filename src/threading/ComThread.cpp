#include "corvalen/threading/ComThread.h"

#include <cstring>
#include <utility>

#include "corvalen/threading/Monitor.h"
#include "diagnostics/Report.h"
#include "platform/StopDelay.h"
#include "platform/Thread.h"
#include "platform/ThreadId.h"

namespace System::Threading {

using Diagnostics::Gravity;
using Platform::CurrentThreadId;
using Platform::Thread;

namespace {

constexpr char kSource[] = "ComThread";
constexpr int kAbortWaitMs = 2000;
constexpr int kPriorityLow = -2;
constexpr int kPriorityNormal = -1;
constexpr int kPriorityHigh = 1;

void Verify(bool holds, char const* expression, int line = __builtin_LINE()) {
    Diagnostics::Verify(holds, Gravity::kSerious, expression, kSource, line);
}

// A log procedure asks for thread names: the report of a stopped list must not come back here for another
// one.
void VerifyStarted(bool isStarted) {
    static constinit thread_local bool t_IsReporting = false;
    if (!isStarted && !t_IsReporting) {
        t_IsReporting = true;
        Verify(isStarted, "s_InitCount > 0");
        t_IsReporting = false;
    }
}

constexpr std::size_t kShortName = 64;

// The calling thread's copy of `name`. Short ones stay in a block that needs no destructor, so that a log
// line of a thread's very last objects still finds it.
char const* CopyForCaller(std::string const& name) {
    static constinit thread_local char t_Short[kShortName]{};
    static thread_local std::string t_Long;
    if (name.size() >= kShortName) {
        t_Long = name;
        return t_Long.c_str();
    }
    std::memcpy(t_Short, name.c_str(), name.size() + 1);
    return t_Short;
}

}  // namespace

// Guards the links, and keeps a thread from being stopped half way through a change of them. A list whose
// monitor is gone has one user left.
class CComThread::ListLock {
public:
    ListLock() {
        if (s_Monitor != nullptr) {
            s_Monitor->Lock();
        }
    }
    ~ListLock() {
        if (s_Monitor != nullptr) {
            s_Monitor->Unlock();
        }
    }
    ListLock(ListLock const&) = delete;
    ListLock& operator=(ListLock const&) = delete;

private:
    Platform::StopDelay m_StopDelay;
};

constinit int CComThread::s_InitCount = 0;
constinit CMonitor* CComThread::s_Monitor = nullptr;
constinit std::uint32_t CComThread::s_MainThreadId = 0;
constinit CComThread* CComThread::s_First = nullptr;
constinit CComThread* CComThread::s_Last = nullptr;

IRunnable::~IRunnable() = default;
IThread::~IThread() = default;

void CComThread::Init() {
    if (++s_InitCount == 1) {
        s_Monitor = new CMonitor;
        s_MainThreadId = CurrentThreadId();
    }
}

void CComThread::Terminate() {
    Verify(s_InitCount > 0, "s_InitCount > 0");
    if (--s_InitCount != 0) {
        return;
    }
    Verify(s_MainThreadId == CurrentThreadId(), "s_MainThreadId == GetCurrentThreadId()");
    Verify(s_First == nullptr && s_Last == nullptr, "s_First == NULL && s_Last == NULL");
    // Cleared, so that an object that outlives the list does not take a lock that is gone.
    delete std::exchange(s_Monitor, nullptr);
}

CComThread::CComThread(IRunnable* runnable) : m_Runnable(runnable) {
    VerifyStarted(s_InitCount > 0);
    if (s_InitCount > 0) {
        EnterList();
    }
}

CComThread::~CComThread() {
    if (m_IsListed) {
        LeaveList();
    }
    CComThread::Abort();
    delete std::exchange(m_Handle, nullptr);
}

void CComThread::EnterList() {
    ListLock const lock;
    m_Next = s_First;
    (s_First != nullptr ? s_First->m_Prev : s_Last) = this;
    s_First = this;
    m_IsListed = true;
}

void CComThread::LeaveList() {
    ListLock const lock;
    if (m_Prev == nullptr) {
        Verify(s_First == this, "s_First == this");
        s_First = m_Next;
    } else {
        Verify(m_Prev->m_Next == this, "m_Prev->m_Next == this");
        m_Prev->m_Next = m_Next;
    }
    if (m_Next == nullptr) {
        Verify(s_Last == this, "s_Last == this");
        s_Last = m_Prev;
    } else {
        Verify(m_Next->m_Prev == this, "m_Next->m_Prev == this");
        m_Next->m_Prev = m_Prev;
    }
    m_Next = nullptr;
    m_Prev = nullptr;
}

bool CComThread::Start() {
    if (m_Handle != nullptr) {
        return false;
    }
    m_Running = true;
    m_Handle = Thread::CreateSuspended(threadProc, this);
    if (m_Handle == nullptr) {
        m_Running = false;
        return false;
    }
    m_ThreadId.store(m_Handle->Id(), std::memory_order_relaxed);
    if (m_Name != "?") {
        m_Handle->SetName(m_Name.c_str());
    }
    m_Handle->PinToFirstProcessor();
    m_Handle->Resume();
    return true;
}

unsigned long CComThread::threadProc(void* thread) {
    auto* const self = static_cast<CComThread*>(thread);
    self->m_Running = true;
    self->m_Runnable->Run();
    self->m_Running = false;
    return 0;
}

bool CComThread::Abort() {
    if (m_Handle == nullptr || !m_Running) {
        return false;
    }
    m_Runnable->Abort();
    if (!m_Handle->WaitForEnd(kAbortWaitMs)) {
        Diagnostics::LogWarning("Forcing a thread to quit");
        if (!m_Handle->ForceEnd()) {
            Diagnostics::LogError("thread %lu '%s' does not take the forced stop",
                                  static_cast<unsigned long>(m_Handle->Id()), m_Name.c_str());
        }
    }
    delete std::exchange(m_Handle, nullptr);
    return true;
}

void CComThread::SetPriorityNormal() {
    SetPriority(kPriorityNormal);
}

void CComThread::SetPriorityHigh() {
    SetPriority(kPriorityHigh);
}

void CComThread::SetPriorityLow() {
    SetPriority(kPriorityLow);
}

void CComThread::SetPriority(int level) {
    if (m_Handle != nullptr) {
        m_Handle->SetPriority(level);
    }
}

bool CComThread::IsValidThread() {
    return m_Handle != nullptr;
}

void CComThread::SetName(char const* name) {
    m_Name = name;
    if (m_Handle != nullptr) {
        m_Handle->SetName(name);
    }
}

bool CComThread::IsRunning() const {
    return m_Running;
}

char const* CComThread::GetName() const {
    return m_Name.c_str();
}

char const* CComThread::ThreadName(unsigned long id) {
    VerifyStarted(s_InitCount > 0);
    if (id == s_MainThreadId) {
        return "Main";
    }
    if (s_InitCount <= 0) {
        return "Unknown";
    }
    ListLock const lock;
    for (CComThread const* thread = s_First; thread != nullptr; thread = thread->m_Next) {
        if (thread->m_ThreadId.load(std::memory_order_relaxed) == id) {
            return CopyForCaller(thread->m_Name);
        }
    }
    return "Unknown";
}

}  // namespace System::Threading
