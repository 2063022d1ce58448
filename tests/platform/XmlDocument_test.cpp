#include "corvalen/platform/XmlDocument.h"

#include <gtest/gtest.h>
#include <locale.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "tests/support/Unique.h"

namespace {

using System::Platform::XmlDocument;
using System::Platform::XmlError;
using System::Platform::XmlKind;
using System::Platform::XmlNode;

constexpr char kBook[] =
    "<?xml version=\"1.0\"?><!DOCTYPE book><!--c--><book xmlns:p=\"urn:p\"><p:part id=\"1\">a <b>bold</b> "
    "text&amp;<![CDATA[<raw>]]></p:part><part id=\"2\" price=\"2.5\"/><?go now?></book>";

XmlDocument Loaded(std::string const& bytes) {
    std::string error;
    XmlDocument document = XmlDocument::Load(bytes, &error);
    EXPECT_TRUE(document) << error;
    return document;
}

std::uint32_t StatusOf(auto&& work) {
    try {
        work();
    } catch (XmlError const& error) {
        return error.Status();
    }
    return 0;
}

std::string Nested(unsigned depth) {
    std::string text;
    for (unsigned i = 0; i < depth; ++i) {
        text += "<a>";
    }
    for (unsigned i = 0; i < depth; ++i) {
        text += "</a>";
    }
    return text;
}

std::string BytesOf(std::u16string_view text) {
    return {reinterpret_cast<char const*>(text.data()), text.size() * sizeof(char16_t)};
}

TEST(XmlDocument, SavesWhatItLoaded) {
    EXPECT_EQ(Loaded(kBook).Save(), kBook);
    std::string const mixed = "<p>  <i>a</i> <i>b</i>\n\t</p>";
    EXPECT_EQ(Loaded(mixed).Save(), mixed);
}

TEST(XmlDocument, LeavesOutBlanksAroundTheElementAtTheTopAndATerminator) {
    EXPECT_EQ(Loaded("\n<?xml version=\"1.0\"?>\r\n<!--c-->\t<a b=\"&amp;\"/> \n").Save(),
              "<?xml version=\"1.0\"?><!--c--><a b=\"&amp;\"/>");
    EXPECT_EQ(Loaded(std::string("<a/>\n\0", 6)).Save(), "<a/>");
}

TEST(XmlDocument, KeepsLineEndsThatWereWrittenAsReferences) {
    std::string const text = "<p a=\"&#13;&#10;\">x&#13;y</p>";
    EXPECT_EQ(Loaded(text).Save(), text);
    EXPECT_EQ(Loaded("<p>a\r\nb</p>").Save(), "<p>a\nb</p>");
}

TEST(XmlNode, RefusesCharactersThatXmlDoesNotHave) {
    XmlDocument const document = Loaded("<a b=\"1\"/>");
    XmlNode const attribute = document.DocumentElement().Attribute(u"b");
    for (char16_t const c : {u'\0', u'\1', u'\xFFFF'}) {
        EXPECT_EQ(StatusOf([&] { attribute.SetValue(std::u16string(1, c)); }), XmlError::kInvalidArgument);
    }
    EXPECT_EQ(attribute.Value(), u"1");
}

TEST(XmlDocument, ReadsOtherEncodingsAndSavesUtf8) {
    EXPECT_EQ(Loaded("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a b=\"\xE9\"/>").Save(),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a b=\"\xC3\xA9\"/>");
    // What only looks like a declaration declares nothing.
    std::string const utf8 = "<?xml-x encoding=\"ISO-8859-1\"?><a>\xC3\xA9</a>";
    EXPECT_EQ(Loaded(utf8).Save(), utf8);
    EXPECT_EQ(Loaded("\xEF\xBB\xBF" + utf8).Save(), utf8);
    EXPECT_EQ(Loaded(BytesOf(u"\uFEFF<a>\u20AC\u0100</a>")).Save(), "<a>\xE2\x82\xAC\xC4\x80</a>");
}

struct RefusedCase {
    char const* name;
    std::string bytes;
    char const* reason;
};
class RefusedXml : public testing::TestWithParam<RefusedCase> {};

RefusedCase const kRefused[] = {
    {"Nothing", "", "load XML"},
    {"Text", "hello", "load XML"},
    {"OpenTag", "<a", "at character"},
    {"WrongEndTag", "<a></b>", "at character"},
    {"TwoAtTheTop", "<a/><b/>", "not exactly one element"},
    {"TextBefore", "text<a/>", "text outside"},
    {"TextBehind", "<a/>\nand more", "text outside"},
    {"ReferenceAtTheTop", "&#32;<a/>", "text outside"},
    {"CDataAtTheTop", "<a/><![CDATA[ ]]>", "text outside"},
    {"ElementBehindAZero", std::string("<a/>\0<b/>", 9), "behind a zero"},
    {"ElementBehindAWideZero", BytesOf(std::u16string_view(u"\uFEFF<a/>\0<b/>", 10)), "behind a zero"},
    {"SameAttributeTwice", "<a b=\"1\" c=\"\" b=\"2\"/>", "twice"},
    {"NotInItsEncoding", "<a b=\"\xE9\"/>", "no text"},
    {"SecondDeclaration", "<!--c--><?xml version=\"1.0\"?><a/>", "at the beginning"},
    {"ControlCharacter", "<a>\x01</a>", "no text"},
    {"OutsideEntity", "<!DOCTYPE a [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><a>&e;</a>", "entity"},
    {"InsideEntity", "<!DOCTYPE a [<!ENTITY e \"x\">]><a b=\"&e;\"/>", "entity"},
    {"ReferenceToZero", "<a>&#0;</a>", "entity"},
    {"OneLevelTooMany", Nested(XmlDocument::kMaxDepth + 1), "inside each other"},
    {"AMillionLevels", Nested(1000000), "inside each other"},
    {"AMillionOpenTags", std::string(1000000, '<'), "at character"},
};

TEST_P(RefusedXml, IsNoDocumentAndTheReasonIsTold) {
    std::string error;
    EXPECT_FALSE(XmlDocument::Load(GetParam().bytes, &error));
    EXPECT_NE(error.find(GetParam().reason), std::string::npos) << error;
}
INSTANTIATE_TEST_SUITE_P(, RefusedXml, testing::ValuesIn(kRefused),
                         [](auto const& row) { return std::string(row.param.name); });

struct QueryCase {
    char const* name;
    char16_t const* query;
    XmlKind kind;  // kNone if nothing is selected
    char16_t const* text;
};
class Query : public testing::TestWithParam<QueryCase> {};

constexpr QueryCase kQueries[] = {
    {"Element", u"/book/part", XmlKind::kElement, u"part"},
    {"FirstInDocumentOrder", u"//part[@id='2'] | //b", XmlKind::kElement, u"b"},
    {"Prefix", u"//p:part", XmlKind::kElement, u"p:part"},
    {"Attribute", u"//part/@id", XmlKind::kAttribute, u"2"},
    {"Text", u"//b/text()", XmlKind::kText, u"bold"},
    {"Comment", u"/comment()", XmlKind::kComment, u"c"},
    {"Document", u"/", XmlKind::kDocument, u""},
    {"Number", u"//part[@price * 2 = 5.0]", XmlKind::kElement, u"part"},
    {"Nothing", u"//nobody", XmlKind::kNone, u""},
};

TEST_P(Query, SelectsTheFirstMatch) {
    XmlNode const node = Loaded(kBook).SelectSingleNode(GetParam().query);
    ASSERT_EQ(node.Kind(), GetParam().kind);
    if (node) {
        EXPECT_EQ(node.Kind() == XmlKind::kElement ? node.Name() : node.Value(), GetParam().text);
    }
}
INSTANTIATE_TEST_SUITE_P(, Query, testing::ValuesIn(kQueries),
                         [](auto const& row) { return std::string(row.param.name); });

TEST(XmlDocument, RefusesQueriesThatAreNoXPathOrSelectNoNodes) {
    XmlDocument const document = Loaded(kBook);
    std::u16string const deep = std::u16string(100000, u'(') + u"a" + std::u16string(100000, u')');
    std::u16string chain = u"a";
    std::u16string steps = u"a";
    for (int i = 0; i < 100000; ++i) {
        chain += u"|a";
        steps += u"/a";
    }
    for (std::u16string const& query : {std::u16string(u""), std::u16string(u"//["), std::u16string(u"1+1"),
                                        std::u16string(u"count(//part)"), std::u16string(u"a\0b", 3),
                                        std::u16string(u"$x"), deep, chain, steps}) {
        EXPECT_EQ(StatusOf([&] { static_cast<void>(document.SelectSingleNode(query)); }),
                  XmlError::kInvalidArgument);
    }
}

TEST(XmlDocument, ReadsNumbersWhateverTheLocaleIs) {
    locale_t const comma = ::newlocale(LC_NUMERIC_MASK, "de_DE.UTF-8", nullptr);
    if (comma == nullptr) {
        GTEST_SKIP() << "no locale with a decimal comma is installed";
    }
    locale_t const before = ::uselocale(comma);
    EXPECT_TRUE(Loaded(kBook).SelectSingleNode(u"//part[@price = 2.5]"));
    EXPECT_EQ(::uselocale(before), comma);
    ::freelocale(comma);
}

TEST(XmlNode, IsOneNodeThroughAllReferences) {
    XmlDocument const document = Loaded(kBook);
    XmlNode const part = document.SelectSingleNode(u"//part");
    EXPECT_EQ(part, document.SelectSingleNode(u"/book/part[1]"));
    EXPECT_EQ(part.Parent(), document.DocumentElement());
    EXPECT_EQ(part.Parent().Parent(), XmlNode(document));
    EXPECT_FALSE(document.Parent());
    EXPECT_FALSE(part.Attribute(u"id").Parent());
    EXPECT_FALSE(part.Attribute(u"none"));
}

TEST(XmlNode, OutlivesItsRemovalWithAllBelowIt) {
    XmlDocument document = Loaded(kBook);
    XmlNode const part = document.SelectSingleNode(u"//p:part");
    XmlNode const bold = document.SelectSingleNode(u"//b/text()");
    XmlNode const id = part.Attribute(u"id");
    part.Parent().RemoveChild(part);
    EXPECT_FALSE(document.SelectSingleNode(u"//b"));
    EXPECT_FALSE(part.Parent());
    EXPECT_EQ(bold.Parent().Parent(), part);
    document = nullptr;
    EXPECT_EQ(bold.Value(), u"bold");
    EXPECT_EQ(id, part.Attribute(u"id"));
    EXPECT_EQ(id.Value(), u"1");
}

TEST(XmlNode, KeepsItsDocumentAlive) {
    XmlNode const part = Loaded(kBook).SelectSingleNode(u"//part");
    EXPECT_EQ(part.Parent().Name(), u"book");
}

TEST(XmlNode, MovesWithinAndBetweenDocuments) {
    XmlDocument const from = Loaded("<a><b><c/></b><d/></a>");
    XmlNode const b = from.SelectSingleNode(u"//b");
    XmlNode const c = from.SelectSingleNode(u"//c");
    from.SelectSingleNode(u"//d").AppendChild(b);
    EXPECT_EQ(from.Save(), "<a><d><b><c/></b></d></a>");
    EXPECT_EQ(c.Parent(), b);
    EXPECT_EQ(StatusOf([&] { c.AppendChild(b); }), XmlError::kFail);
    XmlDocument const to = XmlDocument::Create();
    to.AppendChild(b);
    EXPECT_EQ(to.Save() + from.Save(), "<b><c/></b><a><d/></a>");
    EXPECT_EQ(c, to.SelectSingleNode(u"/b/c"));
    EXPECT_EQ(StatusOf([&] { to.AppendChild(to.CreateElement(u"second")); }), XmlError::kFail);
}

TEST(XmlNode, GrowsNoDeeperThanADocumentMayBe) {
    XmlDocument const document = Loaded(Nested(XmlDocument::kMaxDepth - 1));
    XmlNode lowest = document.DocumentElement();
    while (lowest.FirstChild()) {
        lowest = lowest.FirstChild();
    }
    XmlNode const child = document.CreateElement(u"b");
    lowest.AppendChild(child);
    EXPECT_EQ(StatusOf([&] { child.AppendChild(document.CreateElement(u"c")); }), XmlError::kFail);
    document.RemoveChild(document.DocumentElement());
    EXPECT_EQ(document.Save(), "");
}

TEST(XmlNode, ReplacesAnAttributeThatSomeoneStillHolds) {
    XmlDocument const document = Loaded("<a x=\"1\" y=\"2\"/>");
    XmlNode const element = document.DocumentElement();
    XmlNode const old = element.Attribute(u"x");
    XmlNode const added = document.CreateAttribute(u"x");
    added.SetValue(u"<\U0001F600\"");
    element.SetAttribute(added);
    element.SetAttribute(added);
    EXPECT_EQ(element.Attribute(u"x"), added);
    EXPECT_EQ(old.Value(), u"1");
    EXPECT_EQ(document.Save(), "<a x=\"&lt;\xF0\x9F\x98\x80&quot;\" y=\"2\"/>");
    EXPECT_EQ(StatusOf([&] { document.CreateElement(u"b").SetAttribute(added); }), XmlError::kFail);
    element.SetAttribute(old);
    EXPECT_EQ(element.Attribute(u"x").Value(), u"1");
}

TEST(XmlDocument, CreatesNothingUnderWhatIsNoName) {
    XmlDocument const document = XmlDocument::Create();
    for (char16_t const* name : {u"", u"1a", u"a b", u"<", u"-a", u"\u00D7"}) {
        EXPECT_EQ(StatusOf([&] { static_cast<void>(document.CreateElement(name)); }),
                  XmlError::kInvalidArgument);
        EXPECT_EQ(StatusOf([&] { static_cast<void>(document.CreateAttribute(name)); }),
                  XmlError::kInvalidArgument);
    }
    EXPECT_EQ(document.CreateElement(u"p:\u00E9l\u4E2D-1").Name(), u"p:\u00E9l\u4E2D-1");
}

TEST(XmlDocument, SavesToAFileThroughALinkAndKeepsItsMode) {
    Support::TemporaryFolder const folder;
    Support::WriteFile(folder / "file", "<old/>");
    ASSERT_EQ(::chmod((folder / "file").c_str(), 0640), 0);
    std::filesystem::create_symlink(folder / "file", folder / "link");
    ASSERT_EQ(Loaded(kBook).SaveFile((folder / "link").c_str()), 0);
    EXPECT_EQ(XmlDocument::LoadFile((folder / "file").c_str()).Save(), kBook);
    struct stat found {};
    ASSERT_EQ(::lstat((folder / "file").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777U, 0640U);
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
    EXPECT_EQ(Loaded(kBook).SaveFile((folder / "no/file").c_str()), ENOENT);
    std::string error;
    EXPECT_FALSE(XmlDocument::LoadFile((folder / "none").c_str(), &error));
    EXPECT_NE(error.find("No such file or directory (2)"), std::string::npos) << error;
}

TEST(XmlNode, ThatIsNoneRefusesEverything) {
    XmlNode const none;
    EXPECT_EQ(none.Kind(), XmlKind::kNone);
    EXPECT_EQ(StatusOf([&] { static_cast<void>(none.Parent()); }), XmlError::kPointer);
    EXPECT_EQ(StatusOf([&] { static_cast<void>(XmlDocument().SelectSingleNode(u"/")); }), XmlError::kPointer);
}

}  // namespace
