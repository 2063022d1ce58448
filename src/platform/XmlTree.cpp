#include "platform/XmlTree.h"

#include <algorithm>
#include <new>

#include "platform/XmlText.h"

namespace System::Platform {

namespace {

constexpr std::size_t kCompiledQueries = 8;
// As a fragment, so that text outside of the element at the top is seen and not passed over.
constexpr unsigned kParseAsWritten =
    (pugi::parse_full | pugi::parse_ws_pcdata | pugi::parse_fragment) & ~pugi::parse_escapes;

struct Move {
    XmlNodeState* state;
    pugi::xml_node node;
    pugi::xml_attribute attribute;
};

XmlNodeState* HeldAs(XmlTree const& tree, void const* key) {
    auto const found = tree.held.find(key);
    return found != tree.held.end() ? found->second : nullptr;
}

// Notes where the held ones among `node` and its attributes have their copies. False if the copy lacks one.
bool NoteMoves(XmlTree const& source, pugi::xml_node node, pugi::xml_node copy, std::vector<Move>& moves) {
    if (!copy || copy.type() != node.type()) {
        return false;
    }
    if (XmlNodeState* const state = HeldAs(source, node.internal_object())) {
        moves.push_back({state, copy, {}});
    }
    pugi::xml_attribute attributeCopy = copy.first_attribute();
    for (pugi::xml_attribute const attribute : node.attributes()) {
        if (!attributeCopy) {
            return false;
        }
        if (XmlNodeState* const state = HeldAs(source, attribute.internal_object())) {
            moves.push_back({state, copy, attributeCopy});
        }
        attributeCopy = attributeCopy.next_attribute();
    }
    return true;
}

// Whether the units of the text have two or four bytes: its first character shows it.
bool HasWideUnits(std::string_view bytes) {
    constexpr std::size_t kLongestUnit = 4;
    return bytes.starts_with("\xFE\xFF") || bytes.starts_with("\xFF\xFE") ||
           bytes.substr(0, kLongestUnit).find('\0') != std::string_view::npos;
}

std::size_t UnitOf(pugi::xml_encoding encoding) {
    switch (encoding) {
        case pugi::encoding_utf16_le:
        case pugi::encoding_utf16_be:
            return sizeof(char16_t);
        case pugi::encoding_utf32_le:
        case pugi::encoding_utf32_be:
            return sizeof(char32_t);
        default:
            return 1;
    }
}

// The parser takes the first zero for the end. A terminator, or several, may stand there, but nothing else.
bool HasTextBehindZero(std::string_view bytes, std::size_t unit) {
    static constexpr char kZeros[sizeof(char32_t)] = {};
    std::string_view const zero(kZeros, unit);
    std::size_t at = bytes.find(zero);
    while (at != std::string_view::npos && at % unit != 0) {
        at = bytes.find(zero, at + 1);
    }
    return at != std::string_view::npos && bytes.find_first_not_of('\0', at) != std::string_view::npos;
}

void RemoveBlanksAtTop(pugi::xml_document& document) {
    for (pugi::xml_node node = document.first_child(); node;) {
        pugi::xml_node const next = node.next_sibling();
        std::string_view const text = node.value();
        if (node.type() == pugi::node_pcdata && text.find_first_not_of(" \t\r\n") == std::string_view::npos) {
            document.remove_child(node);
        }
        node = next;
    }
}

pugi::xml_attribute DeclaredEncoding(pugi::xml_document const& document) {
    pugi::xml_node const first = document.first_child();
    return first.type() == pugi::node_declaration ? first.attribute("encoding") : pugi::xml_attribute();
}

bool IsDeclaredLatin1(pugi::xml_document const& document) {
    std::string name = DeclaredEncoding(document).value();
    for (char& c : name) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return name == "iso-8859-1" || name == "latin1";
}

bool IsTextAtTop(pugi::xml_node node) {
    return (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata) &&
           node.parent().type() == pugi::node_document;
}

bool HasAttributeTwice(pugi::xml_node node) {
    if (!node.first_attribute().next_attribute()) {
        return false;
    }
    // Sorted, since nobody limits how many there are.
    std::vector<std::string_view> names;
    for (pugi::xml_attribute const attribute : node.attributes()) {
        names.emplace_back(attribute.name());
    }
    std::sort(names.begin(), names.end());
    return std::adjacent_find(names.begin(), names.end()) != names.end();
}

// What is wrong with one node of a tree that was parsed without replacing references; null if nothing is.
char const* FaultOf(pugi::xml_node node) {
    bool hasSoundReferences = node.type() != pugi::node_pcdata || HasOnlyOwnReferences(node.value());
    bool isText = IsXmlText(node.name()) && IsXmlText(node.value());
    for (pugi::xml_attribute const attribute : node.attributes()) {
        isText = isText && IsXmlText(attribute.name()) && IsXmlText(attribute.value());
        hasSoundReferences = hasSoundReferences && HasOnlyOwnReferences(attribute.value());
    }
    if (!isText) {
        return "a byte sequence is no text in the document's encoding";
    }
    if (!hasSoundReferences) {
        return "reference to an entity that is not built in";
    }
    if (IsTextAtTop(node)) {
        return "text outside of the element at the top";
    }
    if (HasAttributeTwice(node)) {
        return "an attribute stands twice on one element";
    }
    bool const isMisplaced = node.type() == pugi::node_declaration &&
                             (node.previous_sibling() || node.parent().type() != pugi::node_document);
    return isMisplaced ? "XML declaration that is not at the beginning" : nullptr;
}

// The node behind `node` in document order, within `top` and all below it; null behind the last.
pugi::xml_node NextBelow(pugi::xml_node node, pugi::xml_node top) {
    if (pugi::xml_node const child = node.first_child()) {
        return child;
    }
    while (node && node != top && !node.next_sibling()) {
        node = node.parent();
    }
    return !node || node == top ? pugi::xml_node() : node.next_sibling();
}

// Calls `visit` with `top`, which has level 0, and all below it with their levels, until it gives false.
template <typename Visit>
void Walk(pugi::xml_node top, Visit&& visit) {
    unsigned level = 0;
    pugi::xml_node node = top;
    while (node && visit(node, level)) {
        if (pugi::xml_node const child = node.first_child()) {
            node = child;
            ++level;
            continue;
        }
        for (; node != top && !node.next_sibling(); --level) {
            node = node.parent();
        }
        node = node == top ? pugi::xml_node() : node.next_sibling();
    }
}

// What is wrong with the whole, beyond what the parser looks for.
char const* FaultOf(pugi::xml_document const& document, unsigned maxDepth) {
    char const* fault = nullptr;
    unsigned elementsAtTop = 0;
    Walk(document, [&](pugi::xml_node node, unsigned level) {
        elementsAtTop += level == 1 && node.type() == pugi::node_element ? 1 : 0;
        fault = level > maxDepth ? "too many elements inside each other" : FaultOf(node);
        return fault == nullptr;
    });
    if (fault == nullptr && elementsAtTop != 1) {
        fault = "not exactly one element at the top";
    }
    return fault;
}

}  // namespace

pugi::xpath_query const* XmlQueries::Find(std::string const& query) {
    auto found = std::find_if(m_Newest.begin(), m_Newest.end(),
                              [&](Compiled const& compiled) { return compiled.text == query; });
    if (found == m_Newest.end()) {
        try {
            pugi::xpath_query compiled(query.c_str());
            if (compiled.return_type() != pugi::xpath_type_node_set) {
                return nullptr;
            }
            if (m_Newest.size() == kCompiledQueries) {
                m_Newest.pop_back();
            }
            m_Newest.push_back({query, std::move(compiled)});
        } catch (pugi::xpath_exception const&) {
            return nullptr;
        }
        found = m_Newest.end() - 1;
    }
    std::rotate(m_Newest.begin(), found, found + 1);
    return &m_Newest.front().query;
}

std::shared_ptr<XmlNodeState> XmlTree::StateOf(pugi::xml_node node, pugi::xml_attribute attribute) {
    if (!node && !attribute) {
        return nullptr;
    }
    void const* const key =
        attribute ? static_cast<void const*>(attribute.internal_object()) : node.internal_object();
    if (XmlNodeState* const state = HeldAs(*this, key)) {
        return state->shared_from_this();
    }
    auto const state = std::make_shared<XmlNodeState>();
    state->tree = shared_from_this();
    state->node = node;
    state->attribute = attribute;
    state->isElement = !attribute && node.type() == pugi::node_element;
    held.emplace(key, state.get());
    return state;
}

XmlNodeState::~XmlNodeState() {
    tree->held.erase(Key());
}

void const* XmlNodeState::Key() const {
    return attribute ? static_cast<void const*>(attribute.internal_object()) : node.internal_object();
}

void XmlNodeState::MoveTo(std::shared_ptr<XmlTree> const& newTree, pugi::xml_node newNode,
                          pugi::xml_attribute newAttribute) {
    // The entry itself goes over: where the new list has room for it, this can't fail.
    auto entry = tree->held.extract(Key());
    node = newNode;
    attribute = newAttribute;
    tree = newTree;
    entry.key() = Key();
    tree->held.insert(std::move(entry));
}

void Transplant(XmlTree& source, pugi::xml_node node, XmlTree& target, pugi::xml_node parent) {
    // All memory first; once references have begun to move, nothing may fail.
    std::vector<Move> moves;
    moves.reserve(source.held.size());
    target.held.reserve(target.held.size() + source.held.size());
    pugi::xml_node const copy = parent.append_copy(node);
    pugi::xml_node there = copy;
    for (pugi::xml_node here = node; here; here = NextBelow(here, node)) {
        if (!NoteMoves(source, here, there, moves)) {
            // The copy is incomplete because there was no memory for it.
            parent.remove_child(copy);
            throw std::bad_alloc();
        }
        there = NextBelow(there, copy);
    }
    // The states may be all that keeps the source alive until the original is gone.
    std::shared_ptr<XmlTree> const guard = source.shared_from_this();
    for (Move const& move : moves) {
        move.state->MoveTo(target.shared_from_this(), move.node, move.attribute);
    }
    node.parent().remove_child(node);
}

void DetachAttribute(XmlTree& source, pugi::xml_node element, pugi::xml_attribute attribute) {
    if (XmlNodeState* const state = HeldAs(source, attribute.internal_object())) {
        auto const tree = std::make_shared<XmlTree>(false);
        tree->held.reserve(1);
        pugi::xml_node holder = tree->document.append_child(pugi::node_element);
        pugi::xml_attribute const copy = holder.append_copy(attribute);
        if (!copy) {
            throw std::bad_alloc();
        }
        state->MoveTo(tree, holder, copy);
    }
    element.remove_attribute(attribute);
}

unsigned DepthOf(pugi::xml_node node) {
    unsigned depth = 0;
    for (; node && node.type() != pugi::node_document; node = node.parent()) {
        ++depth;
    }
    return depth;
}

unsigned HeightOf(pugi::xml_node node) {
    unsigned lowest = 0;
    Walk(node, [&](pugi::xml_node, unsigned level) {
        lowest = std::max(lowest, level);
        return true;
    });
    return lowest + 1;
}

std::string Parse(XmlTree& tree, std::string_view bytes, unsigned maxDepth) {
    pugi::xml_encoding encoding = HasWideUnits(bytes) ? pugi::encoding_auto : pugi::encoding_utf8;
    auto const load = [&](unsigned options) {
        auto const result = tree.document.load_buffer(bytes.data(), bytes.size(), options, encoding);
        if (result.status == pugi::status_out_of_memory) {
            throw std::bad_alloc();
        }
        RemoveBlanksAtTop(tree.document);
        return result;
    };
    pugi::xml_parse_result result = load(kParseAsWritten);
    if (result && encoding == pugi::encoding_utf8 && IsDeclaredLatin1(tree.document)) {
        encoding = pugi::encoding_latin1;
        result = load(kParseAsWritten);
    }
    if (!result) {
        return std::string(result.description()) + " at character " + std::to_string(result.offset);
    }
    if (HasTextBehindZero(bytes, UnitOf(result.encoding))) {
        return "text behind a zero";
    }
    if (char const* const fault = FaultOf(tree.document, maxDepth)) {
        return fault;
    }
    if (bytes.find('&') != std::string_view::npos) {
        load(kParseAsWritten | pugi::parse_escapes);
    }
    // What is held is UTF-8, and so will be what is saved.
    if (pugi::xml_attribute declared = DeclaredEncoding(tree.document)) {
        declared.set_value("UTF-8");
    }
    return {};
}

}  // namespace System::Platform
