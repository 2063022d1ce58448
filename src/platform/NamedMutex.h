#pragma once

#include <string_view>

#include "platform/Clock.h"
#include "platform/Mutex.h"
#include "platform/NamedObject.h"

namespace System::Platform {

/// A recursive lock under a name, for threads and processes alike: all objects of a process on one name are
/// one lock, so that the thread that owns it gets it again through any of them.
///
/// Processes: the lock lives in a named object of its own, "<name>_mtx", while somebody has it open. What a
/// process or a thread held when it ended, was killed or was stopped, the next taker gets as kAbandoned. A
/// child made by fork owns nothing and gets kFailed; it opens a NamedMutex of its own. Threads: any thread
/// may lock; only the owner may unlock. Open and Close by one thread while no other uses the object. Closing
/// the process's last object on a name while it is locked leaves it to the next taker, abandoned; or, if
/// another thread owns it, when that thread ends.
class NamedMutex {
public:
    NamedMutex() = default;
    ~NamedMutex() { Close(); }
    NamedMutex(NamedMutex const&) = delete;
    NamedMutex& operator=(NamedMutex const&) = delete;

    /// Opens or creates the lock of the object called `name` in `place`. 0 or the errno value of
    /// NamedObject::Open; EINVAL for a name that can be no file's.
    [[nodiscard]] int Open(Place const& place, std::u16string_view name);
    void Close();
    [[nodiscard]] bool IsOpen() const { return m_Entry != nullptr; }

    /// Takes the lock or one more level of it, waiting until `deadline`. kFailed: not open in this process.
    LockResult Lock(Deadline const& deadline);
    /// Gives one level back; false if the calling thread is not the owner.
    bool Unlock();

private:
    friend struct NamedMutexRegistry;
    struct Entry;
    Entry* m_Entry = nullptr;
};

}  // namespace System::Platform
