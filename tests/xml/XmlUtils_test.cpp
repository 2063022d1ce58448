#include "corvalen/xml/XmlUtils.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "corvalen/platform/Bstr.h"
#include "corvalen/text/NativeConv.h"
#include "corvalen/text/UcsConv.h"
#include "tests/support/LocaleVariable.h"

namespace {

namespace fs = std::filesystem;
using System::Platform::XmlDocument;
using System::Platform::XmlError;
using System::Platform::XmlNode;
using System::Text::NativeConv;
using System::Text::UcsConv;
using System::XML::CXmlUtils;

constexpr char kPhones[] =
    "<phones xmlns:p=\"urn:p\"><phone imei=\"1\">a <b>c</b> d</phone><p:phone imei=\"2\"/></phones>";

// The converters with a Western European code page, and a document.
class XmlUtils : public testing::Test {
protected:
    XmlUtils() {
        UcsConv::Init();
        NativeConv::Init();
        m_Document = XmlDocument::Load(kPhones);
    }
    ~XmlUtils() override {
        NativeConv::Terminate();
        UcsConv::Terminate();
    }

    [[nodiscard]] std::string AttributeOf(char16_t const* query, char const* name) const {
        std::string value = "before";
        EXPECT_TRUE(CXmlUtils::GetAttribute(m_Document.SelectSingleNode(query), name, value));
        return value;
    }

    Support::LocaleVariable m_Locale{"de_DE.ISO-8859-1"};
    XmlDocument m_Document;
};

struct QueryCase {
    char const* name;
    char const* path;
    bool exists;
    bool added;
    bool changed;
    bool removed;
};
class XmlUtilsQuery : public XmlUtils, public testing::WithParamInterface<QueryCase> {};

constexpr QueryCase kQueries[] = {
    {"Element", "//phone[@imei='1']", true, true, true, true},
    {"Prefix", "/phones/p:phone", true, true, true, true},
    {"Root", "/phones", true, true, true, true},
    {"Document", "/", true, false, false, false},
    {"Attribute", "//phone/@imei", true, false, false, false},
    {"Text", "//b/text()", true, false, false, true},
    {"Nothing", "//fax", false, true, true, true},
    {"NoXPath", "//[", false, false, false, false},
    {"Empty", "", false, false, false, false},
    {"Number", "count(//phone)", false, false, false, false},
};

TEST_P(XmlUtilsQuery, HasItsResultForEachOperation) {
    std::string path = GetParam().path;
    auto const run = [&](auto&& operation) {
        XmlDocument const document = XmlDocument::Load(kPhones);
        bool const result = operation(document);
        EXPECT_EQ(document.Save() != kPhones, GetParam().exists && result);
        return result;
    };
    EXPECT_EQ(CXmlUtils::IsElementExist(m_Document, path), GetParam().exists);
    EXPECT_EQ(run([&](auto& d) { return CXmlUtils::AddNewElement(d, path, "new", 3); }), GetParam().added);
    EXPECT_EQ(run([&](auto& d) { return CXmlUtils::ChangeAttributeValue(d, path, "imei", "9"); }),
              GetParam().changed);
    EXPECT_EQ(run([&](auto& d) { return CXmlUtils::RemoveNode(d, path); }), GetParam().removed);
    EXPECT_EQ(path, GetParam().path);
}
INSTANTIATE_TEST_SUITE_P(, XmlUtilsQuery, testing::ValuesIn(kQueries),
                         [](auto const& row) { return std::string(row.param.name); });

TEST_F(XmlUtils, AddsAnElementAsLastChildByTheGivenBytesOfItsName) {
    EXPECT_TRUE(CXmlUtils::AddNewElement(m_Document, "//phone", "faxes", 3));
    EXPECT_FALSE(CXmlUtils::AddNewElement(m_Document, "//phone", "1x", 2));
    EXPECT_FALSE(CXmlUtils::AddNewElement(m_Document, "//phone", "", 0));
    EXPECT_EQ(m_Document.Save(),
              "<phones xmlns:p=\"urn:p\"><phone imei=\"1\">a <b>c</b> d<fax/></phone>"
              "<p:phone imei=\"2\"/></phones>");
}

TEST_F(XmlUtils, ReadsAttributesAndTellsMissingOnesFromWhatHasNone) {
    EXPECT_EQ(AttributeOf(u"//phone", "imei"), "1");
    EXPECT_EQ(AttributeOf(u"//phone", "none"), "");
    std::string value;
    for (XmlNode const& node : {XmlNode(), XmlNode(m_Document), m_Document.SelectSingleNode(u"//b/text()")}) {
        value = "before";
        EXPECT_FALSE(CXmlUtils::GetAttribute(node, "imei", value));
        EXPECT_EQ(value, "");
    }
    EXPECT_FALSE(CXmlUtils::GetAttribute(m_Document.DocumentElement(), nullptr, value));
}

TEST_F(XmlUtils, ChangesAnAttributeOrCreatesIt) {
    EXPECT_TRUE(CXmlUtils::ChangeAttributeValue(m_Document, "//phone", "imei", "<\xE2\x82\xAC>"));
    EXPECT_EQ(AttributeOf(u"//phone", "imei"), "<\xE2\x82\xAC>");
    EXPECT_TRUE(CXmlUtils::ChangeAttributeValue(m_Document, "//phone", "model", "x"));
    EXPECT_EQ(AttributeOf(u"//phone", "model"), "x");
    // What is not XML is not set, which the result does not show.
    EXPECT_TRUE(CXmlUtils::ChangeAttributeValue(m_Document, "//phone", "model", "\x01"));
    EXPECT_EQ(AttributeOf(u"//phone", "model"), "x");
    EXPECT_TRUE(CXmlUtils::ChangeAttributeValue(m_Document, "//phone", "owner", "\x01"));
    EXPECT_EQ(AttributeOf(u"//phone[@owner]", "owner"), "");
    EXPECT_FALSE(CXmlUtils::ChangeAttributeValue(m_Document, "//phone", "no name", "x"));
    EXPECT_FALSE(CXmlUtils::ChangeAttributeValue(nullptr, "//phone", "imei", "x"));
}

TEST_F(XmlUtils, TakesNamesOfAttributesFromTheLocalCodePage) {
    EXPECT_TRUE(CXmlUtils::ChangeAttributeValue(m_Document, "//phone", "g\xF6", "5"));
    EXPECT_EQ(AttributeOf(u"//phone", "g\xF6"), "5");
    EXPECT_NE(m_Document.Save().find(" g\xC3\xB6=\"5\""), std::string::npos);
}

TEST_F(XmlUtils, KeepsCharactersBeyondTheRangeAsSurrogatesInItsStrings) {
    m_Document = XmlDocument::Load("<a b=\"\xF0\x9F\x98\x80\"/>");
    std::string const pair = AttributeOf(u"/a", "b");
    EXPECT_EQ(pair, "\xED\xA0\xBD\xED\xB8\x80");
    EXPECT_TRUE(CXmlUtils::ChangeAttributeValue(m_Document, "/a", "c", pair));
    EXPECT_EQ(m_Document.Save(), "<a b=\"\xF0\x9F\x98\x80\" c=\"\xF0\x9F\x98\x80\"/>");
}

std::uint32_t StatusOfCreate(XmlDocument const& document, XmlNode const& node, char const* name) {
    try {
        return CXmlUtils::CreateAttribute(document, node, name, "v") ? 1 : 0;
    } catch (XmlError const& error) {
        return error.Status();
    }
}

TEST_F(XmlUtils, LetsTheErrorsOfCreateAttributePass) {
    XmlNode const element = m_Document.DocumentElement();
    EXPECT_EQ(StatusOfCreate(nullptr, element, "a"), 0U);
    EXPECT_EQ(StatusOfCreate(m_Document, nullptr, "a"), 0U);
    EXPECT_EQ(StatusOfCreate(m_Document, element, nullptr), 0U);
    EXPECT_EQ(StatusOfCreate(m_Document, element, "a"), 1U);
    EXPECT_EQ(StatusOfCreate(m_Document, element, ""), XmlError::kInvalidArgument);
    EXPECT_EQ(StatusOfCreate(m_Document, m_Document, "a"), XmlError::kPointer);
    EXPECT_EQ(AttributeOf(u"/phones", "a"), "v");
}

TEST_F(XmlUtils, ConvertsBetweenUtf8AndWideStrings) {
    BSTR text = nullptr;
    CXmlUtils::ConvertUTF8toBSTR("\xE2\x82\xAC", text);
    ASSERT_NE(text, nullptr);
    std::string back = "before";
    CXmlUtils::ConvertBSTRtoUTF8(text, back);
    EXPECT_EQ(back, "\xE2\x82\xAC");
    EXPECT_TRUE(CXmlUtils::CmpBSTRwithSTR(text, back));
    EXPECT_FALSE(CXmlUtils::CmpBSTRwithSTR(text, "x"));
    EXPECT_FALSE(CXmlUtils::CmpBSTRwithSTR(nullptr, ""));
    SysFreeString(text);
}

struct CutCase {
    unsigned size;
    std::u16string buffer;  // of five units, '#' before
};

TEST(ConvertBstrToTchar, CutsToTheBytesOfTheBufferAndTerminates) {
    using namespace std::string_literals;
    for (CutCase const& row : {CutCase{0, u"#####"s}, CutCase{2, u"\0####"s}, CutCase{4, u"a\0###"s},
                               CutCase{8, u"abc\0#"s}, CutCase{10, u"abcd\0"s}}) {
        std::u16string buffer = u"#####";
        CXmlUtils::ConvertBSTRtoTCHAR(u"abcdefg", buffer.data(), row.size);
        EXPECT_EQ(buffer, row.buffer) << row.size;
    }
}

struct TokenCase {
    char const* name;
    char const* text;
    std::vector<std::string> tokens;
};
class Tokens : public testing::TestWithParam<TokenCase> {};

TokenCase const kTokens[] = {
    {"One", "abc", {"abc"}},
    {"Two", "a;b", {"a", "b"}},
    {"EmptyBetween", "a;;b", {"a", "b"}},
    {"EmptyAround", ";a; b ;", {"a", " b "}},
    {"OnlySeparators", ";;", {}},
};

TEST_P(Tokens, AreThePiecesThatAreNotEmpty) {
    std::string text = GetParam().text;
    char ignored = ',';
    std::string* tokens = nullptr;
    unsigned count = 99;
    ASSERT_TRUE(CXmlUtils::Tokenize(text, ignored, tokens, count));
    std::unique_ptr<std::string[]> const owner(tokens);
    ASSERT_NE(tokens, nullptr);
    EXPECT_EQ(std::vector<std::string>(tokens, tokens + count), GetParam().tokens);
    EXPECT_EQ(ignored, ',');
}
INSTANTIATE_TEST_SUITE_P(, Tokens, testing::ValuesIn(kTokens),
                         [](auto const& row) { return std::string(row.param.name); });

TEST(Tokenize, LeavesEverythingAsItWasForAnEmptyText) {
    std::string text;
    char ignored = ',';
    std::string* tokens = &text;
    unsigned count = 99;
    EXPECT_FALSE(CXmlUtils::Tokenize(text, ignored, tokens, count));
    EXPECT_EQ(tokens, &text);
    EXPECT_EQ(count, 99U);
}

// Documents that others wrote: some of what there is below the places of the system's own.
std::vector<std::string> SystemDocuments() {
    constexpr std::size_t kMost = 40;
    constexpr std::uintmax_t kLargest = 500000;
    std::vector<std::string> files;
    for (char const* place : {"/usr/share/xml", "/usr/share/mime", "/etc/xml", "/usr/share/icons"}) {
        std::error_code error;
        fs::recursive_directory_iterator at(place, fs::directory_options::skip_permission_denied, error);
        for (; !error && at != fs::recursive_directory_iterator() && files.size() < kMost;
             at.increment(error)) {
            auto const extension = at->path().extension();
            std::error_code none;
            if ((extension == ".xml" || extension == ".svg") && at->file_size(none) < kLargest) {
                files.push_back(at->path());
            }
        }
    }
    return files;
}

TEST_F(XmlUtils, WorksOnDocumentsOfTheSystem) {
    unsigned loaded = 0;
    for (std::string const& file : SystemDocuments()) {
        SCOPED_TRACE(file);
        XmlDocument const document = XmlDocument::LoadFile(file.c_str());
        if (!document) {
            continue;  // not every one is free of entities of its own
        }
        ++loaded;
        EXPECT_TRUE(CXmlUtils::ChangeAttributeValue(document, "/*", "corvalen", "x"));
        EXPECT_TRUE(CXmlUtils::AddNewElement(document, "/*", "corvalen", 8));
        XmlDocument const again = XmlDocument::Load(document.Save());
        ASSERT_TRUE(again);
        EXPECT_TRUE(CXmlUtils::IsElementExist(again, "/*[@corvalen='x']/corvalen[last()]"));
        EXPECT_TRUE(CXmlUtils::RemoveNode(again, "/*"));
        EXPECT_FALSE(CXmlUtils::IsElementExist(again, "//*"));
    }
    if (loaded == 0) {
        GTEST_SKIP() << "no XML of the system is installed here";
    }
}

}  // namespace
