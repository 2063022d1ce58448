#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/RegistryPlaces.h"
#include "platform/RegistryTree.h"

namespace System::Platform {

/// A key as it is at one moment. It holds the tree that it is part of, and never changes.
using RegistryView = std::shared_ptr<RegistryNode const>;

/// A number for an open key, 0 for none; the five roots have fixed ones and are always open.
using RegistryHandle = std::uint32_t;

/// The registry of this process, read from text files.
///
/// Each call that looks at a root looks at the files first and reads them again if they have changed; a key
/// that was opened keeps what it saw. A key opened below an open key is looked for in the files of that
/// moment, by its whole path.
///
/// Threads: any thread may call any method.
/// Errors: nothing throws but a failed allocation. What could not be read is left out, and told by
/// TakeComplaints.
class RegistryStore {
public:
    static constexpr RegistryHandle kClassesRoot = 0x80000000;
    static constexpr RegistryHandle kCurrentUser = 0x80000001;
    static constexpr RegistryHandle kLocalMachine = 0x80000002;
    static constexpr RegistryHandle kUsers = 0x80000003;
    static constexpr RegistryHandle kCurrentConfig = 0x80000005;

    /// The one of this process; it lives as long as the process.
    static RegistryStore& Instance();

    RegistryStore() = default;
    RegistryStore(RegistryStore const&) = delete;
    RegistryStore& operator=(RegistryStore const&) = delete;

    /// What an open key sees; null for a number that is no open key.
    [[nodiscard]] RegistryView View(RegistryHandle key);
    /// Opens the key at `path` below `parent`, or `parent` once more for an empty path. 0 if there is none,
    /// or if `isToWrite` and the process may not write the file that holds it. Ends with Close.
    [[nodiscard]] RegistryHandle Open(RegistryHandle parent, std::u16string_view path, bool isToWrite);
    /// Ends an open key. A root, or a number that is no open key, is left alone.
    void Close(RegistryHandle key);

    /// What was wrong with the files that were read since the last call: a line of text each, once for each
    /// state of a file.
    [[nodiscard]] std::vector<std::string> TakeComplaints();

private:
    class Guard;
    struct OpenKey {
        RegistryRoot root;
        RegistryPath path;
        RegistryView view;
    };
    using Told = std::map<std::string, std::size_t>;  // by path: the state of the file that was told

    static RegistryStore* MakeInstance();
    void Refresh();
    void ReadFile(RegistryFileState const& state, RegistryTree& tree, Told& told);
    std::optional<OpenKey> Resolve(RegistryHandle key) const;

    std::mutex m_Lock;  // guards all that follows
    std::shared_ptr<RegistryTree const> m_Tree;
    RegistrySurvey m_Survey;
    Told m_Told;
    std::vector<std::string> m_Complaints;
    std::unordered_map<RegistryHandle, OpenKey> m_Open;
    RegistryHandle m_LastHandle = 0;
};

}  // namespace System::Platform
