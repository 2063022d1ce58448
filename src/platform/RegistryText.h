#pragma once

#include <string>
#include <string_view>

namespace System::Platform {

/// Stands in decoded text for what was no text. The format has no place for it.
constexpr char16_t kNotText = u'\0';

/// The text of a registry file: UTF-16, low byte first, if a byte order mark says so, else UTF-8 with or
/// without a mark. Each malformed piece becomes kNotText.
std::u16string DecodeRegistryText(std::string_view bytes);

}  // namespace System::Platform
