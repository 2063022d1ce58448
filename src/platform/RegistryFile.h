#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/RegistryTree.h"

namespace System::Platform {

/// Types of a value, as the format numbers them.
constexpr std::uint32_t kRegistryString = 1;
constexpr std::uint32_t kRegistryBinary = 3;
constexpr std::uint32_t kRegistryDword = 4;

/// Bytes of a file that is read; a larger one is refused whole.
constexpr std::size_t kMaxRegistryFileSize = 8U << 20U;

/// Receives what a registry file says, in its order.
class RegistryFileSink {
public:
    virtual ~RegistryFileSink() = default;
    /// A key, to which the following values belong.
    virtual void OnKey(RegistryRoot root, RegistryPath path) = 0;
    /// A key to delete; no value follows it. `path` is not empty.
    virtual void OnDeletedKey(RegistryRoot root, RegistryPath path) = 0;
    /// A value of the last key. Text in `data` is UTF-16, low byte first, with its terminator.
    virtual void OnValue(std::u16string name, std::uint32_t type, std::string data) = 0;
    virtual void OnDeletedValue(std::u16string name) = 0;
    /// Line `number`, counted from 1, makes no sense; nothing else is told of it.
    virtual void OnMalformedLine(std::uint32_t number) = 0;
};

/// Reads the registry's text format, version 5, as UTF-16 (low byte first, with a byte order mark) or UTF-8.
/// `bytes` may be anything: what makes no sense costs its line, and a key line that makes none the values
/// below it.
void ParseRegistryFile(std::string_view bytes, RegistryFileSink& sink);

/// The names of a key path between backslashes; one backslash may end it. False if a name between them is
/// empty or there are more than kMaxRegistryDepth.
[[nodiscard]] bool SplitRegistryPath(std::u16string_view text, RegistryPath& path);

}  // namespace System::Platform
