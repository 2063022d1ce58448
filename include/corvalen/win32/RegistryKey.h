#pragma once

#include <cstdint>

#include "corvalen/Export.h"

namespace Microsoft::Win32 {

/// The number of an open key; 0 is none. The five roots have fixed numbers and are always open.
using HKEY = std::uint32_t;

inline constexpr HKEY HKEY_CLASSES_ROOT = 0x80000000;
inline constexpr HKEY HKEY_CURRENT_USER = 0x80000001;
inline constexpr HKEY HKEY_LOCAL_MACHINE = 0x80000002;
inline constexpr HKEY HKEY_USERS = 0x80000003;
inline constexpr HKEY HKEY_CURRENT_CONFIG = 0x80000005;

/// An open key of the registry: opens the keys below it, lists keys and values, reads strings.
///
///     std::unique_ptr<RegistryKey> root(Registry::LocalMachine());
///     std::unique_ptr<RegistryKey> key(root->OpenSubKey(u"Software\\Example"));
///     char16_t port[16];
///     if (key && key->GetValue(u"Port", port, sizeof port)) ...
///
/// The registry is a set of text files; docs/registry.md tells where they lie. Names of keys and values are
/// found without regard to case. A key keeps what it saw when it was opened, whatever becomes of the files; a
/// root, which nobody opens, and a newly opened key show the files as they are.
///
/// Threads: an object belongs to one thread at a time; different objects may be used at the same time.
/// Errors: nothing throws but a failed allocation (std::bad_alloc). A closed key has no keys and no values. A
/// line of a file that makes no sense is left out, with a warning in the log.
/// Ownership: whatever an operation hands out belongs to the caller.
class CORVALEN_API RegistryKey {
public:
    /// Takes over the open key `key`; opens nothing. The first 2047 characters of `name` are its label.
    RegistryKey(HKEY key, char16_t const* name);
    /// Flushes and closes the key unless Close did.
    ~RegistryKey();
    RegistryKey(RegistryKey const&) = delete;
    RegistryKey& operator=(RegistryKey const&) = delete;

    /// The name given to the constructor: for a key from OpenSubKey the path as it was passed.
    [[nodiscard]] char16_t const* get_Name() const { return m_Name; }
    /// How many keys lie directly below this one, and how many values it has, the default value included.
    [[nodiscard]] int get_SubKeyCount();
    [[nodiscard]] int get_ValueCount();

    /// Lists the names of the keys below, or of the values, as they are written in the files and in that
    /// order. Sets `count` to their number and `names` to an array of as many pointers; without any, 0 and
    /// null. A name of more than 254 characters (a value's: 16382) is a null entry. Each other entry is a
    /// buffer of 255 (16383) characters. The caller releases each entry, and then the array, with `delete[]`.
    void GetSubKeyNames(char16_t**& names, unsigned int& count);
    void GetValueNames(char16_t**& names, unsigned int& count);

    /// Reads the string value `name`; null or empty means the default value. `size` is the size of `output`
    /// in bytes, all of which are written: the text, cut if it must be, a terminator, and zeros. False, with
    /// `output` untouched, if there is no such value, if its type is not REG_SZ, or if its data, terminator
    /// included, has more than 16300 bytes.
    bool GetValue(char16_t const* name, char16_t* output, unsigned int size);

    /// Opens the key at `path`, names with backslashes between them, for reading or for reading and writing.
    /// An empty or null path is this key once more. Null if there is none, or if `isWritable` and this
    /// process may not write the file that holds it. The caller deletes the result.
    [[nodiscard]] RegistryKey* OpenSubKey(char16_t const* path);
    [[nodiscard]] RegistryKey* OpenSubKey(char16_t const* path, bool isWritable);

    /// Writes what was changed: nothing ever is.
    void Flush();
    /// Closes the key; the object then holds none.
    void Close();

private:
    static constexpr std::uint32_t MAX_KEY_LENGTH = 255;    // characters of a key's name, with terminator
    static constexpr std::uint32_t MAX_VALUE_NAME = 16383;  // characters of a value's name, with terminator
    static constexpr std::uint32_t MAX_VALUE = 16300;       // bytes of data that GetValue takes in
    static constexpr std::uint32_t kNameSize = 2048;        // characters of the label, with terminator

    HKEY m_Key;
    char16_t m_Name[kNameSize] = {};
};

}  // namespace Microsoft::Win32
