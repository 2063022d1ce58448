#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FoldCase.h"

namespace System::Platform {

enum class RegistryRoot : std::size_t { kClassesRoot, kCurrentUser, kLocalMachine, kUsers, kCurrentConfig };
constexpr std::size_t kRegistryRootCount = 5;

/// Key names below a root, outermost first.
using RegistryPath = std::vector<std::u16string>;

/// Levels of keys below a root. Bounds every walk that follows the tree downwards.
constexpr std::size_t kMaxRegistryDepth = 512;

/// Items with a `name`, found without regard to case and listed in the order in which they came.
template <typename Item>
class CaseBlindList {
public:
    /// The item of that name; made, with the name as written, if there is none.
    Item& Obtain(std::u16string_view name) {
        Entry& entry = m_ByName[FoldCase(name)];
        if (entry.item == nullptr) {
            entry.item = std::make_unique<Item>();
            entry.item->name = name;
            entry.sequence = m_NextSequence++;
        }
        return *entry.item;
    }
    void Erase(std::u16string_view name) { m_ByName.erase(FoldCase(name)); }
    [[nodiscard]] Item* Find(std::u16string_view name) const {
        auto const found = m_ByName.find(FoldCase(name));
        return found == m_ByName.end() ? nullptr : found->second.item.get();
    }
    [[nodiscard]] std::size_t Size() const { return m_ByName.size(); }

    /// All items in their order, good until the list changes.
    [[nodiscard]] std::vector<Item const*> Listed() const {
        std::vector<Entry const*> entries;
        entries.reserve(m_ByName.size());
        for (auto const& [folded, entry] : m_ByName) {
            entries.push_back(&entry);
        }
        std::ranges::sort(entries, {}, &Entry::sequence);
        std::vector<Item const*> listed(entries.size());
        std::ranges::transform(entries, listed.begin(), [](Entry const* entry) { return entry->item.get(); });
        return listed;
    }

private:
    struct Entry {
        std::unique_ptr<Item> item;
        std::uint64_t sequence = 0;
    };

    std::map<std::u16string, Entry> m_ByName;
    std::uint64_t m_NextSequence = 0;
};

struct RegistryValue {
    std::u16string name;  // empty: the default value
    std::uint32_t type = 0;
    std::string data;
};

struct RegistryNode {
    static constexpr std::size_t kNoFile = SIZE_MAX;

    std::u16string name;
    std::size_t file = kNoFile;  // index of the file that holds it: the last one that gave it
    CaseBlindList<RegistryNode> keys;
    CaseBlindList<RegistryValue> values;
};

/// All keys and values of a set of files.
///
/// Threads: a tree that is no longer changed may be read by any number of threads.
class RegistryTree {
public:
    /// The key, made with all keys on the way if need be. The key belongs to `file` from now on, and so do
    /// those that were made. `path` has at most kMaxRegistryDepth names.
    RegistryNode& Obtain(RegistryRoot root, RegistryPath const& path, std::size_t file);
    /// Takes the key with all that is below it away. `path` is not empty.
    void Erase(RegistryRoot root, RegistryPath const& path);
    /// Null if there is none.
    [[nodiscard]] RegistryNode const* Find(RegistryRoot root, RegistryPath const& path) const;
    /// Fills the roots that are views of other keys, unless they were given directly.
    void AddViews();

    std::vector<std::string> files;

private:
    void AddView(RegistryRoot view, RegistryRoot from, RegistryPath const& path);

    std::array<RegistryNode, kRegistryRootCount> m_Roots;
};

}  // namespace System::Platform
