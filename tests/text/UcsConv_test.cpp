#include "corvalen/text/UcsConv.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/text/Converters.h"

namespace {

using namespace System::Text;
using namespace System::Text::Testing;

struct Case {
    char const* name;
    char const* in;
    unsigned room;
    int result;
    char const* out;
};

std::string NameOf(testing::TestParamInfo<Case> const& info) {
    return info.param.name;
}

constexpr Case kFromUtf8[] = {
    {"Euro", "E2 82 AC", kPlenty, 0, "AC 20"},
    {"Letter", "41", kPlenty, 0, "41 00"},
    {"Nul", "00", kPlenty, 0, "00 00"},
    {"NoRoomForOne", "E2 82 AC", 1, E2BIG, ""},
    {"OddRoom", "41 42", 3, E2BIG, "41 00"},
    {"NoRoomAtAll", "41", 0, E2BIG, ""},
    {"CutSequence", "41 E2 82", kPlenty, EINVAL, "41 00"},
    {"FourBytes", "F0 9F 98 80", kPlenty, EINVAL, ""},
    {"BadThenFull", "FF 41 42", 2, EINVAL, "41 00"},
    {"FullBeforeBad", "41 42 FF", 2, E2BIG, "41 00"},
    {"OverlongTwo", "C0 80 C1 81", kPlenty, 0, "00 00 41 00"},
    {"OverlongThree", "E0 80 80", kPlenty, 0, "00 00"},
    {"Surrogates", "ED A0 BD ED B8 80", kPlenty, 0, "3D D8 00 DE"},
    {"Highest", "EF BF BF", kPlenty, 0, "FF FF"},
};

class UcsConvFromUtf8 : public testing::TestWithParam<Case> {};

TEST_P(UcsConvFromUtf8, GivesUnits) {
    Started<UcsConv> const ucs;
    Converted const expected{GetParam().result, Bytes(GetParam().out)};
    EXPECT_EQ(FromUtf8(*ucs, Bytes(GetParam().in), GetParam().room), expected);
}

INSTANTIATE_TEST_SUITE_P(Table, UcsConvFromUtf8, testing::ValuesIn(kFromUtf8), NameOf);

constexpr Case kToUtf8[] = {
    {"Euro", "AC 20", kPlenty, 0, "E2 82 AC"},
    {"OddLength", "41 00 42", kPlenty, EINVAL, "41"},
    {"OneByte", "41", kPlenty, EINVAL, ""},
    {"Nul", "41 00 00 00 42 00", kPlenty, 0, "41 00 42"},
    {"OddIntoTooSmall", "41 00 42 00 43", 1, E2BIG, "41"},
    {"TwoDoNotFit", "E9 00", 1, E2BIG, ""},
    {"ThreeDoNotFit", "41 00 AC 20", 3, E2BIG, "41"},
    {"Surrogates", "3D D8 00 DE", kPlenty, 0, "ED A0 BD ED B8 80"},
};

class UcsConvToUtf8 : public testing::TestWithParam<Case> {};

TEST_P(UcsConvToUtf8, GivesUtf8) {
    Started<UcsConv> const ucs;
    Converted const expected{GetParam().result, Bytes(GetParam().out)};
    EXPECT_EQ(ToUtf8(*ucs, Bytes(GetParam().in), GetParam().room), expected);
}

INSTANTIATE_TEST_SUITE_P(Table, UcsConvToUtf8, testing::ValuesIn(kToUtf8), NameOf);

TEST(UcsConv, CarriesAllValuesThereAndBack) {
    Started<UcsConv> const ucs;
    for (unsigned value = 0; value < 0x10000; ++value) {
        std::string const unit{static_cast<char>(value & 0xFF), static_cast<char>(value >> 8)};
        ASSERT_EQ(FromUtf8(*ucs, Utf8(value), 2), (Converted{0, unit})) << value;
        ASSERT_EQ(ToUtf8(*ucs, unit, 3), (Converted{0, Utf8(value)})) << value;
    }
}

TEST(UcsConv, KnowsItsSizesAndThatAnEvenLengthIsValid) {
    Started<UcsConv> const ucs;
    EXPECT_EQ(ucs->FromUtf8BufferSize(nullptr, 5), 10U);
    EXPECT_EQ(ucs->ToUtf8BufferSize(nullptr, 6), 10U);
    EXPECT_EQ(ucs->FromUtf8BufferSize(nullptr, 0x80000001U), 2U);
    EXPECT_TRUE(ucs->IsValid("abcd", 4));
    EXPECT_FALSE(ucs->IsValid("abc", 3));
}

}  // namespace
