#include <algorithm>
#include <new>

#include "corvalen/platform/XmlDocument.h"
#include "platform/XmlText.h"
#include "platform/XmlTree.h"

namespace System::Platform {

namespace {

XmlNodeState& Require(std::shared_ptr<XmlNodeState> const& state) {
    if (state == nullptr) {
        throw XmlError(XmlError::kPointer);
    }
    return *state;
}

void RequireThat(bool holds, std::uint32_t status = XmlError::kFail) {
    if (!holds) {
        throw XmlError(status);
    }
}

XmlKind KindOf(pugi::xml_node node) {
    switch (node.type()) {
        case pugi::node_document:
            return XmlKind::kDocument;
        case pugi::node_element:
            return XmlKind::kElement;
        case pugi::node_pcdata:
            return XmlKind::kText;
        case pugi::node_cdata:
            return XmlKind::kCData;
        case pugi::node_comment:
            return XmlKind::kComment;
        case pugi::node_pi:
        case pugi::node_declaration:
            return XmlKind::kInstruction;
        case pugi::node_doctype:
            return XmlKind::kDoctype;
        case pugi::node_null:
            break;
    }
    return XmlKind::kNone;
}

XmlNodeState& RequireElement(std::shared_ptr<XmlNodeState> const& state) {
    XmlNodeState& found = Require(state);
    RequireThat(found.isElement, XmlError::kPointer);
    return found;
}

std::string RequireText(std::u16string_view value) {
    std::string text = Utf8Of(value);
    RequireThat(IsXmlText(text), XmlError::kInvalidArgument);
    return text;
}

bool IsWithin(pugi::xml_node node, pugi::xml_node top) {
    while (node && node != top) {
        node = node.parent();
    }
    return node == top;
}

// Whether `child` may stand at the top of a document.
bool FitsAtTop(pugi::xml_document const& document, pugi::xml_node child) {
    pugi::xml_node const element = document.document_element();
    return child.type() == pugi::node_element
               ? !element || element == child
               : child.type() != pugi::node_pcdata && child.type() != pugi::node_cdata;
}

}  // namespace

char const* XmlError::what() const noexcept {
    switch (m_Status) {
        case kPointer:
            return "XML: a null node or document was used";
        case kOutOfMemory:
            return "XML: no memory for a string";
        case kInvalidArgument:
            return "XML: not a name, a node or a query that fits here";
        default:
            return "XML: not possible at this place";
    }
}

XmlKind XmlNode::Kind() const {
    if (m_State == nullptr) {
        return XmlKind::kNone;
    }
    return m_State->attribute ? XmlKind::kAttribute : KindOf(m_State->node);
}

std::u16string XmlNode::Name() const {
    XmlNodeState const& state = Require(m_State);
    return Utf16Of(state.attribute ? state.attribute.name() : state.node.name());
}

std::u16string XmlNode::Value() const {
    XmlNodeState const& state = Require(m_State);
    return Utf16Of(state.attribute ? state.attribute.value() : state.node.value());
}

void XmlNode::SetValue(std::u16string_view value) const {
    XmlNodeState& state = Require(m_State);
    XmlKind const kind = Kind();
    RequireThat(kind != XmlKind::kDocument && kind != XmlKind::kElement && kind != XmlKind::kDoctype);
    std::string text = RequireText(value);
    if (kind != XmlKind::kAttribute && kind != XmlKind::kText) {
        // There are no references in here that could stand for it.
        std::replace(text.begin(), text.end(), '\r', '\n');
    }
    bool const isSet =
        state.attribute ? state.attribute.set_value(text.c_str()) : state.node.set_value(text.c_str());
    RequireThat(isSet);
}

XmlNode XmlNode::Parent() const {
    XmlNodeState const& state = Require(m_State);
    bool const isAtTop = state.node.parent().type() == pugi::node_document;
    if (state.attribute || (isAtTop && !state.tree->isDocument)) {
        return {};
    }
    return XmlNode(state.tree->StateOf(state.node.parent()));
}

XmlNode XmlNode::FirstChild() const {
    XmlNodeState const& state = Require(m_State);
    return state.attribute ? XmlNode() : XmlNode(state.tree->StateOf(state.node.first_child()));
}

XmlNode XmlNode::NextSibling() const {
    XmlNodeState const& state = Require(m_State);
    return state.attribute ? XmlNode() : XmlNode(state.tree->StateOf(state.node.next_sibling()));
}

void XmlNode::AppendChild(XmlNode const& child) const {
    XmlNodeState const& above = Require(m_State);
    XmlNodeState const& below = Require(child.m_State);
    bool const takesChildren = Kind() == XmlKind::kElement || Kind() == XmlKind::kDocument;
    RequireThat(takesChildren && !below.attribute && child.Kind() != XmlKind::kDocument);
    RequireThat(below.node.type() != pugi::node_declaration && !IsWithin(above.node, below.node));
    RequireThat(Kind() == XmlKind::kElement || FitsAtTop(above.tree->document, below.node));
    RequireThat(DepthOf(above.node) + HeightOf(below.node) <= XmlDocument::kMaxDepth);
    Transplant(*below.tree, below.node, *above.tree, above.node);
}

void XmlNode::RemoveChild(XmlNode const& child) const {
    XmlNodeState const& above = Require(m_State);
    XmlNodeState const& below = Require(child.m_State);
    RequireThat(!below.attribute && !above.attribute && below.node.parent() == above.node,
                XmlError::kInvalidArgument);
    auto const alone = std::make_shared<XmlTree>(false);
    Transplant(*below.tree, below.node, *alone, alone->document);
}

XmlNode XmlNode::Attribute(std::u16string_view name) const {
    XmlNodeState const& state = RequireElement(m_State);
    pugi::xml_attribute const attribute = state.node.attribute(Utf8Of(name).c_str());
    return attribute ? XmlNode(state.tree->StateOf(state.node, attribute)) : XmlNode();
}

bool XmlNode::ChangeAttribute(std::u16string_view name, std::u16string_view value) const {
    // Both before either is used: what has just been written byte by byte is slow to read.
    std::string const nameText = Utf8Of(name);
    std::string const text = Utf8Of(value);
    pugi::xml_attribute attribute = RequireElement(m_State).node.attribute(nameText.c_str());
    bool const isPossible = IsXmlText(text);
    if (isPossible && attribute.set_value(text.c_str())) {
        return true;
    }
    // There is none, or it can't have this value.
    RequireThat(!attribute, isPossible ? XmlError::kFail : XmlError::kInvalidArgument);
    return false;
}

void XmlNode::SetAttribute(XmlNode const& attribute) const {
    XmlNodeState& element = RequireElement(m_State);
    XmlNodeState& added = Require(attribute.m_State);
    RequireThat(static_cast<bool>(added.attribute), XmlError::kInvalidArgument);
    if (added.node == element.node) {
        return;
    }
    RequireThat(!added.tree->isDocument && added.node.name()[0] == '\0');
    element.tree->held.reserve(element.tree->held.size() + 1);
    pugi::xml_attribute const old = element.node.attribute(added.attribute.name());
    pugi::xml_attribute const copy = old ? element.node.insert_copy_after(added.attribute, old)
                                         : element.node.append_copy(added.attribute);
    if (!copy) {
        throw std::bad_alloc();
    }
    if (old) {
        DetachAttribute(*element.tree, element.node, old);
    }
    added.MoveTo(element.tree, element.node, copy);
}

}  // namespace System::Platform
