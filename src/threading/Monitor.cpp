#include "corvalen/threading/Monitor.h"

#include <new>

#include "diagnostics/Report.h"
#include "platform/Mutex.h"
#include "platform/ThreadId.h"

namespace System::Threading {

using Diagnostics::Gravity;
using Diagnostics::Verify;
using Platform::CurrentThreadId;
using Platform::LockResult;

namespace {

constexpr char kSource[] = "Monitor";
constexpr std::int64_t kSliceMs = 10000;

}  // namespace

CMonitor::CMonitor() : m_Mutex(new (std::nothrow) Platform::Mutex) {}

CMonitor::~CMonitor() {
    Verify(LockCount() == 0, Gravity::kSerious, "m_LockCount == 0", kSource);
    Verify(m_Thread.load(std::memory_order_relaxed) == 0, Gravity::kSerious, "m_Thread == 0", kSource);
    delete m_Mutex;
}

// The mutex is what excludes; the two fields are written by its owner only, so that relaxed accesses do. They
// are atomic for those who read them from elsewhere.
void CMonitor::Lock() {
    LockResult result = LockResult::kFailed;
    do {
        result = m_Mutex != nullptr ? m_Mutex->Lock(kSliceMs) : LockResult::kFailed;
    } while (result == LockResult::kTimedOut);
    std::uint32_t const caller = CurrentThreadId();
    std::uint32_t count = LockCount();
    if (count == 0) {
        Verify(m_Thread.load(std::memory_order_relaxed) == 0, Gravity::kSerious, "m_Thread == 0", kSource);
    } else if (!Verify(result != LockResult::kAbandoned &&
                           (m_Thread.load(std::memory_order_relaxed) == caller || IsTakenAgain()),
                       Gravity::kSerious, "m_Thread == GetCurrentThreadId()", kSource)) {
        // The last owner died with the lock: its count goes with it.
        count = 0;
    }
    m_Thread.store(caller, std::memory_order_relaxed);
    m_LockCount.store(count + 1, std::memory_order_relaxed);
}

void CMonitor::Unlock() {
    Verify(IsOwner(CurrentThreadId()), Gravity::kSerious, "m_Thread == GetCurrentThreadId()", kSource);
    std::uint32_t const count = LockCount() - 1;
    m_LockCount.store(count, std::memory_order_relaxed);
    if (count == 0) {
        m_Thread.store(0, std::memory_order_relaxed);
    }
    if (m_Mutex != nullptr) {
        // Fails for a caller that does not own it, which has been reported.
        static_cast<void>(m_Mutex->Unlock());
    }
}

void CMonitor::Enter() {
    Lock();
}

void CMonitor::Leave() {
    Unlock();
}

bool CMonitor::Locked() const {
    return IsOwner(CurrentThreadId());
}

unsigned CMonitor::LockCount() const {
    return m_LockCount.load(std::memory_order_relaxed);
}

bool CMonitor::Init() {
    return false;
}

// A fork gives the thread that made it another id, and leaves it what it holds. Without any owner on record,
// after an unlock too many, holding the mutex does not count.
bool CMonitor::IsOwner(std::uint32_t thread) const {
    std::uint32_t const owner = m_Thread.load(std::memory_order_relaxed);
    return owner == thread || (owner != 0 && m_Mutex != nullptr && m_Mutex->IsHeldByCaller());
}

bool CMonitor::IsTakenAgain() const {
    return m_Thread.load(std::memory_order_relaxed) != 0 && m_Mutex != nullptr && m_Mutex->Depth() > 1;
}

}  // namespace System::Threading
