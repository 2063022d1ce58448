#include "platform/ThreadMark.h"

#include <pthread.h>

#include <cstdlib>
#include <new>

#include "platform/StopDelay.h"

namespace System::Platform {

constinit thread_local std::uint32_t Detail::t_ThreadMark = 0;

namespace {

// A mark is the index of a place and, above it, how often the place has been given out. Places are given back
// when their threads end, and given out again in the order in which they came back, so that a mark is not
// seen again before millions of threads have ended.
constexpr unsigned kIndexBits = 14;
constexpr std::uint32_t kMaxPlaces = 1U << kIndexBits;
constexpr std::uint32_t kIndexMask = kMaxPlaces - 1;
constexpr std::uint32_t kTurnMask = ~std::uint32_t{0} >> kIndexBits;
constexpr std::uint32_t kNone = kMaxPlaces;
// New places are made while fewer than so many are free, to keep the old ones apart.
constexpr std::uint32_t kSpareFree = 64;

struct Place {
    std::atomic<std::uint32_t> turn;  // odd while a living thread has it
    std::uint32_t nextFree;
};

// All zeros until they are used, so that only the used ones cost memory.
Place s_Places[kMaxPlaces];

class MarkTable {
public:
    std::uint32_t Take() {
        std::uint32_t const index = TakeIndex();
        if (index == kNone) {
            // Sixteen thousand threads that all hold locks: nothing sound is left to do.
            std::abort();
        }
        return MarkOf(index, StartTurn(index));
    }

    void GiveBack(std::uint32_t mark) {
        std::uint32_t const index = mark & kIndexMask;
        EndTurn(index);
        Lock();
        PutFree(index);
        Unlock();
    }

    static bool IsAlive(std::uint32_t mark) {
        std::uint32_t const turn = s_Places[mark & kIndexMask].turn.load(std::memory_order_acquire);
        return (turn & 1) != 0 && MarkOf(mark & kIndexMask, turn) == mark;
    }

    void Lock() { static_cast<void>(::pthread_mutex_lock(&m_Guard)); }
    void Unlock() { static_cast<void>(::pthread_mutex_unlock(&m_Guard)); }

    // In a forked child: `survivor` is the mark of its only thread, 0 if it has none.
    void EndAllBut(std::uint32_t survivor) {
        m_FirstFree = m_LastFree = kNone;
        m_FreeCount = 0;
        for (std::uint32_t index = 0; index < m_Made; ++index) {
            if (survivor != 0 && index == (survivor & kIndexMask)) {
                continue;
            }
            if ((s_Places[index].turn.load(std::memory_order_relaxed) & 1) != 0) {
                EndTurn(index);
            }
            PutFree(index);
        }
    }

private:
    static std::uint32_t MarkOf(std::uint32_t index, std::uint32_t turn) {
        return (turn & kTurnMask) << kIndexBits | index;
    }

    static std::uint32_t StartTurn(std::uint32_t index) {
        return s_Places[index].turn.fetch_add(1, std::memory_order_relaxed) + 1;
    }

    static void EndTurn(std::uint32_t index) { s_Places[index].turn.fetch_add(1, std::memory_order_release); }

    std::uint32_t TakeIndex() {
        Lock();
        std::uint32_t index = kNone;
        if (m_Made < kMaxPlaces && m_FreeCount < kSpareFree) {
            index = m_Made++;
        } else if (m_FreeCount != 0) {
            index = m_FirstFree;
            m_FirstFree = s_Places[index].nextFree;
            --m_FreeCount;
        }
        Unlock();
        return index;
    }

    void PutFree(std::uint32_t index) {
        s_Places[index].nextFree = kNone;
        if (m_FreeCount++ == 0) {
            m_FirstFree = index;
        } else {
            s_Places[m_LastFree].nextFree = index;
        }
        m_LastFree = index;
    }

    pthread_mutex_t m_Guard = PTHREAD_MUTEX_INITIALIZER;
    std::uint32_t m_Made = 0;
    std::uint32_t m_FirstFree = kNone;
    std::uint32_t m_LastFree = kNone;
    std::uint32_t m_FreeCount = 0;
};

constinit MarkTable s_Table;
pthread_key_t s_Key;
bool s_HasKey = false;

// Runs behind the thread's own destructors, which may lock; one that locks after this gets a new mark, and
// the key's destructor comes round once more for it.
void EndMark(void* value) {
    Detail::t_ThreadMark = 0;
    s_Table.GiveBack(static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(value)));
}

void LockForFork() {
    s_Table.Lock();
}
void UnlockInParent() {
    s_Table.Unlock();
}
void StartChild() {
    s_Table.EndAllBut(Detail::t_ThreadMark);
    s_Table.Unlock();
}

// At load, not at first use: a fork in the midst of a lazy registration would leave a child that can't tell.
// Want of memory and of keys are the only failures there.
[[gnu::constructor]] void Prepare() {
    s_HasKey = ::pthread_key_create(&s_Key, EndMark) == 0;
    static_cast<void>(::pthread_atfork(LockForFork, UnlockInParent, StartChild));
}

}  // namespace

std::uint32_t Detail::TakeThreadMark() {
    // A thread stopped in here would leave the table locked, or a place that nobody gives back.
    StopDelay const stopDelay;
    std::uint32_t const mark = s_Table.Take();
    t_ThreadMark = mark;
    if (s_HasKey) {
        static_cast<void>(::pthread_setspecific(s_Key, reinterpret_cast<void*>(std::uintptr_t{mark})));
    }
    return mark;
}

bool IsThreadAlive(std::uint32_t mark) {
    return MarkTable::IsAlive(mark);
}

}  // namespace System::Platform
