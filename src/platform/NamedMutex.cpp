#include "platform/NamedMutex.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "platform/FaultPoint.h"
#include "platform/SharedLock.h"
#include "platform/StopDelay.h"
#include "platform/ThreadId.h"

namespace System::Platform {

// What the process knows of one lock, whichever of its objects is used. The lock itself guards `depth` and
// `nextHeld`; the registry's mutex guards the rest.
struct NamedMutex::Entry {
    NamedObject object;
    SharedLockRec* rec = nullptr;
    std::atomic<std::uint32_t> owner{0};  // thread id; only its own thread can find its id here
    unsigned depth = 0;
    Entry* nextHeld = nullptr;  // of the same thread
    std::string path;
    unsigned uses = 0;
    Entry* next = nullptr;

    LockResult LockFirst(std::uint32_t thread, Deadline const& deadline);
    LockResult Wait(std::uint32_t thread, Deadline const& deadline);
    void Own(std::uint32_t thread);
    void Disown();
    LockResult Attempt(std::uint32_t thread, bool hasSlept);
};

struct NamedMutexRegistry {
    using Entry = NamedMutex::Entry;

    static inline constinit std::mutex s_Mutex;
    static inline constinit Entry* s_First = nullptr;
    static inline pthread_key_t s_ThreadEnd;
    static inline bool s_HasThreadEnd = false;

    // The locks that the thread owns, the newest first, and whether GiveUp will run at its end.
    [[gnu::tls_model("initial-exec")]] static inline constinit thread_local Entry* t_Held = nullptr;
    [[gnu::tls_model("initial-exec")]] static inline constinit thread_local bool t_IsWatched = false;

    static int Find(Place const& place, std::string const& fileName, Entry*& found);
    static int Create(Place const& place, std::string const& fileName, std::string path, Entry*& created);
    static void Remove(Entry* entry);
    static bool WatchThread();
    static void GiveUp(void*);

    static void BeforeFork() { s_Mutex.lock(); }
    static void InParent() { s_Mutex.unlock(); }
    // The objects drop their files by themselves, and so are never found again.
    static void InChild() {
        for (Entry* entry = s_First; entry != nullptr; entry = entry->next) {
            entry->owner.store(0, std::memory_order_relaxed);
            entry->depth = 0;
        }
        t_Held = nullptr;
        s_Mutex.unlock();
    }
};

namespace {

using Registry = NamedMutexRegistry;

[[gnu::constructor]] void RegisterHandlers() {
    Registry::s_HasThreadEnd = ::pthread_key_create(&Registry::s_ThreadEnd, Registry::GiveUp) == 0;
    static_cast<void>(::pthread_atfork(Registry::BeforeFork, Registry::InParent, Registry::InChild));
}

}  // namespace

int NamedMutexRegistry::Find(Place const& place, std::string const& fileName, Entry*& found) {
    StopDelay const delay;
    std::lock_guard const guard(s_Mutex);
    std::string path = place.directory + "/" + fileName;
    for (Entry* entry = s_First; entry != nullptr; entry = entry->next) {
        if (entry->object.IsOpen() && entry->path == path) {
            ++entry->uses;
            found = entry;
            return 0;
        }
    }
    return Create(place, fileName, std::move(path), found);
}

int NamedMutexRegistry::Create(Place const& place, std::string const& fileName, std::string path,
                               Entry*& created) {
    auto entry = std::make_unique<Entry>();
    int const error =
        entry->object.Open(place, fileName, sizeof(SharedLockRec), sizeof(SharedLockRec), Kind::kMutex);
    if (error != 0) {
        return error;
    }
    entry->rec = reinterpret_cast<SharedLockRec*>(entry->object.Data());
    DisownShared(*entry->rec, entry->object);
    entry->path = std::move(path);
    entry->uses = 1;
    entry->next = s_First;
    created = s_First = entry.release();
    return 0;
}

void NamedMutexRegistry::Remove(Entry* entry) {
    Entry** link = &s_First;
    while (*link != entry) {
        link = &(*link)->next;
    }
    *link = entry->next;
    delete entry;
}

bool NamedMutexRegistry::WatchThread() {
    if (!t_IsWatched) {
        StopDelay const delay;  // the C library may allocate
        // Any value but null makes the destructor run.
        t_IsWatched = s_HasThreadEnd && ::pthread_setspecific(s_ThreadEnd, &t_IsWatched) == 0;
    }
    return t_IsWatched;
}

// Runs at the end of a thread, also of one that was stopped. What it still owns it left unfinished.
void NamedMutexRegistry::GiveUp(void*) {
    t_IsWatched = false;
    std::lock_guard const guard(s_Mutex);
    while (t_Held != nullptr) {
        Entry* const entry = t_Held;
        entry->Disown();
        AbandonShared(*entry->rec);
        if (entry->uses == 0) {
            Remove(entry);
        }
    }
}

void NamedMutex::Entry::Own(std::uint32_t thread) {
    depth = 1;
    nextHeld = Registry::t_Held;
    Registry::t_Held = this;
    owner.store(thread, std::memory_order_relaxed);
}

void NamedMutex::Entry::Disown() {
    owner.store(0, std::memory_order_relaxed);
    depth = 0;
    Entry** link = &Registry::t_Held;
    while (*link != this) {
        link = &(*link)->nextHeld;
    }
    *link = nextHeld;
}

LockResult NamedMutex::Entry::LockFirst(std::uint32_t thread, Deadline const& deadline) {
    if (!Registry::WatchThread()) {
        return LockResult::kFailed;
    }
    {
        // From the word's change until the thread is noted as its owner nobody could give it up for the
        // thread.
        StopDelay const delay;
        if (Detail::TakeFree(*rec, object.Participant())) [[likely]] {
            CORVALEN_FAULT("lock.taken");
            Own(thread);
            return LockResult::kAcquired;
        }
    }
    return object.IsOpen() ? Wait(thread, deadline) : LockResult::kFailed;
}

LockResult NamedMutex::Entry::Attempt(std::uint32_t thread, bool hasSlept) {
    StopDelay const delay;
    Detail::Attempt const attempt = Detail::TryAcquire(*rec, object, hasSlept);
    if (attempt == Detail::Attempt::kOccupied) {
        return LockResult::kTimedOut;
    }
    Own(thread);
    return attempt == Detail::Attempt::kAbandoned ? LockResult::kAbandoned : LockResult::kAcquired;
}

// A thread can be stopped while it waits here: it owns nothing.
LockResult NamedMutex::Entry::Wait(std::uint32_t thread, Deadline const& deadline) {
    for (Detail::ReleaseLook const look; look.SeesFree(*rec);) {
        LockResult const result = Attempt(thread, false);
        if (result != LockResult::kTimedOut) {
            return result;
        }
    }
    for (bool hasSlept = false;; hasSlept = true) {
        LockResult const result = Attempt(thread, hasSlept);
        if (result != LockResult::kTimedOut || deadline.HasPassed()) {
            return result;
        }
        Detail::SleepUntilChange(*rec, deadline);
    }
}

int NamedMutex::Open(Place const& place, std::u16string_view name) {
    Close();
    std::string const fileName = NamedObject::FileNameOf(name, Kind::kMutex);
    return fileName.empty() ? EINVAL : Registry::Find(place, fileName, m_Entry);
}

void NamedMutex::Close() {
    Entry* const entry = std::exchange(m_Entry, nullptr);
    if (entry == nullptr) {
        return;
    }
    StopDelay const delay;
    std::lock_guard const guard(Registry::s_Mutex);
    if (--entry->uses > 0) {
        return;
    }
    std::uint32_t const owner = entry->owner.load(std::memory_order_relaxed);
    if (owner == CurrentThreadId()) {
        entry->Disown();
        AbandonShared(*entry->rec);
    } else if (owner != 0) {
        // Noted as held by another thread of ours: gone when that one ends.
        return;
    }
    Registry::Remove(entry);
}

LockResult NamedMutex::Lock(Deadline const& deadline) {
    if (m_Entry == nullptr) {
        return LockResult::kFailed;
    }
    std::uint32_t const thread = CurrentThreadId();
    if (m_Entry->owner.load(std::memory_order_relaxed) == thread) {
        ++m_Entry->depth;
        return LockResult::kAcquired;
    }
    return m_Entry->LockFirst(thread, deadline);
}

bool NamedMutex::Unlock() {
    if (m_Entry == nullptr || m_Entry->owner.load(std::memory_order_relaxed) != CurrentThreadId()) {
        return false;
    }
    if (--m_Entry->depth > 0) {
        return true;
    }
    StopDelay const delay;
    m_Entry->Disown();
    ReleaseShared(*m_Entry->rec);
    return true;
}

}  // namespace System::Platform
