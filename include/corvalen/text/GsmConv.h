#pragma once

#include "corvalen/text/Utf8Converter.h"

namespace System::Text {

/// A character and its GSM code.
struct GsmHiCharRec {
    signed char gsmCode;
    unsigned short unicode;
};

/// UTF-8 to and from the default alphabet of GSM 03.38 (3GPP TS 23.038) with its extension table: one byte
/// for each seven-bit code, not packed, and the escape 0x1B before the code of an extension character.
///
/// Code 0x09 is the small c with cedilla. ToUtf8 drops an escape that no extension code follows, without an
/// error; a byte with bit 7 set is malformed. FromUtf8 turns U+0000 into a bare escape, so that the character
/// behind it may come back as another one: take it out of texts that you do not trust. The missing character
/// is a GSM code, 0 to 0x7F, or the negated code of an extension character (-0x65 is the euro sign); 0 and -1
/// mean none.
class CORVALEN_API GsmConv : public Utf8Converter {
public:
    /// Counts up; the first call makes the object.
    static void Init();
    /// Counts down; the call that reaches 0 ends the object.
    static void Terminate();
    /// The one object; null before the first Init, which is reported, and after the last Terminate.
    [[nodiscard]] static GsmConv* Instance();

    [[nodiscard]] bool IsValid(void const* src, unsigned int srcLen) const override;
    [[nodiscard]] unsigned int FromUtf8BufferSize(char const* src, unsigned int srcLen) const override;
    [[nodiscard]] unsigned int ToUtf8BufferSize(void const* src, unsigned int srcLen) const override;
    int ToUtf8(void const* src, unsigned int srcLen, char* dst, unsigned int dstLen,
               unsigned int* outLen) const override;
    int FromUtf8(char const* src, unsigned int srcLen, void* dst, unsigned int dstLen,
                 unsigned int* outLen) const override;

protected:
    GsmConv() = default;
    ~GsmConv() override = default;

    /// The character of each GSM code; 0 for the escape.
    static unsigned short const s_GsmCharTable[128];
    /// The codes behind the escape.
    static GsmHiCharRec const s_GsmExtTable[10];
    /// The GSM code of each character below U+0100: the code itself, the negated code of an extension
    /// character, or -1 for none. This table and the next are filled by the first Init of the process.
    static signed char s_GsmLoReverseTable[256];
    /// The same for the characters from U+0100 on; the first s_GsmHiReverseCount rows are in use.
    static GsmHiCharRec s_GsmHiReverseTable[64];
    static int s_GsmHiReverseCount;
    static GsmConv* s_Instance;
    static int s_InitCount;

private:
    struct Form;
    static void BuildReverseTables();
    static void EnterReverse(signed char code, unsigned short unicode);
};

}  // namespace System::Text
