#include "platform/RegistryFile.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/RegistryText.h"

namespace {

using namespace std::string_literals;
using System::Platform::DecodeRegistryText;
using System::Platform::FoldCase;
using System::Platform::kMaxRegistryDepth;
using System::Platform::ParseRegistryFile;
using System::Platform::RegistryFileSink;
using System::Platform::RegistryPath;
using System::Platform::RegistryRoot;

std::string Narrow(std::u16string const& text) {
    std::string narrow;
    for (char16_t const unit : text) {
        narrow += unit < 0x80 ? std::string(1, static_cast<char>(unit)) : "<" + std::to_string(unit) + ">";
    }
    return narrow;
}

// Writes down what it is told, a word for each thing.
class Notes : public RegistryFileSink {
public:
    void OnKey(RegistryRoot root, RegistryPath path) override { Key("[", root, path); }
    void OnDeletedKey(RegistryRoot root, RegistryPath path) override { Key("[-", root, path); }
    void OnValue(std::u16string name, std::uint32_t type, std::string data) override {
        text += Narrow(name) + "=" + std::to_string(type) + ":";
        for (char const byte : data) {
            constexpr char kDigits[] = "0123456789abcdef";
            text += {kDigits[static_cast<unsigned char>(byte) >> 4], kDigits[byte & 15]};
        }
        text += " ";
    }
    void OnDeletedValue(std::u16string name) override { text += Narrow(name) + "=- "; }
    void OnMalformedLine(std::uint32_t number) override { text += "!" + std::to_string(number) + " "; }

    std::string text;

private:
    void Key(char const* start, RegistryRoot root, RegistryPath const& path) {
        text += start + std::to_string(static_cast<int>(root));
        for (std::u16string const& name : path) {
            text += "|" + Narrow(name);
        }
        text += "] ";
    }
};

std::string NotesOn(std::string const& bytes) {
    Notes notes;
    ParseRegistryFile(bytes, notes);
    return notes.text;
}

std::string AsUtf16(std::string const& text) {
    std::string bytes = "\xFF\xFE";
    for (char16_t const unit : DecodeRegistryText(text)) {
        bytes += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
    }
    return bytes;
}

struct FileCase {
    char const* name;
    std::string text;  // behind the header and a key
    std::string expected;
};

class LinesOfRegistryFile : public testing::TestWithParam<FileCase> {};

TEST_P(LinesOfRegistryFile, SayTheSameInBothEncodings) {
    std::string const start = "Windows Registry Editor Version 5.00\r\n[HKEY_USERS]\r\n";
    std::string const text = start + GetParam().text;
    for (std::string const& bytes : {text, "\xEF\xBB\xBF" + text, AsUtf16(text)}) {
        EXPECT_EQ(NotesOn(bytes), "[3] " + GetParam().expected);
    }
}

FileCase const kFileCases[] = {
    // name, text, expected
    {"Nothing", "", ""},
    {"BlankLinesAndComments", "\r\n \t\r\n; [HKEY_USERS\\a]\n  ;x\\\n\"a\"=-", "a=- "},
    {"AllRoots",
     "[HKEY_CLASSES_ROOT\\a]\n[HKEY_CURRENT_USER\\a]\n[hkey_local_machine\\a]\n[HKEY_CURRENT_CONFIG\\a]",
     "[0|a] [1|a] [2|a] [4|a] "},
    {"KeyWithBracketsAndBlanks", "  [HKEY_USERS\\a b]\\[c]]  ", "[3|a b]|[c]] "},
    {"KeyOutsideAscii", "[HKEY_USERS\\\xC3\xA4\xF0\x9F\x98\x80]", "[3|<228><55357><56832>] "},
    {"BackslashBehindAKey", "[HKEY_USERS\\a\\]", "[3|a] "},
    {"DeletedKey", "[-HKEY_USERS\\a\\b]", "[-3|a|b] "},
    {"DeletedRoot", "[-HKEY_USERS]", "!3 "},
    {"UnknownRoot", "[HKEY_NOWHERE\\a]", "!3 "},
    {"EmptyKeyName", "[HKEY_USERS\\a\\\\b]", "!3 "},
    {"EmptyBrackets", "[]\n[\n[-]", "!3 !4 !5 "},
    {"OpenBracket", "[HKEY_USERS\\a\n[HKEY_USERS\\b] x", "!3 !4 "},
    {"ValuesBelowABadKeyGoWithIt", "[oops]\n\"a\"=\"b\"\nrubbish\n[HKEY_USERS\\b]\n@=-", "!3 [3|b] =- "},
    {"ValuesBelowADeletedKey", "[-HKEY_USERS\\a]\n@=-\n", "[-3|a] !4 "},
    {"String", "\"a\"=\"xy\"", "a=1:780079000000 "},
    {"EmptyString", "@=\"\"", "=1:0000 "},
    {"Escapes", "\"a\\\"\\\\=\"=\"\\\\\\\"\"", "a\"\\==1:5c0022000000 "},
    {"BlanksAndComment", " \"a\" = \"b\" ; \"c\"", "a=1:62000000 "},
    {"UnknownEscape", "\"a\"=\"C:\\temp\"\n@=-", "!3 =- "},
    {"OpenString", "\"a\"=\"b\n\"c=\"d\"\n\"", "!3 !4 !5 "},
    {"TextBehindAString", "\"a\"=\"b\"c", "!3 "},
    {"OpenStringAtTheEnd", "\"a\"=\"b\\", "!3 "},
    {"NameWithoutQuotes", "a=\"b\"", "!3 "},
    {"NoData", "\"a\"=\n\"a\"\n@\n=\n@=x", "!3 !4 !5 !6 !7 "},
    {"Dword", "\"a\"=dword:0000000A\n@=dword:1", "a=4:0a000000 =4:01000000 "},
    {"BadDword", "\"a\"=dword:\n\"a\"=dword:123456789\n\"a\"=dword:0x1\n@=dword:-1", "!3 !4 !5 !6 "},
    {"Bytes", "\"a\"=hex:01, fF,3", "a=3:01ff03 "},
    {"NoBytes", "\"a\"=hex:\n\"a\"=hex(7): ; none", "a=3: a=7: "},
    {"TypedBytes", "@=hex(0):\n@=hex(1):41,00\n@=hex(2):00\n@=hex(b):01\n@=hex(ffffffff):02",
     "=0: =1:4100 =2:00 =11:01 =4294967295:02 "},
    {"BadBytes", "@=hex:1ff\n@=hex:g\n@=hex:1,\n@=hex:,1\n@=hex 1\n@=hex(:1\n@=hex():1\n@=hex(123456789):1",
     "!3 !4 !5 !6 !7 !8 !9 !10 "},
    {"Continued", "\"a\"=hex:01,\\\r\n  02,\\ \r\n\t03\r\n@=-", "a=3:010203 =- "},
    {"ContinuedInTheFirstLine", "@=hex:\\\n 01", "=3:01 "},
    {"CutOffBeforeAKey", "@=hex:01,\\\n[HKEY_USERS\\a]", "!3 [3|a] "},
    {"CutOffBeforeAValue", "@=hex:01,\\\n\"a\"=-", "!3 a=- "},
    {"CutOffBeforeABlankLine", "@=hex:01,\\\n\n@=-", "!3 =- "},
    {"CutOffAtTheEnd", "@=hex:01,\\", "!3 "},
    {"BadByteInAContinuation", "@=hex:01,\\\n zz,\\\n 03\n@=-", "!3 =- "},
    {"Deleted", "\"a\"=-\n\"a\"=-x", "a=- !4 "},
    {"ZeroCharacter", "\"a\0\"=-\n@=\"\0\"\n[HKEY_USERS\\\0]"s, "!3 !4 !5 "},
    {"HeaderAgain", "Windows Registry Editor Version 5.00", "!3 "},
};

INSTANTIATE_TEST_SUITE_P(RegistryFile, LinesOfRegistryFile, testing::ValuesIn(kFileCases),
                         [](auto const& row) { return std::string(row.param.name); });

TEST(RegistryFile, IsReadWithoutItsHeaderButNotUnnoticed) {
    EXPECT_EQ(NotesOn("\n[HKEY_USERS]\n@=-"), "!2 [3] =- ");
    EXPECT_EQ(NotesOn("REGEDIT4\n[HKEY_USERS]\n@=-"), "!1 [3] =- ");
    EXPECT_EQ(NotesOn("[oops]"), "!1 ");
    EXPECT_EQ(NotesOn("Windows Registry Editor Version 5.00\n@=-"), "!2 ");
}

TEST(RegistryFile, LosesALineWithMalformedBytes) {
    std::string const start = "Windows Registry Editor Version 5.00\n[HKEY_USERS]\n";
    for (std::string const bytes :
         {"\x80", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82", "\xFF"}) {
        EXPECT_EQ(NotesOn(start + "@=\"" + bytes + "\"\n\"a\"=-"), "[3] !3 a=- ")
            << testing::PrintToString(bytes);
    }
    EXPECT_EQ(NotesOn(AsUtf16(start + "@=-") + "\n"), "[3] !3 ");
    EXPECT_EQ(NotesOn("\xFF\xFE"), "");
}

TEST(RegistryFile, BoundsTheDepthOfKeys) {
    std::string deepest = "HKEY_USERS";
    for (std::size_t i = 0; i < kMaxRegistryDepth; ++i) {
        deepest += "\\a";
    }
    std::string const header = "Windows Registry Editor Version 5.00\n";
    EXPECT_EQ(NotesOn(header + "[" + deepest + "\\a]"), "!2 ");
    EXPECT_EQ(NotesOn(header + "[" + deepest + "]").find('!'), std::string::npos);
}

struct FoldCaseCase {
    char const* name;
    char16_t upper;
    char16_t lower;
};

class FoldingOfCase : public testing::TestWithParam<FoldCaseCase> {};

TEST_P(FoldingOfCase, MakesThemEqual) {
    EXPECT_EQ(FoldCase(GetParam().upper), FoldCase(GetParam().lower));
}

constexpr FoldCaseCase kFoldCaseCases[] = {
    {"A", u'A', u'a'},          {"Z", u'Z', u'z'},           {"LatinDiaeresis", u'Ä', u'ä'},
    {"LatinCaron", u'Š', u'š'}, {"LatinPair", u'Ā', u'ā'},   {"YDiaeresis", u'Ÿ', u'ÿ'},
    {"Sigma", u'Σ', u'σ'},      {"FinalSigma", u'Σ', u'ς'},  {"Micro", u'µ', u'μ'},
    {"Cyrillic", u'Ж', u'ж'},   {"CyrillicIo", u'Ё', u'ё'},  {"Armenian", u'Ա', u'ա'},
    {"Georgian", u'Ა', u'ა'}, {"Kelvin", u'\u212A', u'k'}, {"FullWidth", u'Ａ', u'ａ'},
};

INSTANTIATE_TEST_SUITE_P(FoldCase, FoldingOfCase, testing::ValuesIn(kFoldCaseCases),
                         [](auto const& row) { return std::string(row.param.name); });

TEST(FoldCase, IsStableAndLeavesOtherUnitsAlone) {
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
        char16_t const folded = FoldCase(static_cast<char16_t>(unit));
        ASSERT_EQ(FoldCase(folded), folded) << unit;
    }
    for (char16_t const unit : u"@[`{×÷ß\u0130\xD800\xDFFF中") {
        EXPECT_EQ(FoldCase(unit), unit);
    }
}

}  // namespace
