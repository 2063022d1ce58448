#pragma once

#include "corvalen/text/Utf8Converter.h"

namespace System::Platform {
class CodePage;
}

namespace System::Text {

/// UTF-8 to and from the code set of the user's locale, as the environment (`LC_ALL`, `LC_CTYPE`, `LANG`)
/// names it when the first Init runs; ASCII if it names none. The locale of the process is neither read nor
/// changed.
///
/// This converter differs from the others: a character that the code set can't hold becomes `?`, and bytes
/// that it does not define become U+FFFD. Malformed UTF-8 is logged, one warning for each byte, and is an
/// error only if nothing else came through. IsValid is true for any bytes. FromUtf8 gives all or nothing:
/// E2BIG if `dst` is too small, with `*outLen` 0 whatever stands in `dst` then. ToUtf8 cuts the text instead
/// and says 0, unless not even the first character fits (E2BIG); it asks for one byte more than a two- or
/// three-byte character needs. ToUtf8BufferSize does not count that byte, and StrToUtf8, ToUtf8_NF and
/// CTextUtils go by it: where each byte of a text becomes three (Thai in TIS-620, a lone euro sign), they
/// lose the last character. Call ToUtf8 with a byte more there.
class CORVALEN_API NativeConv : public Utf8Converter {
public:
    /// Counts up; the first call makes the object.
    static void Init();
    /// Counts down; the call that reaches 0 ends the object.
    static void Terminate();
    /// The one object; null before the first Init, which is reported, and after the last Terminate.
    [[nodiscard]] static NativeConv* Instance();

    [[nodiscard]] bool IsValid(void const* src, unsigned int srcLen) const override;
    [[nodiscard]] unsigned int FromUtf8BufferSize(char const* src, unsigned int srcLen) const override;
    [[nodiscard]] unsigned int ToUtf8BufferSize(void const* src, unsigned int srcLen) const override;
    int ToUtf8(void const* src, unsigned int srcLen, char* dst, unsigned int dstLen,
               unsigned int* outLen) const override;
    int FromUtf8(char const* src, unsigned int srcLen, void* dst, unsigned int dstLen,
                 unsigned int* outLen) const override;

protected:
    NativeConv();
    ~NativeConv() override;

    static NativeConv* s_Instance;
    static int s_InitCount;

private:
    Platform::CodePage* m_CodePage;
};

}  // namespace System::Text
