#include "corvalen/text/GsmConv.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/text/Converters.h"

namespace {

using namespace System::Text;
using namespace System::Text::Testing;

// 3GPP TS 23.038, 6.2.1, in the order of the codes; the escape stands as U+FFFF.
constexpr char16_t kAlphabet[] =
    u"@£$¥èéùìòç\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞ\uFFFFÆæßÉ !\"#¤%&'()*+,-./0123456789:;<=>?"
    u"¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§¿abcdefghijklmnopqrstuvwxyzäöñüà";
static_assert(std::size(kAlphabet) == 128 + 1);

struct Extension {
    char code;
    char16_t character;
};
// 6.2.1.1
constexpr Extension kExtensions[] = {{0x0A, 0x0C}, {0x14, u'^'}, {0x28, u'{'}, {0x29, u'}'}, {0x2F, u'\\'},
                                     {0x3C, u'['}, {0x3D, u'~'}, {0x3E, u']'}, {0x40, u'|'}, {0x65, u'€'}};

TEST(GsmConv, HasTheWholeDefaultAlphabet) {
    Started<GsmConv> const gsm;
    for (unsigned code = 0; code < 128; ++code) {
        if (code == 0x1B) {
            continue;
        }
        std::string const external(1, static_cast<char>(code));
        EXPECT_EQ(ToUtf8(*gsm, external), (Converted{0, Utf8(kAlphabet[code])})) << code;
        EXPECT_EQ(FromUtf8(*gsm, Utf8(kAlphabet[code])), (Converted{0, external})) << code;
    }
}

TEST(GsmConv, HasTheWholeExtensionTableAndNoMore) {
    Started<GsmConv> const gsm;
    std::string known;
    for (Extension const& row : kExtensions) {
        std::string const external{'\x1B', row.code};
        EXPECT_EQ(ToUtf8(*gsm, external), (Converted{0, Utf8(row.character)}));
        EXPECT_EQ(FromUtf8(*gsm, Utf8(row.character)), (Converted{0, external}));
        known += row.code;
    }
    for (char code = 0; code < 127; ++code) {
        if (code != 0x1B && known.find(code) == std::string::npos) {
            EXPECT_EQ(ToUtf8(*gsm, std::string{'\x1B', code}), ToUtf8(*gsm, std::string(1, code)))
                << int{code};
        }
    }
}

TEST(GsmConv, HoldsNoOtherCharacter) {
    Started<GsmConv> const gsm;
    unsigned held = 0;
    for (unsigned value = 0; value < 0x10000; ++value) {
        Converted const out = FromUtf8(*gsm, Utf8(value), 2);
        ASSERT_EQ(out.result, 0);
        held += out.text.empty() ? 0 : 1;
    }
    // The alphabet without the escape, the extensions, and U+0000, which comes out as the bare escape.
    EXPECT_EQ(held, 127U + 10U + 1U);
}

struct Case {
    char const* name;
    char missing;
    char const* in;
    unsigned room;
    int result;
    char const* out;
};

std::string NameOf(testing::TestParamInfo<Case> const& info) {
    return info.param.name;
}

class GsmConvToUtf8 : public testing::TestWithParam<Case> {};

TEST_P(GsmConvToUtf8, GivesUtf8) {
    Started<GsmConv> const gsm;
    Converted const expected{GetParam().result, Bytes(GetParam().out)};
    EXPECT_EQ(ToUtf8(*gsm, Bytes(GetParam().in), GetParam().room), expected);
}

constexpr Case kToUtf8[] = {
    {"NulIsAt", 0, "00", kPlenty, 0, "40"},
    {"DanglingEscape", 0, "41 1B", kPlenty, 0, "41"},
    {"EscapeAlone", 0, "1B", kPlenty, 0, ""},
    {"UnknownExtension", 0, "1B 41", kPlenty, 0, "41"},
    {"EscapeTwice", 0, "1B 1B 65", kPlenty, 0, "E2 82 AC"},
    {"EscapeBeforeBad", 0, "1B 80", kPlenty, EINVAL, ""},
    {"BadFirst", 0, "80 41", kPlenty, EINVAL, "41"},
    {"ExtensionCodeWithTopBit", 0, "1B E5 41", kPlenty, EINVAL, "41"},
    {"BadThenFull", 0, "80 41 42", 1, E2BIG, "41"},
    {"ExtensionDoesNotFit", 0, "41 1B 65", 3, E2BIG, "41"},
};
INSTANTIATE_TEST_SUITE_P(Table, GsmConvToUtf8, testing::ValuesIn(kToUtf8), NameOf);

class GsmConvFromUtf8 : public testing::TestWithParam<Case> {};

TEST_P(GsmConvFromUtf8, GivesCodes) {
    Started<GsmConv> const gsm;
    gsm->SetMissingChar(GetParam().missing);
    Converted const expected{GetParam().result, Bytes(GetParam().out)};
    EXPECT_EQ(FromUtf8(*gsm, Bytes(GetParam().in), GetParam().room), expected);
}

constexpr Case kFromUtf8[] = {
    {"Nul", 0, "00", kPlenty, 0, "1B"},
    {"CapitalCedilla", 0, "C3 87", kPlenty, 0, ""},
    {"Grave", 0, "60", kPlenty, 0, ""},
    {"MissingCode", '\x3F', "60 C4 80", kPlenty, 0, "3F 3F"},
    {"MissingExtension", '\x9B', "C4 80", kPlenty, 0, "1B 65"},
    {"MissingNone", '\xFF', "C4 80", kPlenty, 0, ""},
    {"PairDoesNotFit", 0, "5B", 1, E2BIG, ""},
    {"SecondPairDoesNotFit", 0, "5B 5D", 3, E2BIG, "1B 3C"},
    {"DroppedNeedsNoRoom", 0, "60", 0, 0, ""},
    {"FourBytes", '\x3F', "F0 9F 98 80", kPlenty, EINVAL, ""},
    {"BadThenFull", 0, "FF 41 42", 1, EINVAL, "41"},
};
INSTANTIATE_TEST_SUITE_P(Table, GsmConvFromUtf8, testing::ValuesIn(kFromUtf8), NameOf);

struct OpenGsmConv : GsmConv {
    static int Rows() { return s_GsmHiReverseCount; }
    static GsmHiCharRec Row(int at) { return s_GsmHiReverseTable[at]; }
    static int Lo(unsigned value) { return s_GsmLoReverseTable[value]; }
};

TEST(GsmConv, BuildsItsTablesOnce) {
    { Started<GsmConv> const once; }
    Started<GsmConv> const again;
    EXPECT_EQ(OpenGsmConv::Rows(), 11);
    EXPECT_EQ(OpenGsmConv::Row(10).gsmCode, -0x65);
    EXPECT_EQ(OpenGsmConv::Row(10).unicode, 0x20AC);
    EXPECT_EQ(OpenGsmConv::Lo('{'), -0x28);
    EXPECT_EQ(OpenGsmConv::Lo(0), 0x1B);
}

TEST(GsmConv, IsValidWithoutTopBits) {
    Started<GsmConv> const gsm;
    EXPECT_TRUE(gsm->IsValid("\x1B\x65", 2));
    EXPECT_FALSE(gsm->IsValid("\x41\x80", 2));
    EXPECT_TRUE(gsm->IsValid("", 0));
    EXPECT_EQ(gsm->FromUtf8BufferSize(nullptr, 7), 14U);
    EXPECT_EQ(gsm->ToUtf8BufferSize(nullptr, 7), 21U);
}

}  // namespace
