#pragma once

#include <string>

#include "corvalen/Export.h"

namespace System::Text {

/// Converts between UTF-8, the pivot of all conversions, and one other form, called the external form.
///
/// UTF-8 here ends at U+FFFF: a character takes at most three bytes, and a four-byte sequence is malformed.
/// Overlong forms and surrogate values are read as they stand; a surrogate pair is two characters.
///
/// Every length is in bytes, also for 16-bit units. A NUL byte is a character like any other. No conversion
/// writes a terminator, or anything behind the bytes that it counts in `*outLen`, or part of a character
/// (NativeConv tells where it does otherwise).
///
/// Results of a conversion:
///
///     0             all of the input was converted
///     E2BIG (7)     `dst` is full: the output ends before the first character that did not fit
///     EINVAL (22)   malformed bytes were skipped, one at a time, and the rest was converted
///
/// A character that the external form can't hold is no error: the missing character is written for it, or
/// nothing. When bytes were skipped and then `dst` is full, FromUtf8 says EINVAL and ToUtf8 says E2BIG.
///
/// Threads: any number of threads may convert through one object. SetMissingChar, and the Init and Terminate
/// of the converters, are for one thread while no other converts.
/// Errors: nothing throws but a failed allocation in StrFromUtf8 and StrToUtf8.
class CORVALEN_API Utf8Converter {
public:
    Utf8Converter() = default;
    Utf8Converter(Utf8Converter const&) = delete;
    Utf8Converter& operator=(Utf8Converter const&) = delete;
    virtual ~Utf8Converter() = default;

    /// Whether the bytes are well-formed external form.
    [[nodiscard]] virtual bool IsValid(void const* src, unsigned int srcLen) const = 0;
    /// Bytes that are always enough for FromUtf8 of `srcLen` bytes. `src` is not read; the result wraps at
    /// 32 bits.
    [[nodiscard]] virtual unsigned int FromUtf8BufferSize(char const* src, unsigned int srcLen) const = 0;
    /// Bytes that are enough for ToUtf8 of `srcLen` well-formed bytes (but for NativeConv, see there);
    /// otherwise as FromUtf8BufferSize.
    [[nodiscard]] virtual unsigned int ToUtf8BufferSize(void const* src, unsigned int srcLen) const = 0;

    /// Converts external form to UTF-8. `*outLen` gets the bytes written to `dst`, whatever the result.
    virtual int ToUtf8(void const* src, unsigned int srcLen, char* dst, unsigned int dstLen,
                       unsigned int* outLen) const = 0;
    /// Converts UTF-8 to external form. `*outLen` gets the bytes written to `dst`, whatever the result.
    virtual int FromUtf8(char const* src, unsigned int srcLen, void* dst, unsigned int dstLen,
                         unsigned int* outLen) const = 0;

    /// The code of the external form that FromUtf8 writes for a character that it can't hold; 0, the initial
    /// value, drops such a character. Only GsmConv and Latin1Conv look at it. It is reset when the last
    /// Terminate of the converter ends the object.
    void SetMissingChar(char c) { m_MissingChar = static_cast<signed char>(c); }
    /// The code with its sign: 0xFF reads as -1.
    [[nodiscard]] int MissingChar() const { return m_MissingChar; }

    /// FromUtf8 of a whole string. `dst` is replaced by what came out, whatever the result.
    int StrFromUtf8(std::string src, std::string& dst) const;
    /// ToUtf8 of a whole string that holds external form.
    int StrToUtf8(std::string src, std::string& dst) const;

    /// FromUtf8 into a new block of `*outLen` bytes, which the caller releases with `free`. `*result` gets
    /// the result unless `result` is null. Without memory for the whole text the block holds its first 256
    /// bytes (E2BIG); without memory at all it is null, `*outLen` 0 and the result E2BIG.
    [[nodiscard]] void* FromUtf8_NF(char const* src, unsigned int srcLen, unsigned int* outLen,
                                    int* result) const;
    /// The same with ToUtf8.
    [[nodiscard]] char* ToUtf8_NF(void const* src, unsigned int srcLen, unsigned int* outLen,
                                  int* result) const;

protected:
    signed char m_MissingChar = 0;
};

}  // namespace System::Text
