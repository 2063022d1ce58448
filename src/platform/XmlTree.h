#pragma once

#include <cstddef>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace System::Platform {

struct XmlNodeState;

/// The queries that a document was asked last, compiled.
class XmlQueries {
public:
    /// The compiled form of `query`, good until the next call; null if it is no XPath that selects nodes.
    pugi::xpath_query const* Find(std::string const& query);

private:
    struct Compiled {
        std::string text;
        pugi::xpath_query query;
    };
    std::vector<Compiled> m_Newest;
};

/// What holds nodes: a document, or a single node that is in none (an attribute on an element made for it).
///
/// The nodes that someone refers to are listed by their address in the parser's tree. A node can't change its
/// tree there; so it is copied, the references go over to the copy, and the original ends.
struct XmlTree : std::enable_shared_from_this<XmlTree> {
    explicit XmlTree(bool isWholeDocument) : isDocument(isWholeDocument) {}

    /// The state of a node, or of one of its attributes; made if nobody refers to it yet. Null for none.
    std::shared_ptr<XmlNodeState> StateOf(pugi::xml_node node, pugi::xml_attribute attribute = {});

    pugi::xml_document document;
    bool const isDocument;
    std::unordered_map<void const*, XmlNodeState*> held;
    XmlQueries queries;
};

/// What all references to one node share.
struct XmlNodeState : std::enable_shared_from_this<XmlNodeState> {
    ~XmlNodeState();
    [[nodiscard]] void const* Key() const;
    /// Makes this the state of another node, which stands for the old one from now on.
    void MoveTo(std::shared_ptr<XmlTree> const& newTree, pugi::xml_node newNode,
                pugi::xml_attribute newAttribute = {});

    std::shared_ptr<XmlTree> tree;
    pugi::xml_node node;
    pugi::xml_attribute attribute;
    bool isElement = false;  // what a node is never changes
};

/// Moves a node of `source` with all that is below it to the end of `parent` in `target`.
void Transplant(XmlTree& source, pugi::xml_node node, XmlTree& target, pugi::xml_node parent);
/// Takes an attribute off its element; references to it go on.
void DetachAttribute(XmlTree& source, pugi::xml_node element, pugi::xml_attribute attribute);

/// Levels from the top of the tree down to `node`.
[[nodiscard]] unsigned DepthOf(pugi::xml_node node);
/// Levels from `node` down to its lowest descendant, 1 for a leaf.
[[nodiscard]] unsigned HeightOf(pugi::xml_node node);

/// Parses `bytes` into the empty `tree`. Returns what is wrong with them, or an empty text.
[[nodiscard]] std::string Parse(XmlTree& tree, std::string_view bytes, unsigned maxDepth);

}  // namespace System::Platform
