#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "corvalen/Export.h"

namespace System::Platform {

class XmlDocument;
struct XmlNodeState;

/// What the operations of documents and nodes throw when they can't do what they were asked.
class CORVALEN_API XmlError : public std::exception {
public:
    static constexpr std::uint32_t kFail = 0x80004005;             ///< not possible at this place
    static constexpr std::uint32_t kPointer = 0x80004003;          ///< a null node or document was used
    static constexpr std::uint32_t kOutOfMemory = 0x8007000E;      ///< no memory for a string
    static constexpr std::uint32_t kInvalidArgument = 0x80070057;  ///< no XPath, no name

    explicit XmlError(std::uint32_t status) noexcept : m_Status(status) {}
    [[nodiscard]] std::uint32_t Status() const noexcept { return m_Status; }
    [[nodiscard]] char const* what() const noexcept override;

private:
    std::uint32_t m_Status;
};

enum class XmlKind {
    kNone,
    kDocument,
    kElement,
    kAttribute,
    kText,
    kCData,
    kComment,
    kInstruction,
    kDoctype
};

/// A counted reference to a node of an XML document, or to none. Two references to one node are equal.
///
/// Ownership: a node lives as long as a reference to it, also when it leaves its tree, and then with all that
/// is below it; a document lives as long as a reference to it or to a node of it.
/// Threads: a document with its nodes belongs to one thread at a time, and that includes the end of the
/// references.
/// Errors: XmlError, and allocation failure. On a reference to none, Kind is kNone and all else throws
/// XmlError::kPointer. Names and values are UTF-16; a half of a surrogate pair becomes U+FFFD.
class CORVALEN_API XmlNode {
public:
    XmlNode() = default;
    XmlNode(std::nullptr_t) {}
    explicit operator bool() const { return m_State != nullptr; }
    bool operator==(XmlNode const& other) const = default;

    [[nodiscard]] XmlKind Kind() const;
    /// The name of an element, an attribute or an instruction; else empty.
    [[nodiscard]] std::u16string Name() const;
    /// The text of an attribute, a text, a comment or an instruction; empty for an element or a document.
    [[nodiscard]] std::u16string Value() const;
    /// Sets that text. Throws kFail for an element, a document or a document type, kInvalidArgument for a
    /// character that XML does not have (most control characters). Outside of attributes and texts a carriage
    /// return becomes a line feed.
    void SetValue(std::u16string_view value) const;

    /// The node above; none for a document, an attribute, and a node that is in no tree.
    [[nodiscard]] XmlNode Parent() const;
    [[nodiscard]] XmlNode FirstChild() const;
    [[nodiscard]] XmlNode NextSibling() const;

    /// Makes `child`, with all below it, the last child of this node; it leaves the place where it was.
    /// Throws kFail if it can't stand here: an attribute, a document or its XML declaration, a node above
    /// this one, a second element or text at the top of a document, or a tree deeper than
    /// XmlDocument::kMaxDepth.
    void AppendChild(XmlNode const& child) const;
    /// Takes `child` out of this tree. Throws kInvalidArgument if it is no child of this node.
    void RemoveChild(XmlNode const& child) const;

    /// Only an element has attributes: the three below throw kPointer on any other node.
    ///
    /// The attribute called `name`, or none.
    [[nodiscard]] XmlNode Attribute(std::u16string_view name) const;
    /// Sets the attribute called `name` as SetValue does, if there is one; returns whether there is.
    [[nodiscard]] bool ChangeAttribute(std::u16string_view name, std::u16string_view value) const;
    /// Puts `attribute` on this element, in the place of one of the same name. Throws kInvalidArgument if it
    /// is no attribute, kFail if it is on another element.
    void SetAttribute(XmlNode const& attribute) const;

protected:
    friend class XmlDocument;
    explicit XmlNode(std::shared_ptr<XmlNodeState> state) : m_State(std::move(state)) {}

    std::shared_ptr<XmlNodeState> m_State;
};

/// A counted reference to an XML document held in memory, or to none. All of XmlNode's promises hold.
///
///     std::string error;
///     XmlDocument const document = XmlDocument::LoadFile("phones.xml", &error);
///     XmlNode const phone = document.SelectSingleNode(u"//phone[@imei='350']");
///     ...
///     int const failure = document.SaveFile("phones.xml");
///
/// White space inside elements, comments, instructions and the document type are kept as loaded. Nothing is
/// read from anywhere else, and no entity is ever expanded: a document whose text refers to entities of its
/// own is refused. Some slips are let through and saved in the form that XML wants: '<' in the value of an
/// attribute, "]]>" in a text, "--" in a comment. Namespaces and the document type are not looked into.
class CORVALEN_API XmlDocument : public XmlNode {
public:
    /// Elements inside each other, from the top to the lowest.
    static constexpr unsigned kMaxDepth = 4096;

    XmlDocument() = default;
    XmlDocument(std::nullptr_t) {}

    /// A new document without content.
    [[nodiscard]] static XmlDocument Create();
    /// Reads a document in UTF-8, UTF-16, UTF-32 (with or without a byte order mark) or declared ISO-8859-1.
    /// None if it is no XML with one element at the top, or deeper than kMaxDepth; `error`, unless null, then
    /// gets the reason, and the place if the parser stopped there.
    [[nodiscard]] static XmlDocument Load(std::string_view bytes, std::string* error = nullptr);
    /// The same with the content of a file; the error names the file.
    [[nodiscard]] static XmlDocument LoadFile(char const* path, std::string* error = nullptr);

    /// The document in UTF-8, as loaded but for what was changed.
    [[nodiscard]] std::string Save() const;
    /// Puts that into a file, which is complete or untouched whatever happens: a new one takes its place,
    /// with the old one's mode. Returns 0 or an errno value.
    [[nodiscard]] int SaveFile(char const* path) const;

    /// The element at the top, or none.
    [[nodiscard]] XmlNode DocumentElement() const;
    /// A new element in no tree. Throws kInvalidArgument if `name` is no XML name.
    [[nodiscard]] XmlNode CreateElement(std::u16string_view name) const;
    /// A new attribute on no element, with an empty value. Throws as CreateElement.
    [[nodiscard]] XmlNode CreateAttribute(std::u16string_view name) const;

    /// The first node, in document order, that an XPath 1.0 expression selects, or none. Prefixes are
    /// compared as they are written. Numbers are read independently of the locale. Throws kInvalidArgument
    /// if it is no XPath, or does not select nodes.
    [[nodiscard]] XmlNode SelectSingleNode(std::u16string_view query) const;

private:
    explicit XmlDocument(std::shared_ptr<XmlNodeState> state) : XmlNode(std::move(state)) {}
};

}  // namespace System::Platform
