#pragma once

#include "corvalen/Export.h"

namespace System::Text {

/// A text in UTF-8 or in wide form that makes the other form when it is first asked for, and keeps it.
///
/// It needs nothing to be started and never looks at the local code page.
/// Ownership: the pointers that the conversions give belong to the object and hold until its end.
/// Threads: one thread at a time while a form may still have to be made; afterwards any.
/// Errors: only a failed allocation throws. A bad byte of the UTF-8 costs the warning "Bad utf8 string
/// detected" when the wide form is made, and is left out of it.
class CORVALEN_API UnicodeStr {
public:
    /// Copies `text`, not null, up to its NUL, unexamined.
    UnicodeStr(char const* text);
    /// Copies `text`, not null, up to its terminator.
    UnicodeStr(char16_t const* text);
    ~UnicodeStr();
    UnicodeStr(UnicodeStr const&) = delete;
    UnicodeStr& operator=(UnicodeStr const&) = delete;

    operator char const*();
    operator char16_t const*();

private:
    char* m_Utf8 = nullptr;
    char16_t* m_Wide = nullptr;
};

}  // namespace System::Text
