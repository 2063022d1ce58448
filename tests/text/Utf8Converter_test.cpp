#include "corvalen/text/Utf8Converter.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>

#include "tests/support/LogCapture.h"
#include "tests/text/Converters.h"

namespace {

using namespace System::Text;
using namespace System::Text::Testing;

struct OpenUcsConv : UcsConv {
    static int Count() { return s_InitCount; }
    static UcsConv* Object() { return s_Instance; }
};

TEST(Utf8Converter, KeepsItsObjectUntilTheLastTerminate) {
    UcsConv::Init();
    UcsConv* const first = UcsConv::Instance();
    first->SetMissingChar('?');
    UcsConv::Init();
    UcsConv::Terminate();
    EXPECT_EQ(UcsConv::Instance(), first);
    UcsConv::Terminate();
    EXPECT_EQ(OpenUcsConv::Object(), nullptr);
    Started<UcsConv> const again;
    EXPECT_EQ(again->MissingChar(), 0);
}

TEST(Utf8Converter, ReportsUseOutsideInitAndTerminate) {
    Support::LogCapture const log;
    EXPECT_EQ(UcsConv::Instance(), nullptr);
    UcsConv::Terminate();
    EXPECT_EQ(OpenUcsConv::Count(), -1);
    UcsConv::Init();
    EXPECT_EQ(OpenUcsConv::Count(), 0);
    EXPECT_EQ(log.Asserted(0, "s_InitCount > 0", "UcsConv"), 2U);
}

TEST(Utf8Converter, ReadsTheMissingCharWithItsSign) {
    Started<GsmConv> const gsm;
    gsm->SetMissingChar('\xFF');
    EXPECT_EQ(gsm->MissingChar(), -1);
    gsm->SetMissingChar('\x3F');
    EXPECT_EQ(gsm->MissingChar(), 63);
}

TEST(Utf8Converter, ConvertsStringsWithTheirNulBytesAndWhatFitsOfBadOnes) {
    Started<UcsConv> const ucs;
    std::string out = "before";
    EXPECT_EQ(ucs->StrFromUtf8(std::string("a\0b", 3), out), 0);
    EXPECT_EQ(out, std::string("a\0\0\0b\0", 6));
    EXPECT_EQ(ucs->StrFromUtf8("a\xFF", out), EINVAL);
    EXPECT_EQ(out, std::string("a\0", 2));
    EXPECT_EQ(ucs->StrToUtf8("", out), 0);
    EXPECT_EQ(out, "");
}

TEST(Utf8Converter, ConvertsAStringThatNoStackCouldHold) {
    Started<UcsHexConv> const hex;
    std::string const text(20'000'000, 'x');
    std::string digits;
    std::string back;
    ASSERT_EQ(hex->StrFromUtf8(text, digits), 0);
    ASSERT_EQ(digits.size(), 4 * text.size());
    ASSERT_EQ(hex->StrToUtf8(digits, back), 0);
    EXPECT_TRUE(back == text);
}

TEST(Utf8Converter, GivesBlocksThatTheCallerFrees) {
    Started<UcsConv> const ucs;
    unsigned length = 9;
    int result = -1;
    std::unique_ptr<void, decltype(&std::free)> const from(
        ucs->FromUtf8_NF("\xE2\x82\xAC", 3, &length, &result), &std::free);
    EXPECT_EQ(result, 0);
    ASSERT_EQ(length, 2U);
    std::unique_ptr<char, decltype(&std::free)> const to(ucs->ToUtf8_NF(from.get(), 2, &length, nullptr),
                                                         &std::free);
    EXPECT_EQ(std::string(to.get(), length), "\xE2\x82\xAC");
    std::unique_ptr<void, decltype(&std::free)> const none(ucs->FromUtf8_NF("", 0, &length, &result),
                                                           &std::free);
    EXPECT_EQ(length, 0U);
}

// The decoder's verdict on every beginning of two bytes, alone and with a third byte behind it.
TEST(Utf8Converter, JudgesEveryBeginningOfTwoBytes) {
    Started<UcsConv> const ucs;
    for (unsigned first = 0; first < 0x100; ++first) {
        for (unsigned second = 0; second < 0x100; ++second) {
            std::string const pair{static_cast<char>(first), static_cast<char>(second)};
            bool const isNext = second >= 0x80 && second < 0xC0;
            bool const isPair = first >= 0xC0 && first < 0xE0 && isNext;
            bool const isTriple = first >= 0xE0 && first < 0xF0 && isNext;
            auto const alone = FromUtf8(*ucs, pair, 16);
            auto const longer = FromUtf8(*ucs, pair + "\x80", 16);
            bool const isAscii = first < 0x80 && second < 0x80;
            EXPECT_EQ(alone.result, isPair || isAscii ? 0 : EINVAL) << first << ' ' << second;
            std::size_t const units = isPair ? 1 : (first < 0x80) + (second < 0x80);
            EXPECT_EQ(alone.text.size(), 2 * units) << first << ' ' << second;
            bool const isWhole = isTriple || (first < 0x80 && second >= 0xC0 && second < 0xE0);
            EXPECT_EQ(longer.result, isWhole ? 0 : EINVAL) << first << ' ' << second;
        }
    }
}

}  // namespace
