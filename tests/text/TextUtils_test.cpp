#include "corvalen/text/TextUtils.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "corvalen/platform/Bstr.h"
#include "tests/support/FakeClock.h"
#include "tests/support/LocaleVariable.h"
#include "tests/support/LogCapture.h"
#include "tests/text/Converters.h"

namespace {

using Support::LogCapture;
using System::Text::CTextUtils;
using System::Text::NativeConv;
using System::Text::UcsConv;
using System::Text::Testing::Started;

// The converters with a Western European code page.
class TextUtils : public testing::Test {
protected:
    Support::LocaleVariable m_Locale{"de_DE.ISO-8859-1"};
    LogCapture m_Log;
    Started<UcsConv> m_Ucs;
    Started<NativeConv> m_Native;
};

struct Counted {
    unsigned count;
    std::u16string text;
    bool operator==(Counted const&) const = default;
};

Counted Wide(std::string const& utf8) {
    char16_t* block = nullptr;
    unsigned const count = CTextUtils::ConvertUTF8toWCHAR_NF(utf8, block);
    if (block == nullptr) {
        return {count, u"(none)"};
    }
    Counted result{count, block};
    std::free(block);
    return result;
}

std::string Utf8(char16_t const* wide, unsigned cch) {
    char* block = nullptr;
    unsigned const count = CTextUtils::ConvertCchWCHARtoUTF8_NF(wide, cch, block);
    std::unique_ptr<char[]> const owner(block);
    return block != nullptr && std::string(block).size() == count ? block : "(wrong)";
}

TEST_F(TextUtils, MakesWideTextOfUtf8AndDropsBadBytesSilently) {
    EXPECT_EQ(Wide(""), (Counted{0, u""}));
    EXPECT_EQ(Wide("\xE2\x82\xAC!"), (Counted{2, u"\u20AC!"}));
    EXPECT_EQ(Wide("A\x80"
                   "B\xF0\x9F\x98\x80"),
              (Counted{2, u"AB"}));
    EXPECT_EQ(Wide(std::string("A\0B", 3)), (Counted{1, u"A"}));
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(TextUtils, KeepsInABlockWhatStandsBehindAZero) {
    char16_t* block = nullptr;
    EXPECT_EQ(CTextUtils::ConvertUTF8toWCHAR_NF("A\0B", 3, block), 1U);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::u16string(block, 4), std::u16string(u"A\0B\0", 4));
    std::free(block);
}

TEST_F(TextUtils, SizesUtf8ByTheExpectedLengthAndCutsAtAWholeCharacter) {
    EXPECT_EQ(Utf8(u"abcde", 1), "abcd");
    EXPECT_EQ(Utf8(u"ab", 100), "ab");
    EXPECT_EQ(Utf8(u"ab\u20AC", 1), "ab");
    EXPECT_EQ(Utf8(u"\xD83D\xDE00", 2), "\xED\xA0\xBD\xED\xB8\x80");
    char* block = reinterpret_cast<char*>(1);
    EXPECT_EQ(CTextUtils::ConvertCchWCHARtoUTF8_NF(nullptr, 5, block), 0U);
    EXPECT_EQ(block, nullptr);
}

TEST_F(TextUtils, ReplacesTheStringThatItWritesTo) {
    std::string text = "before";
    EXPECT_EQ(CTextUtils::ConvertWCHARtoUTF8(u"", text), 0U);
    EXPECT_EQ(text, "");
    EXPECT_EQ(CTextUtils::ConvertWCHARtoUTF8(u"\u00E9", text), 2U);
    EXPECT_EQ(text, "\xC3\xA9");
    char16_t wide[] = u"\u00E9";
    char* block = nullptr;
    EXPECT_EQ(CTextUtils::ConvertBSTRtoUTF8_NF(wide, block), 2U);
    EXPECT_STREQ(std::unique_ptr<char[]>(block).get(), "\xC3\xA9");
}

TEST_F(TextUtils, MakesBstrs) {
    char const* utf8 = "\xC3\xA9!";
    BSTR text = nullptr;
    EXPECT_EQ(CTextUtils::ConvertUTF8toBSTR(utf8, 3, text), 2U);
    EXPECT_EQ(SysStringLen(text), 2U);
    BSTR const before = text;
    CTextUtils::ConvertWCHAR_NFtoBSTR(nullptr, text);
    EXPECT_EQ(text, before);
    SysFreeString(text);
    CTextUtils::ConvertWCHAR_NFtoBSTR(u"ab", text);
    EXPECT_EQ(std::u16string(text, SysStringLen(text)), u"ab");
    SysFreeString(text);
    CTextUtils::ConvertLOCALCPtoBSTR("\xE9", 1, text);
    EXPECT_EQ(std::u16string(text, SysStringLen(text)), u"\u00E9");
    SysFreeString(text);
}

TEST_F(TextUtils, GoesBetweenTheLocalCodePageAndUtf8) {
    std::string text = "before";
    EXPECT_EQ(CTextUtils::ConvertLOCALCPtoUTF8("na\xEFve", text), 6U);
    EXPECT_EQ(text, "na\xC3\xAFve");
    EXPECT_EQ(CTextUtils::ConvertUTF8toLOCALCP("na\xC3\xAFve\xE4\xB8\xAD", text), 6U);
    EXPECT_EQ(text, "na\xEFve?");
    EXPECT_EQ(CTextUtils::ConvertLOCALCPtoUTF8(std::string("a\0b", 3), text), 1U);
    EXPECT_EQ(text, "a");
    EXPECT_EQ(CTextUtils::ConvertUTF8toLOCALCP("", text), 0U);
    EXPECT_EQ(text, "");
    char* block = nullptr;
    EXPECT_EQ(CTextUtils::ConvertLOCALCPtoUTF8_NF("", 0, block), 0U);
    ASSERT_NE(block, nullptr);
    EXPECT_STREQ(std::unique_ptr<char[]>(block).get(), "");
}

TEST_F(TextUtils, GoesBetweenTheLocalCodePageAndWideText) {
    char16_t* wide = nullptr;
    EXPECT_EQ(CTextUtils::ConvertLOCALCPtoWCHAR_NF("\xE9\xE8", 2, wide), 2U);
    EXPECT_EQ(std::u16string(wide), u"\u00E9\u00E8");
    std::free(wide);
    EXPECT_EQ(CTextUtils::ConvertLOCALCPtoWCHAR_NF(std::string("\xE9"), wide), 1U);
    std::free(wide);
    char* block = nullptr;
    EXPECT_EQ(CTextUtils::ConvertWCHARtoLOCALCP_NF(u"\u00E9\u4E2D", block), 2U);
    EXPECT_STREQ(std::unique_ptr<char[]>(block).get(), "\xE9?");
    std::string text;
    EXPECT_EQ(CTextUtils::ConvertWCHARtoLOCALCP(u"\u00E9", text), 1U);
    EXPECT_EQ(text, "\xE9");
}

TEST_F(TextUtils, LogsBadUtf8OnItsWayToTheLocalCodePage) {
    std::string text;
    EXPECT_EQ(CTextUtils::ConvertUTF8toLOCALCP("A\x80"
                                               "B",
                                               text),
              2U);
    EXPECT_EQ(text, "AB");
    EXPECT_EQ(m_Log.Count("Bad Utf8 string discovered"), 1U);
}

TEST(TextUtilsWithoutConverters, ReportsAndGivesNothing) {
    LogCapture const log;
    EXPECT_EQ(Wide("a"), (Counted{0, u"(none)"}));
    std::string text = "before";
    EXPECT_EQ(CTextUtils::ConvertLOCALCPtoUTF8("a", text), 0U);
    EXPECT_EQ(text, "");
    EXPECT_FALSE(log.Lines().empty());
}

struct BackslashCase {
    char const* name;
    char const* text;
    char const* added;
    char const* removed;
};
class Backslash : public testing::TestWithParam<BackslashCase> {};

constexpr BackslashCase kBackslashes[] = {
    {"Empty", "", "", ""},        {"OneLetter", "a", "a", "a"},  {"Alone", "\\", "\\", "\\"},
    {"None", "ab", "ab\\", "ab"}, {"One", "ab\\", "ab\\", "ab"}, {"Two", "a\\\\", "a\\\\", "a\\"},
};

TEST_P(Backslash, IsAddedAndRemovedBehindTwoCharactersOrMore) {
    std::string added = GetParam().text;
    CTextUtils::AddBackskash(added);
    EXPECT_EQ(added, GetParam().added);
    std::string removed = GetParam().text;
    CTextUtils::RemoveBackskash(removed);
    EXPECT_EQ(removed, GetParam().removed);
}
INSTANTIATE_TEST_SUITE_P(, Backslash, testing::ValuesIn(kBackslashes),
                         [](auto const& row) { return std::string(row.param.name); });

struct BoundedCopyCase {
    char const* name;
    std::string text;
    unsigned size;
    bool fits;
    std::string buffer;  // `size` bytes
};
class BoundedCopy : public testing::TestWithParam<BoundedCopyCase> {};

BoundedCopyCase const kBoundedCopies[] = {
    {"Exact", "abc", 4, true, std::string("abc\0", 4)},
    {"OneShort", "abc", 3, false, std::string("ab\0", 3)},
    {"Roomy", "abc", 7, true, std::string("abc\0\0\0\0", 7)},
    {"StopsAtNul", std::string("a\0bcd", 5), 3, true, std::string("a\0\0", 3)},
    {"Empty", "", 2, false, std::string("\0\0", 2)},
    {"NoRoom", "abc", 0, false, ""},
    {"OnlyTheTerminator", "abc", 1, false, std::string("\0", 1)},
};

TEST_P(BoundedCopy, FillsTheWholeArrayAndNoMore) {
    std::string buffer(GetParam().size + 1, '#');
    EXPECT_EQ(CTextUtils::ConvertStringToChar(GetParam().text, buffer.data(), GetParam().size),
              GetParam().fits);
    EXPECT_EQ(buffer, GetParam().buffer + "#");
}
INSTANTIATE_TEST_SUITE_P(, BoundedCopy, testing::ValuesIn(kBoundedCopies),
                         [](auto const& row) { return std::string(row.param.name); });

TEST(UniqueKey, IsTheNumberAndTheTime) {
    Support::FakeClock const clock;
    Support::FakeClock::s_Wall = 0x1234ABCD;
    unsigned const before = CTextUtils::NumberOfKey;
    CTextUtils::NumberOfKey = 0;
    EXPECT_EQ(CTextUtils::GenerateUniqueKey(), "001-1234ABCD");
    EXPECT_EQ(CTextUtils::GenerateUniqueKey(), "002-1234ABCD");
    CTextUtils::NumberOfKey = 0xFFF;
    Support::FakeClock::s_Wall = 0x1000000AB;
    EXPECT_EQ(CTextUtils::GenerateUniqueKey(), "1000-AB");
    CTextUtils::NumberOfKey = 0xFFFFFFFF;
    EXPECT_EQ(CTextUtils::GenerateUniqueKey(), "000-AB");
    CTextUtils::NumberOfKey = before;
}

}  // namespace
