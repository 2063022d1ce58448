#pragma once

#include "corvalen/Export.h"
#include "corvalen/win32/RegistryKey.h"

namespace Microsoft::Win32 {

/// The five roots of the registry. Each call gives a new object, which the caller deletes; it bears the
/// root's name, like "HKEY_LOCAL_MACHINE".
///
/// Threads: any thread may call.
/// Errors: nothing throws but a failed allocation (std::bad_alloc).
class CORVALEN_API Registry {
public:
    Registry() = delete;

    /// A view: the current user's Software\Classes over the machine's, unless a file gives it directly.
    [[nodiscard]] static RegistryKey* ClassesRoot();
    [[nodiscard]] static RegistryKey* CurrentUser();
    [[nodiscard]] static RegistryKey* LocalMachine();
    [[nodiscard]] static RegistryKey* Users();
    /// A view of the machine's System\CurrentControlSet\Hardware Profiles\Current, unless a file gives it
    /// directly.
    [[nodiscard]] static RegistryKey* CurrentConfig();
};

}  // namespace Microsoft::Win32
