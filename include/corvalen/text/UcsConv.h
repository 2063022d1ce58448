#pragma once

#include "corvalen/text/Utf8Converter.h"

namespace System::Text {

/// UTF-8 to and from raw UCS-2: two bytes for each 16-bit unit, low byte first. Every unit has a form on
/// either side, so the missing character is not used.
///
/// An odd length is malformed; ToUtf8 then converts the whole units and never reads the last byte.
class CORVALEN_API UcsConv : public Utf8Converter {
public:
    /// Counts up; the first call makes the object.
    static void Init();
    /// Counts down; the call that reaches 0 ends the object.
    static void Terminate();
    /// The one object; null before the first Init, which is reported, and after the last Terminate.
    [[nodiscard]] static UcsConv* Instance();

    [[nodiscard]] bool IsValid(void const* src, unsigned int srcLen) const override;
    [[nodiscard]] unsigned int FromUtf8BufferSize(char const* src, unsigned int srcLen) const override;
    [[nodiscard]] unsigned int ToUtf8BufferSize(void const* src, unsigned int srcLen) const override;
    int ToUtf8(void const* src, unsigned int srcLen, char* dst, unsigned int dstLen,
               unsigned int* outLen) const override;
    int FromUtf8(char const* src, unsigned int srcLen, void* dst, unsigned int dstLen,
                 unsigned int* outLen) const override;

protected:
    UcsConv() = default;
    ~UcsConv() override = default;

    static UcsConv* s_Instance;
    static int s_InitCount;
};

}  // namespace System::Text
