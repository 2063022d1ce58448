#include "corvalen/rpc/SharedMemory.h"

namespace System::RPC {

SharedMemory::SharedMemory(char16_t const* name, std::uint32_t size)
    : NamedRegion(Home::kMachine, name, size, 1, "SharedMemory") {}

}  // namespace System::RPC
