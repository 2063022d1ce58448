#include "corvalen/text/Latin1Conv.h"

#include <algorithm>
#include <iterator>
#include <new>

#include "text/Frame.h"
#include "text/Singleton.h"

namespace System::Text {

namespace {

constexpr char kSource[] = "Latin1Conv";
constexpr std::uint16_t kHiFirst = 0x80;
constexpr std::uint16_t kHiEnd = 0xA0;

struct Latin1Form {
    static constexpr std::size_t kMaxBytes = 1;
    unsigned short const (&hiTable)[32];
    std::uint8_t missing;

    // The byte of a character; 0 for none, since U+0000 does not come here.
    [[nodiscard]] std::uint8_t SpecialByteOf(std::uint16_t value) const {
        if (value < 0x100) {
            return missing;
        }
        auto const* const row = std::find(std::begin(hiTable), std::end(hiTable), value);
        return row != std::end(hiTable) ? static_cast<std::uint8_t>(kHiFirst + (row - hiTable)) : missing;
    }

    std::size_t Encode(std::uint16_t value, std::uint8_t* bytes) const {
        bool const isItself = value < kHiFirst || (value >= kHiEnd && value < 0x100);
        std::uint8_t const byte = isItself ? static_cast<std::uint8_t>(value) : SpecialByteOf(value);
        if (byte == 0 && !isItself) {
            return 0;
        }
        bytes[0] = byte;
        return 1;
    }

    Decoded Decode(std::uint8_t const* in, std::uint8_t const* /*end*/) const {
        std::uint16_t const value = *in >= kHiFirst && *in < kHiEnd ? hiTable[*in - kHiFirst] : *in;
        return {value != 0 ? Decoded::kCharacter : Decoded::kNothing, 1, value};
    }

    void RunFromUtf8(Runs const& runs, Cursor& c) const {
        runs.utf8ToLatin1(c);
        RunThroughUnitsFromUtf8<kMaxBytes>(runs, c, [&](Cursor& units) { EncodeAll(runs, units); });
    }

    void RunToUtf8(Runs const& runs, Cursor& c) const {
        runs.latin1ToUtf8(c);
        RunThroughUnitsToUtf8(runs, c, [&](Cursor& bytes) { DecodeAll(runs, bytes); });
    }

    void EncodeAll(Runs const& runs, Cursor& c) const {
        for (;;) {
            runs.unitsToLatin1(c);
            if (c.in == c.inEnd) {
                return;
            }
            c.out += Encode(LoadUnit(c.in), c.out);
            c.in += 2;
        }
    }

    void DecodeAll(Runs const& runs, Cursor& c) const {
        for (;;) {
            runs.latin1ToUnits(c);
            if (c.in == c.inEnd || c.out == c.outEnd) {
                return;
            }
            Decoded const decoded = Decode(c.in++, c.inEnd);
            if (decoded.kind == Decoded::kCharacter) {
                StoreUnit(c.out, decoded.value);
                c.out += 2;
            }
        }
    }
};

}  // namespace

unsigned short const Latin1Conv::s_Latin1HiTable[32] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178,
};
Latin1Conv* Latin1Conv::s_Instance = nullptr;
int Latin1Conv::s_InitCount = 0;

void Latin1Conv::Init() {
    StartSingleton(s_Instance, s_InitCount, [] { return new (std::nothrow) Latin1Conv; });
}

void Latin1Conv::Terminate() {
    StopSingleton(s_Instance, s_InitCount, kSource, [](Utf8Converter* converter) { delete converter; });
}

Latin1Conv* Latin1Conv::Instance() {
    return GetSingleton(s_Instance, s_InitCount, kSource);
}

bool Latin1Conv::IsValid(void const* /*src*/, unsigned int /*srcLen*/) const {
    return true;
}

unsigned int Latin1Conv::FromUtf8BufferSize(char const* /*src*/, unsigned int srcLen) const {
    return srcLen;
}

unsigned int Latin1Conv::ToUtf8BufferSize(void const* /*src*/, unsigned int srcLen) const {
    return 3 * srcLen;
}

int Latin1Conv::ToUtf8(void const* src, unsigned int srcLen, char* dst, unsigned int dstLen,
                       unsigned int* outLen) const {
    return FrameToUtf8(Latin1Form{s_Latin1HiTable, static_cast<std::uint8_t>(m_MissingChar)}, src, srcLen,
                       dst, dstLen, outLen);
}

int Latin1Conv::FromUtf8(char const* src, unsigned int srcLen, void* dst, unsigned int dstLen,
                         unsigned int* outLen) const {
    return FrameFromUtf8(Latin1Form{s_Latin1HiTable, static_cast<std::uint8_t>(m_MissingChar)}, src, srcLen,
                         dst, dstLen, outLen);
}

}  // namespace System::Text
