#pragma once

#include "corvalen/text/Utf8Converter.h"

namespace System::Text {

/// UTF-8 to and from ISO 8859-1 with the characters of Windows code page 1252 in 0x80 to 0x9F.
///
/// ToUtf8 drops NUL and the five bytes that the code page leaves undefined, without an error: all input is
/// valid. The missing character is a byte of the external form.
class CORVALEN_API Latin1Conv : public Utf8Converter {
public:
    /// Counts up; the first call makes the object.
    static void Init();
    /// Counts down; the call that reaches 0 ends the object.
    static void Terminate();
    /// The one object; null before the first Init, which is reported, and after the last Terminate.
    [[nodiscard]] static Latin1Conv* Instance();

    [[nodiscard]] bool IsValid(void const* src, unsigned int srcLen) const override;
    [[nodiscard]] unsigned int FromUtf8BufferSize(char const* src, unsigned int srcLen) const override;
    [[nodiscard]] unsigned int ToUtf8BufferSize(void const* src, unsigned int srcLen) const override;
    int ToUtf8(void const* src, unsigned int srcLen, char* dst, unsigned int dstLen,
               unsigned int* outLen) const override;
    int FromUtf8(char const* src, unsigned int srcLen, void* dst, unsigned int dstLen,
                 unsigned int* outLen) const override;

protected:
    Latin1Conv() = default;
    ~Latin1Conv() override = default;

    /// The characters of 0x80 to 0x9F; 0 for a byte without one.
    static unsigned short const s_Latin1HiTable[32];
    static Latin1Conv* s_Instance;
    static int s_InitCount;
};

}  // namespace System::Text
