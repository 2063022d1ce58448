#include "corvalen/text/GsmConv.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <span>

#include "text/Frame.h"
#include "text/Singleton.h"

namespace System::Text {

namespace {

constexpr char kSource[] = "GsmConv";
constexpr std::uint8_t kEscape = 0x1B;
constexpr signed char kNoCode = -1;

// A code as the reverse tables and the missing character have it: negative for one behind the escape.
std::size_t WriteCode(signed char code, std::uint8_t* bytes) {
    if (code >= 0) {
        bytes[0] = static_cast<std::uint8_t>(code);
        return 1;
    }
    bytes[0] = kEscape;
    bytes[1] = static_cast<std::uint8_t>(-code);
    return 2;
}

// The external form of a code in one number: its bytes, the first one lowest, and above them how many.
std::uint32_t PackCode(signed char code) {
    std::uint8_t bytes[2]{};
    auto const count = static_cast<std::uint32_t>(WriteCode(code, bytes));
    return count << 16 | LoadUnit(bytes);
}

// What the fast loops look up, made of the reverse tables.
struct QuickTables {
    static constexpr unsigned kPage = 256;
    static constexpr unsigned kGreekFirst = 0x380;
    static constexpr unsigned kPages = 4;  // of no character, Latin-1, Greek, the euro sign

    std::uint16_t pageAt[kPage];           // of the high byte of a character
    std::uint32_t packed[kPages * kPage];  // of each character in the pages; 0 for one without a code
    std::uint16_t extension[128];          // the character of a code behind the escape
    signed char greek[128];                // the codes from kGreekFirst on

    void Enter(signed char code, std::uint16_t value) {
        std::uint16_t& page = pageAt[value / kPage];
        if (page == 0) {
            page = static_cast<std::uint16_t>(kPage + *std::ranges::max_element(pageAt));
        }
        packed[page + value % kPage] = PackCode(code);
        if (code < 0) {
            extension[-code] = value;
        }
        if (value >= kGreekFirst && value < kGreekFirst + std::size(greek)) {
            greek[value - kGreekFirst] = code;
        }
    }
    [[nodiscard]] std::uint32_t Of(std::uint16_t value) const {
        return packed[pageAt[value / kPage] + value % kPage];
    }
};
QuickTables s_Quick;

}  // namespace

struct GsmConv::Form {
    static constexpr std::size_t kMaxBytes = 2;
    signed char missing;

    static signed char CodeOf(std::uint16_t value) {
        if (value < std::size(s_GsmLoReverseTable)) {
            return s_GsmLoReverseTable[value];
        }
        std::span<GsmHiCharRec const> const rows(s_GsmHiReverseTable,
                                                 static_cast<std::size_t>(s_GsmHiReverseCount));
        auto const row = std::ranges::find(rows, value, &GsmHiCharRec::unicode);
        return row != rows.end() ? row->gsmCode : kNoCode;
    }

    std::size_t Encode(std::uint16_t value, std::uint8_t* bytes) const {
        signed char const code = CodeOf(value);
        if (code != kNoCode) {
            return WriteCode(code, bytes);
        }
        return missing == 0 || missing == kNoCode ? 0 : WriteCode(missing, bytes);
    }

    Decoded Decode(std::uint8_t const* in, std::uint8_t const* end) const {
        if (*in >= std::size(s_GsmCharTable)) {
            return {Decoded::kMalformed, 1, 0};
        }
        if (std::uint16_t const value = s_GsmCharTable[*in]; value != 0) {
            return {Decoded::kCharacter, 1, value};
        }
        if (in + 1 != end) {
            for (GsmHiCharRec const& rec : s_GsmExtTable) {
                if (rec.gsmCode == static_cast<signed char>(in[1])) {
                    return {Decoded::kCharacter, 2, rec.unicode};
                }
            }
        }
        return {Decoded::kNothing, 1, 0};
    }

    void RunFromUtf8(Runs const& runs, Cursor& c) const {
        runs.copyGsmPlain(c);
        RunThroughUnitsFromUtf8<kMaxBytes>(runs, c, [&](Cursor& units) { EncodeAll(runs, units); });
    }

    void RunToUtf8(Runs const& runs, Cursor& c) const {
        runs.copyGsmPlain(c);
        RunThroughUnitsToUtf8(runs, c, [this](Cursor& codes) { DecodeAll(codes); });
    }

    void EncodeAll(Runs const& runs, Cursor& c) const {
        if (runs.unitsToGsm == nullptr) {
            EncodeByTable(c);
            return;
        }
        while (c.in != c.inEnd) {
            runs.unitsToGsm(c, {s_GsmLoReverseTable, s_Quick.greek});
            // A character without a code, which seldom comes alone.
            constexpr std::size_t kFewBytes = 32;
            Cursor few{c.in, c.in + std::min(c.Left(), kFewBytes), c.out, c.outEnd};
            EncodeByTable(few);
            c.in = few.in;
            c.out = few.out;
        }
    }

    // Both bytes are written and as many as there are counted, without a branch, to a block of its own, since
    // nothing may be written behind the last.
    void EncodeByTable(Cursor& c) const {
        std::uint32_t const substitute = missing == 0 || missing == kNoCode ? 0 : PackCode(missing);
        std::uint8_t block[kMaxBytes * kChunkUnits];
        std::uint8_t* out = block;
        for (auto const* in = c.in; in != c.inEnd; in += 2) {
            std::uint32_t const known = s_Quick.Of(LoadUnit(in));
            std::uint32_t const packed = known != 0 ? known : substitute;
            StoreUnit(out, static_cast<std::uint16_t>(packed));
            out += packed >> 16;
        }
        auto const count = static_cast<std::size_t>(out - block);
        std::memcpy(c.out, block, count);
        c.in = c.inEnd;
        c.out += count;
    }

    void DecodeAll(Cursor& c) const {
        auto const* in = c.in;
        auto* out = c.out;
        for (; in != c.inEnd && out != c.outEnd && *in < std::size(s_GsmCharTable); ++in) {
            std::uint16_t value = s_GsmCharTable[*in];
            if (value == 0 && in + 1 != c.inEnd && in[1] < std::size(s_Quick.extension)) {
                value = s_Quick.extension[in[1]];
                in += value != 0 ? 1 : 0;
            }
            if (value != 0) {
                StoreUnit(out, value);
                out += 2;
            }
        }
        c.in = in;
        c.out = out;
    }
};

// 3GPP TS 23.038, section 6.2.1, row by row of sixteen codes.
unsigned short const GsmConv::s_GsmCharTable[128] = {
    0x0040, 0x00A3, 0x0024, 0x00A5, 0x00E8, 0x00E9, 0x00F9, 0x00EC, 0x00F2, 0x00E7, 0x000A, 0x00D8, 0x00F8,
    0x000D, 0x00C5, 0x00E5, 0x0394, 0x005F, 0x03A6, 0x0393, 0x039B, 0x03A9, 0x03A0, 0x03A8, 0x03A3, 0x0398,
    0x039E, 0x0000, 0x00C6, 0x00E6, 0x00DF, 0x00C9, 0x0020, 0x0021, 0x0022, 0x0023, 0x00A4, 0x0025, 0x0026,
    0x0027, 0x0028, 0x0029, 0x002A, 0x002B, 0x002C, 0x002D, 0x002E, 0x002F, 0x0030, 0x0031, 0x0032, 0x0033,
    0x0034, 0x0035, 0x0036, 0x0037, 0x0038, 0x0039, 0x003A, 0x003B, 0x003C, 0x003D, 0x003E, 0x003F, 0x00A1,
    0x0041, 0x0042, 0x0043, 0x0044, 0x0045, 0x0046, 0x0047, 0x0048, 0x0049, 0x004A, 0x004B, 0x004C, 0x004D,
    0x004E, 0x004F, 0x0050, 0x0051, 0x0052, 0x0053, 0x0054, 0x0055, 0x0056, 0x0057, 0x0058, 0x0059, 0x005A,
    0x00C4, 0x00D6, 0x00D1, 0x00DC, 0x00A7, 0x00BF, 0x0061, 0x0062, 0x0063, 0x0064, 0x0065, 0x0066, 0x0067,
    0x0068, 0x0069, 0x006A, 0x006B, 0x006C, 0x006D, 0x006E, 0x006F, 0x0070, 0x0071, 0x0072, 0x0073, 0x0074,
    0x0075, 0x0076, 0x0077, 0x0078, 0x0079, 0x007A, 0x00E4, 0x00F6, 0x00F1, 0x00FC, 0x00E0,
};

// Section 6.2.1.1.
GsmHiCharRec const GsmConv::s_GsmExtTable[10] = {
    {0x0A, 0x000C}, {0x14, 0x005E}, {0x28, 0x007B}, {0x29, 0x007D}, {0x2F, 0x005C},
    {0x3C, 0x005B}, {0x3D, 0x007E}, {0x3E, 0x005D}, {0x40, 0x007C}, {0x65, 0x20AC},
};

signed char GsmConv::s_GsmLoReverseTable[256];
GsmHiCharRec GsmConv::s_GsmHiReverseTable[64];
int GsmConv::s_GsmHiReverseCount = 0;
GsmConv* GsmConv::s_Instance = nullptr;
int GsmConv::s_InitCount = 0;

void GsmConv::Init() {
    StartSingleton(s_Instance, s_InitCount, [] {
        BuildReverseTables();
        return new (std::nothrow) GsmConv;
    });
}

void GsmConv::Terminate() {
    StopSingleton(s_Instance, s_InitCount, kSource, [](Utf8Converter* converter) { delete converter; });
}

GsmConv* GsmConv::Instance() {
    return GetSingleton(s_Instance, s_InitCount, kSource);
}

void GsmConv::BuildReverseTables() {
    if (s_GsmHiReverseCount != 0) {
        return;
    }
    std::ranges::fill(s_GsmLoReverseTable, kNoCode);
    std::ranges::fill(s_Quick.greek, kNoCode);
    for (unsigned code = 0; code < std::size(s_GsmCharTable); ++code) {
        EnterReverse(static_cast<signed char>(code), s_GsmCharTable[code]);
    }
    for (GsmHiCharRec const& rec : s_GsmExtTable) {
        EnterReverse(static_cast<signed char>(-rec.gsmCode), rec.unicode);
    }
}

void GsmConv::EnterReverse(signed char code, unsigned short unicode) {
    s_Quick.Enter(code, unicode);
    if (unicode < std::size(s_GsmLoReverseTable)) {
        s_GsmLoReverseTable[unicode] = code;
        return;
    }
    if (Diagnostics::Verify(static_cast<unsigned>(s_GsmHiReverseCount) < std::size(s_GsmHiReverseTable),
                            Diagnostics::Gravity::kSerious,
                            "s_GsmHiReverseCount < sizeof(s_GsmHiReverseTable) / sizeof(GsmHiCharRec)",
                            kSource)) {
        s_GsmHiReverseTable[s_GsmHiReverseCount++] = {code, unicode};
    }
}

bool GsmConv::IsValid(void const* src, unsigned int srcLen) const {
    auto const* const begin = static_cast<std::uint8_t const*>(src);
    return std::all_of(begin, begin + srcLen, [](std::uint8_t byte) { return byte < 0x80; });
}

unsigned int GsmConv::FromUtf8BufferSize(char const* /*src*/, unsigned int srcLen) const {
    return 2 * srcLen;
}

unsigned int GsmConv::ToUtf8BufferSize(void const* /*src*/, unsigned int srcLen) const {
    return 3 * srcLen;
}

int GsmConv::ToUtf8(void const* src, unsigned int srcLen, char* dst, unsigned int dstLen,
                    unsigned int* outLen) const {
    return FrameToUtf8(Form{m_MissingChar}, src, srcLen, dst, dstLen, outLen);
}

int GsmConv::FromUtf8(char const* src, unsigned int srcLen, void* dst, unsigned int dstLen,
                      unsigned int* outLen) const {
    return FrameFromUtf8(Form{m_MissingChar}, src, srcLen, dst, dstLen, outLen);
}

}  // namespace System::Text
