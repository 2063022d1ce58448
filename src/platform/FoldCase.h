#pragma once

#include <string>
#include <string_view>

namespace System::Platform {

/// The simple case folding of Unicode for one unit: two names are equal without regard to case when their
/// foldings are equal. The same on every machine, whatever its locale. A unit is a character; surrogates stay
/// as they are.
char16_t FoldCase(char16_t unit);
std::u16string FoldCase(std::u16string_view text);

}  // namespace System::Platform
