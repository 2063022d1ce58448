#include "corvalen/win32/Registry.h"

namespace Microsoft::Win32 {

RegistryKey* Registry::ClassesRoot() {
    return new RegistryKey(HKEY_CLASSES_ROOT, u"HKEY_CLASSES_ROOT");
}

RegistryKey* Registry::CurrentUser() {
    return new RegistryKey(HKEY_CURRENT_USER, u"HKEY_CURRENT_USER");
}

RegistryKey* Registry::LocalMachine() {
    return new RegistryKey(HKEY_LOCAL_MACHINE, u"HKEY_LOCAL_MACHINE");
}

RegistryKey* Registry::Users() {
    return new RegistryKey(HKEY_USERS, u"HKEY_USERS");
}

RegistryKey* Registry::CurrentConfig() {
    return new RegistryKey(HKEY_CURRENT_CONFIG, u"HKEY_CURRENT_CONFIG");
}

}  // namespace Microsoft::Win32
