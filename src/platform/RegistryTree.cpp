#include "platform/RegistryTree.h"

namespace System::Platform {

namespace {

RegistryNode const* Descend(RegistryNode const* node, RegistryPath const& path) {
    for (std::u16string const& name : path) {
        node = node->keys.Find(name);
        if (node == nullptr) {
            break;
        }
    }
    return node;
}

// Copies what is below `from` over what is below `to`. As deep as the tree, which is bounded.
void Overlay(RegistryNode& to, RegistryNode const& from) {
    for (RegistryValue const* value : from.values.Listed()) {
        RegistryValue& copy = to.values.Obtain(value->name);
        copy.type = value->type;
        copy.data = value->data;
    }
    for (RegistryNode const* key : from.keys.Listed()) {
        RegistryNode& copy = to.keys.Obtain(key->name);
        copy.file = key->file;
        Overlay(copy, *key);
    }
}

constexpr std::size_t IndexOf(RegistryRoot root) {
    return static_cast<std::size_t>(root);
}

}  // namespace

RegistryNode& RegistryTree::Obtain(RegistryRoot root, RegistryPath const& path, std::size_t file) {
    RegistryNode* node = &m_Roots[IndexOf(root)];
    for (std::u16string const& name : path) {
        node = &node->keys.Obtain(name);
        if (node->file == RegistryNode::kNoFile) {
            node->file = file;
        }
    }
    node->file = file;
    return *node;
}

void RegistryTree::Erase(RegistryRoot root, RegistryPath const& path) {
    RegistryNode* node = &m_Roots[IndexOf(root)];
    for (std::size_t i = 0; i + 1 < path.size(); ++i) {
        node = node->keys.Find(path[i]);
        if (node == nullptr) {
            return;
        }
    }
    node->keys.Erase(path.back());
}

RegistryNode const* RegistryTree::Find(RegistryRoot root, RegistryPath const& path) const {
    return Descend(&m_Roots[IndexOf(root)], path);
}

void RegistryTree::AddView(RegistryRoot view, RegistryRoot from, RegistryPath const& path) {
    if (RegistryNode const* const source = Find(from, path)) {
        Overlay(m_Roots[IndexOf(view)], *source);
    }
}

void RegistryTree::AddViews() {
    auto const isGiven = [this](RegistryRoot root) {
        RegistryNode const& node = m_Roots[IndexOf(root)];
        return node.keys.Size() != 0 || node.values.Size() != 0;
    };
    if (!isGiven(RegistryRoot::kClassesRoot)) {
        // The user's classes over the machine's.
        AddView(RegistryRoot::kClassesRoot, RegistryRoot::kLocalMachine, {u"Software", u"Classes"});
        AddView(RegistryRoot::kClassesRoot, RegistryRoot::kCurrentUser, {u"Software", u"Classes"});
    }
    if (!isGiven(RegistryRoot::kCurrentConfig)) {
        AddView(RegistryRoot::kCurrentConfig, RegistryRoot::kLocalMachine,
                {u"System", u"CurrentControlSet", u"Hardware Profiles", u"Current"});
    }
}

}  // namespace System::Platform
