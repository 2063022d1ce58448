#pragma once

#include <string>

#include "corvalen/rpc/SharedMemory.h"

namespace Support {

/// Removes the region `name` and its lock that killed processes have left: whoever opens and closes it last
/// does.
inline void RemoveLeftRegion(std::string const& name) {
    System::RPC::SharedMemory const last(std::u16string(name.begin(), name.end()).c_str(), 1);
}

}  // namespace Support
