#pragma once

#include "corvalen/text/Utf8Converter.h"

namespace System::Text {

/// UTF-8 to and from UCS-2 in writing: four hexadecimal digits for each 16-bit unit, the highest first, so
/// that U+00E9 is the text 00E9. Digits are written in upper case and read in both.
///
/// Input of ToUtf8 that is not hexadecimal throughout is taken for plain text: its ASCII characters before
/// the first NUL are copied, other bytes are dropped, and the result is EINVAL, also when `dst` is full.
class CORVALEN_API UcsHexConv : public Utf8Converter {
public:
    /// Counts up; the first call makes the object.
    static void Init();
    /// Counts down; the call that reaches 0 ends the object.
    static void Terminate();
    /// The one object; null before the first Init, which is reported, and after the last Terminate.
    [[nodiscard]] static UcsHexConv* Instance();

    [[nodiscard]] bool IsValid(void const* src, unsigned int srcLen) const override;
    [[nodiscard]] unsigned int FromUtf8BufferSize(char const* src, unsigned int srcLen) const override;
    [[nodiscard]] unsigned int ToUtf8BufferSize(void const* src, unsigned int srcLen) const override;
    int ToUtf8(void const* src, unsigned int srcLen, char* dst, unsigned int dstLen,
               unsigned int* outLen) const override;
    int FromUtf8(char const* src, unsigned int srcLen, void* dst, unsigned int dstLen,
                 unsigned int* outLen) const override;

protected:
    UcsHexConv() = default;
    ~UcsHexConv() override = default;

    /// The value of each hexadecimal digit, -1 for every other byte; filled by the first Init.
    static signed char s_HexDigitTable[256];
    static UcsHexConv* s_Instance;
    static int s_InitCount;
};

}  // namespace System::Text
