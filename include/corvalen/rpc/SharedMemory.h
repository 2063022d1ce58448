#pragma once

#include "corvalen/rpc/NamedRegion.h"

namespace System::RPC {

/// A block of memory that all processes of the machine share under one name, with one lock. What the block
/// holds is its users' affair.
///
/// Processes, Threads, Errors: as NamedRegion. The block's file lies in "/dev/shm/Corvalen/Temp" and bears
/// its name, with what is no letter, digit, '_', '-' or '.' escaped; every user may open it. Its memory is
/// reserved at once.
class CORVALEN_API SharedMemory : public NamedRegion {
public:
    /// Opens the block `name`, creating it if no process has it. All users of a name give the same `size`
    /// (bytes); who asks for more than the creator did gets EINVAL, as do a size of 0 and the names "", "."
    /// and "..".
    SharedMemory(char16_t const* name, std::uint32_t size);
    ~SharedMemory() override = default;

    /// The block, null unless IsValid(), and the size that was asked for.
    [[nodiscard]] void* Data() const { return m_Data; }
    [[nodiscard]] std::uint32_t Size() const { return m_Size; }
    /// Lock calls of this object that are not yet undone.
    [[nodiscard]] std::uint32_t LockCount() const { return static_cast<std::uint32_t>(m_LockedCount); }
};

}  // namespace System::RPC
