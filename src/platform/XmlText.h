#pragma once

#include <string>
#include <string_view>

namespace System::Platform {

/// UTF-8 of UTF-16; a half of a surrogate pair becomes U+FFFD.
[[nodiscard]] std::string Utf8Of(std::u16string_view text);
/// UTF-16 of well-formed UTF-8.
[[nodiscard]] std::u16string Utf16Of(std::string_view text);

/// Whether `text` is well-formed UTF-8 of characters that XML 1.0 allows (its production Char).
[[nodiscard]] bool IsXmlText(std::string_view text);
/// Whether the UTF-8 `text` is a Name of XML 1.0, fifth edition.
[[nodiscard]] bool IsXmlName(std::string_view text);
/// Whether each '&' in `text` begins a reference to a character or to one of the five entities of XML itself.
[[nodiscard]] bool HasOnlyOwnReferences(std::string_view text);

}  // namespace System::Platform
