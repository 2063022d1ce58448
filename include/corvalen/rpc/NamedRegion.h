#pragma once

#include <cstdint>

#include "corvalen/Export.h"

namespace System::Platform {
class NamedObject;
class NamedMutex;
}  // namespace System::Platform

namespace System::RPC {

/// One block of memory under one name, and one lock over it: what SharedMemory and SharedStream have in
/// common.
///
/// Processes: the first to ask for a name creates the block, all zeros; it lives until the last one closes
/// it, and its file goes with it. What a crash leaves is emptied by the next creator. A process that dies
/// inside the lock sets the others free; what it left half done is not repaired. Threads: the lock serves
/// threads and processes alike. The count of locks belongs to the object and is guarded by the lock. Errors:
/// nothing throws but a failed allocation. After a failed open IsValid() is false, and LastError() says why.
class CORVALEN_API NamedRegion {
public:
    /// Characters of a name that count; the rest of a longer one is cut off.
    static constexpr unsigned kMaxName = 31;

    NamedRegion(NamedRegion const&) = delete;
    NamedRegion& operator=(NamedRegion const&) = delete;

    /// Whether the block is there; true or false for the object's life.
    [[nodiscard]] bool IsValid() const { return m_Data != nullptr; }
    /// The name as it was given, cut at kMaxName characters, and the errno value of the step of the open that
    /// failed, 0 if none did.
    [[nodiscard]] char16_t const* Name() const { return m_Name; }
    [[nodiscard]] int LastError() const { return m_LastError; }

    /// Waits without limit for the lock, or takes one more level of it on the thread that has it.
    void Lock();
    /// Gives one level back. Requires: the calling thread has called Lock.
    void Unlock();
    /// Whether Lock calls of this object are not yet undone. Other objects and processes do not count.
    [[nodiscard]] bool IsLocked() const { return m_LockedCount > 0; }

protected:
    enum class Home { kMachine, kUser };

    /// Fails with EINVAL below `minSize` bytes. `source` is the name that assertions report.
    NamedRegion(Home home, char16_t const* name, std::uint32_t size, std::uint32_t minSize,
                char const* source);
    virtual ~NamedRegion();

    char16_t m_Name[kMaxName + 1] = {};
    std::uint32_t m_Size;                     // bytes asked for
    Platform::NamedObject* m_File = nullptr;  // m_Mapping, in the process that created the block; else null
    Platform::NamedObject* m_Mapping = nullptr;  // owned
    void* m_Data = nullptr;
    Platform::NamedMutex* m_Mutex = nullptr;  // owned; null if it can't be had: then the lock only counts
    std::int32_t m_LockedCount = 0;
    std::int32_t m_LastError = 0;

private:
    int OpenBlock(Home home);
    void OpenMutex(Home home);

    char const* m_Source;
};

}  // namespace System::RPC
