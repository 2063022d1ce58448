#pragma once

#include <string>

#include "corvalen/Export.h"
#include "corvalen/platform/XmlDocument.h"

namespace System::XML {

/// Work on an XML document with plain strings: nodes are named by XPath 1.0 queries, which select their first
/// match, and all text is UTF-8 up to U+FFFF. Only the names of attributes are text in the local code page.
///
/// Ownership: documents and nodes are counted references; none stays behind in here.
/// Threads: one at a time for each document. The converters have to be started (InitFramework).
/// Errors: the operations on documents give false and tell no cause; what they did before stays done. Only
/// CreateAttribute throws (System::Platform::XmlError), and, on a failed allocation, it and the conversions.
class CORVALEN_API CXmlUtils {
public:
    /// For hosts; nothing in here keeps to them.
    static constexpr unsigned int MAX_TAG_VALUE = 500;
    static constexpr unsigned int MAX_TAG_LEN = 255;

    /// A new BSTR of UTF-8 text, for SysFreeString. `out` stays as it was if the text is not to be had.
    static void ConvertUTF8toBSTR(std::string const& text, char16_t*& out);
    /// `text`, not null, as UTF-8.
    static void ConvertBSTRtoUTF8(char16_t const* text, std::string& out);
    /// Whether `text` is not null and its UTF-8 equals `other` byte for byte.
    [[nodiscard]] static bool CmpBSTRwithSTR(char16_t const* text, std::string const& other);
    /// Fills the `size` bytes of `buffer` with zeros and copies `text`, not null, cut to leave a terminator.
    static void ConvertBSTRtoTCHAR(char16_t const* text, char16_t* buffer, unsigned int size);

    /// Reads an attribute of `node`; `value` is empty if there is none. False for what has no attributes.
    static bool GetAttribute(Platform::XmlNode node, char const* name, std::string& value);
    /// Whether the query selects anything.
    [[nodiscard]] static bool IsElementExist(Platform::XmlDocument document, std::string const& path);

    /// The three below change the first node that the query selects. If it selects nothing, they change
    /// nothing and give true.
    ///
    /// Adds an empty element, called by the `nameLength` bytes at `name`, as last child.
    static bool AddNewElement(Platform::XmlDocument document, std::string const& path, char const* name,
                              unsigned int nameLength);
    /// Sets an attribute, which is created if the element lacks it. A value with a character that XML does
    /// not have (most control characters) leaves the old value, a new attribute empty, and the result true.
    static bool ChangeAttributeValue(Platform::XmlDocument document, std::string const& path,
                                     char const* name, std::string const& value);
    /// Removes the node; false if it has no parent, as a document and an attribute.
    static bool RemoveNode(Platform::XmlDocument document, std::string const& path);

    /// Puts a new attribute on `node`, in the place of an old one of that name. False for a null document,
    /// node or name. Throws XmlError: kPointer for a node that can't have attributes, kInvalidArgument for
    /// what is no name.
    static bool CreateAttribute(Platform::XmlDocument document, Platform::XmlNode node, char const* name,
                                std::string const& value);

    /// Splits `text` at each ';' into the pieces that are not empty. The caller releases `tokens` with
    /// delete[], also when `count` is 0. False for an empty `text`, which leaves both as they were. `ignored`
    /// is neither read nor written.
    static bool Tokenize(std::string const& text, char& ignored, std::string*& tokens, unsigned int& count);
};

}  // namespace System::XML
