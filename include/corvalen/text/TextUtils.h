#pragma once

#include <string>

#include "corvalen/Export.h"

namespace System::Text {

/// Conversions between UTF-8, wide strings, BSTR and the code page of the user's locale, and a few small
/// operations on text.
///
/// In the names, UTF8 is UTF-8 up to U+FFFF, WCHAR a NUL-terminated string of 16-bit units, BSTR the counted
/// wide string of corvalen/platform/Bstr.h, and LOCALCP the local code page. UTF-8 is the pivot: what goes
/// between wide text and the local code page passes through it.
///
/// Every count that is returned is that of the units or bytes before the first zero of the result; behind an
/// embedded zero a block keeps its text.
///
/// Ownership: the result of an operation with _NF belongs to the caller: a wide block goes back with free(),
/// a `char` block with delete[]. A BSTR goes back with SysFreeString.
/// Threads: any. The converters have to be started (InitFramework).
/// Errors: no conversion reports any: malformed UTF-8 disappears, and a failed conversion gives 0 and an
/// empty text. Only a failed allocation throws.
class CORVALEN_API CTextUtils {
public:
    /// The number of keys made so far.
    static unsigned int NumberOfKey;

    /// UTF-8 to a new wide block, always terminated; `dst` is null only if the block is not to be had.
    static unsigned int ConvertUTF8toWCHAR_NF(char const* src, unsigned int srcLen, char16_t*& dst);
    static unsigned int ConvertUTF8toWCHAR_NF(std::string const& src, char16_t*& dst);
    /// All of the terminated `src` to a new UTF-8 block of 3 * `cch` + 1 bytes and its terminator: `cch` is
    /// the length that the caller expects, and a longer text is cut behind the last character that fits.
    /// A null `src` gives 0 and a null `dst`.
    static unsigned int ConvertCchWCHARtoUTF8_NF(char16_t const* src, unsigned int cch, char*& dst);
    /// The same with the length of `src`, which must not be null.
    static unsigned int ConvertBSTRtoUTF8_NF(char16_t* src, char*& dst);
    /// The same into a string, which then holds the text before the first NUL alone.
    static unsigned int ConvertWCHARtoUTF8(char16_t const* src, std::string& dst);
    /// UTF-8 to a new BSTR. `src` is only read. `dst` stays as it was if the text is not to be had.
    static unsigned int ConvertUTF8toBSTR(char const*& src, unsigned int srcLen, char16_t*& dst);
    /// A new BSTR of `src`, which stays the caller's; for a null `src`, `dst` stays as it was.
    static void ConvertWCHAR_NFtoBSTR(char16_t const* src, char16_t*& dst);

    /// The local code page to a new block of UTF-8, and back. What NativeConv tells of a last character that
    /// is lost holds for all conversions from the local code page.
    static unsigned int ConvertLOCALCPtoUTF8_NF(char const* src, unsigned int srcLen, char*& dst);
    static unsigned int ConvertUTF8toLOCALCP_NF(char const* src, unsigned int srcLen, char*& dst);
    /// The same into a string, which then holds the text before the first NUL alone.
    static unsigned int ConvertLOCALCPtoUTF8(std::string const& src, std::string& dst);
    static unsigned int ConvertUTF8toLOCALCP(std::string const& src, std::string& dst);

    /// The local code page to a new wide block.
    static unsigned int ConvertLOCALCPtoWCHAR_NF(char const* src, unsigned int srcLen, char16_t*& dst);
    static unsigned int ConvertLOCALCPtoWCHAR_NF(std::string const& src, char16_t*& dst);
    /// The same as a BSTR; `dst` stays as it was if the text is not to be had.
    static void ConvertLOCALCPtoBSTR(char const* src, unsigned int srcLen, char16_t*& dst);
    /// Wide text, not null, to a new block in the local code page, or to a string. If there is no UTF-8 in
    /// between, the block operation gives 0 and leaves `dst` as it was.
    static unsigned int ConvertWCHARtoLOCALCP_NF(char16_t const* src, char*& dst);
    static unsigned int ConvertWCHARtoLOCALCP(char16_t const* src, std::string& dst);

    /// Makes a text of two or more characters end in a backslash.
    static void AddBackskash(std::string& text);
    /// Takes one backslash off the end of a text of two or more characters.
    static void RemoveBackskash(std::string& text);
    /// Copies `src` up to its first NUL to the `dstSize` bytes at `dst` and fills the rest with zeros. False
    /// for an empty `src`, a size of 0 or above 0x7FFFFFFF, and a text that does not fit with its terminator,
    /// which is then cut.
    static bool ConvertStringToChar(std::string const& src, char* dst, unsigned int dstSize);
    /// A text "%03X-%X" of the number of the key, counted from 1, and the seconds since 1970. Unique among
    /// the keys that a process makes.
    [[nodiscard]] static std::string GenerateUniqueKey();
};

}  // namespace System::Text
