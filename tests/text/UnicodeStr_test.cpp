#include "corvalen/text/UnicodeStr.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/LogCapture.h"

namespace {

using System::Text::UnicodeStr;

char const* Utf8(UnicodeStr& text) {
    return text;
}

char16_t const* Wide(UnicodeStr& text) {
    return text;
}

struct FormCase {
    char const* name;
    char const* utf8;
    char16_t const* wide;
    unsigned warnings;
};
class BothForms : public testing::TestWithParam<FormCase> {};

constexpr FormCase kForms[] = {
    {"Empty", "", u"", 0},
    {"OneTwoThreeBytes", "A\xC3\xA9\xE2\x82\xAC", u"A\u00E9\u20AC", 0},
    {"Surrogates", "\xED\xA0\xBD\xED\xB8\x80", u"\xD83D\xDE00", 0},
    {"BadByteBetween",
     "A\x80"
     "B",
     u"AB", 1},
    {"FourByteSequence", "\xF0\x9F\x98\x80", u"", 4},
    {"CutSequence", "A\xE2\x82", u"A", 2},
};

TEST_P(BothForms, OfUtf8AreTheBytesThemselvesAndTheirUnits) {
    Support::LogCapture const log;
    UnicodeStr text(GetParam().utf8);
    EXPECT_EQ(std::u16string(Wide(text)), GetParam().wide);
    EXPECT_STREQ(Utf8(text), GetParam().utf8);
    EXPECT_EQ(Wide(text), Wide(text));
    EXPECT_EQ(log.Count("Bad utf8 string detected"), GetParam().warnings);
    EXPECT_EQ(log.Lines().size(), GetParam().warnings);
}

TEST_P(BothForms, OfWideTextAreTheUnitsThemselvesAndTheirBytes) {
    UnicodeStr text(GetParam().wide);
    char const* const utf8 = text;
    if (GetParam().warnings == 0) {
        EXPECT_STREQ(utf8, GetParam().utf8);
    }
    EXPECT_EQ(utf8, Utf8(text));
    EXPECT_EQ(std::u16string(Wide(text)), GetParam().wide);
}
INSTANTIATE_TEST_SUITE_P(, BothForms, testing::ValuesIn(kForms),
                         [](auto const& row) { return std::string(row.param.name); });

}  // namespace
