#include "corvalen/text/Latin1Conv.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/text/Converters.h"

namespace {

using namespace System::Text;
using namespace System::Text::Testing;

// Code page 1252 from 0x80 to 0x9F; 0 where it is undefined.
constexpr unsigned kCodePage1252[32] = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                        0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                        0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                        0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

unsigned CharacterOf(unsigned byte) {
    return byte >= 0x80 && byte < 0xA0 ? kCodePage1252[byte - 0x80] : byte;
}

TEST(Latin1Conv, HasAllBytes) {
    Started<Latin1Conv> const latin;
    for (unsigned byte = 0; byte < 0x100; ++byte) {
        std::string const external(1, static_cast<char>(byte));
        unsigned const character = CharacterOf(byte);
        EXPECT_EQ(ToUtf8(*latin, external), (Converted{0, character != 0 ? Utf8(character) : ""})) << byte;
        if (character != 0 || byte == 0) {
            EXPECT_EQ(FromUtf8(*latin, Utf8(character)), (Converted{0, external})) << byte;
        }
    }
}

TEST(Latin1Conv, HoldsNoOtherCharacter) {
    Started<Latin1Conv> const latin;
    unsigned held = 0;
    for (unsigned value = 0; value < 0x10000; ++value) {
        Converted const out = FromUtf8(*latin, Utf8(value), 1);
        ASSERT_EQ(out.result, 0);
        held += out.text.empty() ? 0 : 1;
    }
    EXPECT_EQ(held, 256U - 5U);
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

class Latin1ConvFromUtf8 : public testing::TestWithParam<Case> {};

TEST_P(Latin1ConvFromUtf8, GivesBytes) {
    Started<Latin1Conv> const latin;
    latin->SetMissingChar(GetParam().missing);
    Converted const expected{GetParam().result, Bytes(GetParam().out)};
    EXPECT_EQ(FromUtf8(*latin, Bytes(GetParam().in), GetParam().room), expected);
}

constexpr Case kFromUtf8[] = {
    {"MissingDropped", 0, "C2 81 C4 80 E4 B8 AD", kPlenty, 0, ""},
    {"MissingReplaced", '\x3F', "C2 81 C4 80 E4 B8 AD", kPlenty, 0, "3F 3F 3F"},
    {"MissingIsACharacter", '\xFF', "C4 80", kPlenty, 0, "FF"},
    {"MissingDoesNotFit", '\x3F', "41 C4 80", 1, E2BIG, "41"},
    {"DroppedNeedsNoRoom", 0, "C4 80", 0, 0, ""},
    {"MalformedIsNotMissing", '\x3F', "FF 41", kPlenty, EINVAL, "41"},
    {"BadThenFull", 0, "FF 41 42", 1, EINVAL, "41"},
};
INSTANTIATE_TEST_SUITE_P(Table, Latin1ConvFromUtf8, testing::ValuesIn(kFromUtf8), NameOf);

TEST(Latin1Conv, DropsNulAndCutsAtWholeCharacters) {
    Started<Latin1Conv> const latin;
    EXPECT_EQ(ToUtf8(*latin, Bytes("41 00 42")), (Converted{0, "AB"}));
    EXPECT_EQ(ToUtf8(*latin, Bytes("80"), 2), (Converted{E2BIG, ""}));
    EXPECT_TRUE(latin->IsValid("\x81", 1));
    EXPECT_EQ(latin->FromUtf8BufferSize(nullptr, 7), 7U);
    EXPECT_EQ(latin->ToUtf8BufferSize(nullptr, 7), 21U);
}

}  // namespace
