#include "corvalen/text/UcsHexConv.h"

#include <algorithm>
#include <new>

#include "text/Frame.h"
#include "text/Singleton.h"

namespace System::Text {

namespace {

constexpr char kSource[] = "UcsHexConv";
constexpr char kDigits[] = "0123456789ABCDEF";

struct UcsHexForm {
    static constexpr std::size_t kMaxBytes = 4;
    signed char const* digitValues;

    std::size_t Encode(std::uint16_t value, std::uint8_t* bytes) const {
        for (unsigned i = 0; i < kMaxBytes; ++i) {
            bytes[i] = static_cast<std::uint8_t>(kDigits[value >> (12 - 4 * i) & 15]);
        }
        return kMaxBytes;
    }

    Decoded Decode(std::uint8_t const* in, std::uint8_t const* /*end*/) const {
        unsigned value = 0;
        for (unsigned i = 0; i < kMaxBytes; ++i) {
            value = value * 16 + static_cast<unsigned>(digitValues[in[i]]);
        }
        return {Decoded::kCharacter, kMaxBytes, static_cast<std::uint16_t>(value)};
    }

    void RunFromUtf8(Runs const& runs, Cursor& c) const {
        RunThroughUnitsFromUtf8<kMaxBytes>(runs, c, runs.unitsToHex);
    }
    void RunToUtf8(Runs const& runs, Cursor& c) const { RunThroughUnitsToUtf8(runs, c, runs.hexToUnits); }
};

// The ASCII characters before the first NUL, as many as fit; other bytes are dropped.
unsigned CopyPlainText(Cursor c) {
    auto* const begin = c.out;
    for (; c.in != c.inEnd && *c.in != 0 && c.out != c.outEnd; ++c.in) {
        if (*c.in < 0x80) {
            *c.out++ = *c.in;
        }
    }
    return static_cast<unsigned>(c.out - begin);
}

void FillDigitTable(signed char (&table)[256]) {
    std::fill(std::begin(table), std::end(table), static_cast<signed char>(-1));
    for (signed char value = 0; value < 16; ++value) {
        auto const digit = static_cast<unsigned char>(kDigits[value]);
        table[digit] = value;
        if (value > 9) {
            table[digit - 'A' + 'a'] = value;
        }
    }
}

}  // namespace

signed char UcsHexConv::s_HexDigitTable[256];
UcsHexConv* UcsHexConv::s_Instance = nullptr;
int UcsHexConv::s_InitCount = 0;

void UcsHexConv::Init() {
    StartSingleton(s_Instance, s_InitCount, [] {
        FillDigitTable(s_HexDigitTable);
        return new (std::nothrow) UcsHexConv;
    });
}

void UcsHexConv::Terminate() {
    StopSingleton(s_Instance, s_InitCount, kSource, [](Utf8Converter* converter) { delete converter; });
}

UcsHexConv* UcsHexConv::Instance() {
    return GetSingleton(s_Instance, s_InitCount, kSource);
}

bool UcsHexConv::IsValid(void const* src, unsigned int srcLen) const {
    if (srcLen % UcsHexForm::kMaxBytes != 0) {
        return false;
    }
    auto const* const begin = static_cast<std::uint8_t const*>(src);
    auto const* const end = begin + srcLen;
    if (Runs const* const runs = CurrentRuns()) {
        return runs->isHex(begin, end);
    }
    return std::all_of(begin, end, [](std::uint8_t byte) { return s_HexDigitTable[byte] >= 0; });
}

unsigned int UcsHexConv::FromUtf8BufferSize(char const* /*src*/, unsigned int srcLen) const {
    return 4 * srcLen;
}

unsigned int UcsHexConv::ToUtf8BufferSize(void const* /*src*/, unsigned int srcLen) const {
    return (srcLen >> 2) * 3;
}

int UcsHexConv::ToUtf8(void const* src, unsigned int srcLen, char* dst, unsigned int dstLen,
                       unsigned int* outLen) const {
    if (!IsValid(src, srcLen)) {
        *outLen = CopyPlainText(MakeCursor(src, srcLen, dst, dstLen));
        return EINVAL;
    }
    return FrameToUtf8(UcsHexForm{s_HexDigitTable}, src, srcLen, dst, dstLen, outLen);
}

int UcsHexConv::FromUtf8(char const* src, unsigned int srcLen, void* dst, unsigned int dstLen,
                         unsigned int* outLen) const {
    return FrameFromUtf8(UcsHexForm{s_HexDigitTable}, src, srcLen, dst, dstLen, outLen);
}

}  // namespace System::Text
