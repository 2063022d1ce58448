#include "corvalen/text/NativeConv.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/LogCapture.h"
#include "tests/text/Converters.h"

namespace {

using namespace System::Text;
using namespace System::Text::Testing;

// NativeConv in the code set of `locale`, which is put into LC_ALL while it starts; null for none.
class Native {
public:
    explicit Native(char const* locale) {
        char const* const before = std::getenv("LC_ALL");
        std::optional<std::string> const saved =
            before != nullptr ? std::optional<std::string>(before) : std::nullopt;
        ::setenv("LC_ALL", locale, 1);
        NativeConv::Init();
        saved ? ::setenv("LC_ALL", saved->c_str(), 1) : ::unsetenv("LC_ALL");
    }
    ~Native() { NativeConv::Terminate(); }
    Native(Native const&) = delete;
    Native& operator=(Native const&) = delete;
    NativeConv& operator*() const { return *NativeConv::Instance(); }
};

constexpr char kLatin1[] = "de_DE.ISO-8859-1";
constexpr char kUtf8Set[] = "C.UTF-8";
constexpr char kEucJp[] = "ja_JP.EUC-JP";
constexpr char kGb18030[] = "zh_CN.GB18030";
constexpr char kIso2022Jp[] = "ja_JP.ISO-2022-JP";
constexpr char kGermanIso646[] = "de_DE.ISO646-DE";
constexpr char kHebrew[] = "he_IL.CP1255";

struct Case {
    char const* name;
    char const* locale;
    char const* utf8;
    char const* native;
    char const* back;  // what comes of `native`
};

std::string NameOf(testing::TestParamInfo<Case> const& info) {
    return info.param.name;
}

class NativeConvCodeSet : public testing::TestWithParam<Case> {};

TEST_P(NativeConvCodeSet, IsReadAndWritten) {
    Native const native(GetParam().locale);
    EXPECT_EQ(FromUtf8(*native, GetParam().utf8), (Converted{0, GetParam().native}));
    EXPECT_EQ(ToUtf8(*native, GetParam().native), (Converted{0, GetParam().back}));
    // Long enough to be taken in several pieces.
    std::string utf8;
    std::string wanted;
    for (int i = 0; i < 200; ++i) {
        utf8 += GetParam().utf8;
        wanted += GetParam().back;
    }
    constexpr unsigned kRoom = 20000;
    Converted const there = FromUtf8(*native, utf8, kRoom);
    ASSERT_EQ(there.result, 0);
    EXPECT_EQ(ToUtf8(*native, there.text, kRoom), (Converted{0, wanted}));
}

constexpr Case kCodeSets[] = {
    {"NoneIsAscii", "C", "aé#", "a?#", "a?#"},
    {"UnknownIsAscii", "xx_XX.NOSUCH", "aé中", "a??", "a??"},
    {"Latin1", kLatin1, "Köln €", "K\xF6ln ?", "Köln ?"},
    {"Utf8", kUtf8Set, "Köln € 中", "Köln € 中", "Köln € 中"},
    {"EucJp", kEucJp, "日本 a é", "\xC6\xFC\xCB\xDC a \x8F\xAB\xB1", "日本 a é"},
    {"Gb18030", kGb18030, "中a€",
     "\xD6\xD0"
     "a\xA2\xE3",
     "中a€"},
    {"Stateful", kIso2022Jp, "a日本b", "a\x1B$BF|K\\\x1B(Bb", "a日本b"},
    {"NotAscii", kGermanIso646, "aÄ#[", "a[#?", "aÄ#?"},
    {"Composing", kHebrew, "שa",
     "\xF9"
     "a",
     "שa"},
};
INSTANTIATE_TEST_SUITE_P(Table, NativeConvCodeSet, testing::ValuesIn(kCodeSets), NameOf);

TEST(NativeConv, JoinsAndSplitsSurrogatePairsWhereTheCodeSetGoesBeyondThem) {
    for (char const* const locale : {kUtf8Set, kGb18030}) {
        Native const native(locale);
        std::string const pair = "\xED\xA0\xBD\xED\xB8\x80";
        Converted const out = FromUtf8(*native, pair);
        EXPECT_EQ(out.text.size(), 4U) << locale;
        EXPECT_EQ(ToUtf8(*native, out.text), (Converted{0, pair})) << locale;
        EXPECT_EQ(FromUtf8(*native, "a\xED\xA0\xBD"), (Converted{0, "a?"})) << locale;
    }
}

TEST(NativeConv, ReplacesBothHalvesOfAPairThatTheCodeSetDoesNotHave) {
    EXPECT_EQ(FromUtf8(*Native(kEucJp), "a\xED\xA0\xBD\xED\xB8\x80#"), (Converted{0, "a?\?#"}));
}

// So that it also comes where a piece of the conversion ends.
TEST(NativeConv, ReplacesAnUndefinedByteWhereverItStands) {
    for (auto const& [locale, utf8] : {std::pair{kEucJp, "日"}, {kGb18030, "\xED\xA0\xBD\xED\xB8\x80"}}) {
        Native const native(locale);
        std::string const character = FromUtf8(*native, utf8).text;
        std::string before;
        std::string wanted;
        for (int count = 0; count < 600; ++count) {
            ASSERT_EQ(ToUtf8(*native, before + '\xFF' + character, 3 * kPlenty),
                      (Converted{0, wanted + "\xEF\xBF\xBD" + utf8}))
                << locale << ", behind " << count;
            before += character;
            wanted += utf8;
        }
    }
}

TEST(NativeConv, ReplacesUndefinedBytes) {
    std::string const bad = "\xEF\xBF\xBD";
    EXPECT_EQ(ToUtf8(*Native("C"), "a\xE9"), (Converted{0, "a" + bad}));
    EXPECT_EQ(ToUtf8(*Native(kUtf8Set),
                     "\xC0\x80\xED\xA0\x80"
                     "a"),
              (Converted{0, bad + bad + bad + bad + bad + "a"}));
    EXPECT_EQ(ToUtf8(*Native(kEucJp), "\xC6\xFC\xC6"), (Converted{0, "日" + bad}));
}

TEST(NativeConv, WarnsOfEachMalformedByte) {
    Native const native(kLatin1);
    Support::LogCapture log;
    EXPECT_EQ(FromUtf8(*native,
                       "A\x80"
                       "B"),
              (Converted{0, "AB"}));
    EXPECT_EQ(log.Count("Bad Utf8 string discovered"), 1U);
    EXPECT_EQ(FromUtf8(*native, "\xF0\x9F\x98\x80"), (Converted{EINVAL, ""}));
    EXPECT_EQ(log.Count("Bad Utf8 string discovered"), 5U);
    EXPECT_EQ(FromUtf8(*native, "ABC\x80", 2).result, E2BIG);
    EXPECT_EQ(log.Count("Bad Utf8 string discovered"), 6U);
}

struct RoomCase {
    char const* name;
    char const* in;  // Latin-1
    unsigned room;
    int result;
    char const* out;
};

class NativeConvRoom : public testing::TestWithParam<RoomCase> {};

TEST_P(NativeConvRoom, CutsTheTextAndLeavesAByteFree) {
    Native const native(kLatin1);
    EXPECT_EQ(ToUtf8(*native, GetParam().in, GetParam().room),
              (Converted{GetParam().result, GetParam().out}));
}

constexpr RoomCase kRooms[] = {
    {"AsciiCut", "abc", 2, 0, "ab"},           {"AsciiFits", "abc", 3, 0, "abc"},
    {"TwoBytesInTwo", "\xE9", 2, E2BIG, ""},   {"TwoBytesInThree", "\xE9", 3, 0, "é"},
    {"LastByteForAscii", "\xE9z", 3, 0, "éz"}, {"NoRoom", "a", 0, E2BIG, ""},
    {"StopsAtTheFirst", "a\xE9z", 3, 0, "a"},  {"Empty", "", 0, 0, ""},
};
INSTANTIATE_TEST_SUITE_P(Table, NativeConvRoom, testing::ValuesIn(kRooms),
                         [](auto const& row) { return std::string(row.param.name); });

TEST(NativeConv, GivesAllOrNothingFromUtf8) {
    Native const native(kLatin1);
    Converted const tooLong{E2BIG, ""};
    std::string room(8, '\0');
    unsigned written = 9;
    EXPECT_EQ((*native).FromUtf8("abc", 3, room.data(), 2, &written), E2BIG);
    EXPECT_EQ(written, 0U);
    EXPECT_EQ(FromUtf8(*native, "", 0), (Converted{0, ""}));
    EXPECT_EQ(FromUtf8(*native, "a", 0), tooLong);
    EXPECT_EQ((*native).FromUtf8("abc", 0x80000000U, room.data(), 8, &written), EINVAL);
}

TEST(NativeConv, KeepsNulBytes) {
    Native const native(kEucJp);
    std::string const text("a\0b", 3);
    EXPECT_EQ(FromUtf8(*native, text), (Converted{0, text}));
    EXPECT_EQ(ToUtf8(*native, text), (Converted{0, text}));
}

TEST(NativeConv, TakesTheNewCodeSetAfterANewStartOnEveryThread) {
    { EXPECT_EQ(FromUtf8(*Native(kEucJp), "日").text, "\xC6\xFC"); }
    Native const native(kIso2022Jp);
    EXPECT_EQ(FromUtf8(*native, "日").text, "\x1B$BF|\x1B(B");
    std::thread([&] { EXPECT_EQ(FromUtf8(*native, "日").text, "\x1B$BF|\x1B(B"); }).join();
}

}  // namespace
