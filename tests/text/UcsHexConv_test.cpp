#include "corvalen/text/UcsHexConv.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/text/Converters.h"

namespace {

using namespace System::Text;
using namespace System::Text::Testing;

struct Case {
    char const* name;
    std::string in;
    unsigned room;
    int result;
    std::string out;
};

std::string NameOf(testing::TestParamInfo<Case> const& info) {
    return info.param.name;
}

Case const kToUtf8[] = {
    {"Letter", "0041", kPlenty, 0, "A"},
    {"BothCases", "20ac20AC", kPlenty, 0, "\xE2\x82\xAC\xE2\x82\xAC"},
    {"Nul", "0000", kPlenty, 0, std::string(1, '\0')},
    {"Empty", "", kPlenty, 0, ""},
    {"DoesNotFit", "004100E9", 2, E2BIG, "A"},
    {"PlainText", "Hello", kPlenty, EINVAL, "Hello"},
    {"PlainTextCut", "Hello", 3, EINVAL, "Hel"},
    {"PlainTextNoRoom", "Hello", 0, EINVAL, ""},
    {"WrongLength", "004", kPlenty, EINVAL, "004"},
    {"NotADigit", "00G1", kPlenty, EINVAL, "00G1"},
    {"PlainTextDropsHighBytes", "caf\xE9!", kPlenty, EINVAL, "caf!"},
    {"PlainTextEndsAtNul", std::string("ab\0cd", 5), kPlenty, EINVAL, "ab"},
    {"PlainTextBeginsWithNul", std::string("\0abc!", 5), kPlenty, EINVAL, ""},
};

class UcsHexConvToUtf8 : public testing::TestWithParam<Case> {};

TEST_P(UcsHexConvToUtf8, ReadsDigitsOrPlainText) {
    Started<UcsHexConv> const hex;
    Converted const expected{GetParam().result, GetParam().out};
    EXPECT_EQ(ToUtf8(*hex, GetParam().in, GetParam().room), expected);
}

INSTANTIATE_TEST_SUITE_P(Table, UcsHexConvToUtf8, testing::ValuesIn(kToUtf8), NameOf);

Case const kFromUtf8[] = {
    {"Letter", "A", kPlenty, 0, "0041"},
    {"Euro", "\xE2\x82\xAC", kPlenty, 0, "20AC"},
    {"Nul", std::string(1, '\0'), kPlenty, 0, "0000"},
    {"SecondDoesNotFit", "AB", 4, E2BIG, "0041"},
    {"NearlyFits", "AB", 7, E2BIG, "0041"},
    {"BadThenFull",
     "\xFF"
     "AB",
     4, EINVAL, "0041"},
};

class UcsHexConvFromUtf8 : public testing::TestWithParam<Case> {};

TEST_P(UcsHexConvFromUtf8, WritesFourDigits) {
    Started<UcsHexConv> const hex;
    Converted const expected{GetParam().result, GetParam().out};
    EXPECT_EQ(FromUtf8(*hex, GetParam().in, GetParam().room), expected);
}

INSTANTIATE_TEST_SUITE_P(Table, UcsHexConvFromUtf8, testing::ValuesIn(kFromUtf8), NameOf);

TEST(UcsHexConv, WritesEveryUnitAsItsNumber) {
    Started<UcsHexConv> const hex;
    for (unsigned value = 0; value < 0x10000; ++value) {
        char digits[5];
        std::snprintf(digits, sizeof digits, "%04X", value);
        ASSERT_EQ(FromUtf8(*hex, Utf8(value), 4), (Converted{0, digits}));
        ASSERT_EQ(ToUtf8(*hex, digits, 3), (Converted{0, Utf8(value)}));
    }
}

TEST(UcsHexConv, IsValidForGroupsOfFourDigits) {
    Started<UcsHexConv> const hex;
    std::string const digits = "0123456789abcdefABCDEF0123456789012345678901";
    EXPECT_TRUE(hex->IsValid(digits.data(), static_cast<unsigned>(digits.size())));
    for (std::size_t at = 0; at < digits.size(); ++at) {
        for (char const bad : {'/', ':', '@', 'G', '`', 'g', '\0', '\xB0', '\xE1'}) {
            std::string spoiled = digits;
            spoiled[at] = bad;
            EXPECT_FALSE(hex->IsValid(spoiled.data(), static_cast<unsigned>(spoiled.size()))) << at << bad;
        }
    }
    EXPECT_FALSE(hex->IsValid("004", 3));
    EXPECT_TRUE(hex->IsValid("", 0));
    EXPECT_EQ(hex->FromUtf8BufferSize(nullptr, 5), 20U);
    EXPECT_EQ(hex->ToUtf8BufferSize(nullptr, 7), 3U);
}

}  // namespace
