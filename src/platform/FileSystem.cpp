#include "platform/FileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/HelperThread.h"
#include "platform/Retry.h"

namespace System::Platform::FileSystem {

namespace {

constexpr std::size_t kListingBytes = 32768;
// Directories that a thread holds open at a time; those above wait with their entries in memory.
constexpr std::size_t kOpenLevels = 8;
// About as many entries as are removed in the time in which a thread starts.
constexpr std::size_t kEntriesAlone = 128;

constexpr unsigned kWriteBits = S_IWUSR | S_IWGRP | S_IWOTH;

FileDescriptor OpenDirectory(int parent, char const* name, int extraFlags) {
    return FileDescriptor(RetryOnInterrupt(
        [&] { return ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | extraFlags); }));
}

// What tells a directory from all others, and where it is mounted.
struct Identity {
    std::uint64_t inode = 0;
    std::uint64_t mount = 0;
    std::uint32_t deviceMajor = 0;
    std::uint32_t deviceMinor = 0;

    bool operator==(Identity const&) const = default;
    [[nodiscard]] bool IsOnMountOf(Identity const& other) const {
        return mount == other.mount && deviceMajor == other.deviceMajor && deviceMinor == other.deviceMinor;
    }
};

std::optional<Identity> IdentityOf(FileDescriptor const& directory) {
    struct statx found {};
    if (::statx(directory.Get(), "", AT_EMPTY_PATH, STATX_INO | STATX_MNT_ID, &found) != 0) {
        return std::nullopt;
    }
    // A kernel before 5.8 does not tell the mount; there the device alone decides.
    bool const knowsMount = (found.stx_mask & STATX_MNT_ID) != 0;
    return Identity{found.stx_ino, knowsMount ? found.stx_mnt_id : 0, found.stx_dev_major,
                    found.stx_dev_minor};
}

// The mode of an entry, links not followed.
std::optional<unsigned> ModeOf(int parent, char const* name) {
    struct statx found {};
    int const flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
    if (::statx(parent, name, flags, STATX_TYPE | STATX_MODE, &found) != 0) {
        return std::nullopt;
    }
    return found.stx_mode;
}

bool IsReadOnly(unsigned mode) {
    return !S_ISLNK(mode) && (mode & kWriteBits) == 0;
}

unsigned UnitsOf(std::string_view name) {
    unsigned units = 0;
    for (char const c : name) {
        auto const byte = static_cast<unsigned char>(c);
        bool const isContinuation = (byte & 0xC0) == 0x80;
        bool const isPair = byte >= 0xF0;
        units += (isContinuation ? 0U : 1U) + (isPair ? 1U : 0U);
    }
    return units;
}

struct Entry {
    char const* name;
    unsigned char type;
};

// The entries of one open directory, from the kernel as long as it is open, from memory once it is closed.
class Listing {
public:
    // The next entry, good until the following call; none at the end and when the directory can't be read.
    std::optional<Entry> Next(FileDescriptor const& directory) {
        if (m_Position == m_Length && (m_IsComplete || !Read(directory, 0))) {
            return std::nullopt;
        }
        auto const* const entry = reinterpret_cast<dirent64 const*>(m_Bytes.get() + m_Position);
        m_Position += entry->d_reclen;
        return Entry{entry->d_name, entry->d_type};
    }

    // Takes all that is left into memory, so that the directory can be closed.
    void Complete(FileDescriptor const& directory) {
        std::size_t const left = m_Length - m_Position;
        if (m_Position != 0 && left != 0) {
            std::char_traits<char>::move(m_Bytes.get(), m_Bytes.get() + m_Position, left);
        }
        m_Position = 0;
        m_Length = left;
        while (!m_IsComplete && Read(directory, m_Length)) {
        }
    }

private:
    bool Read(FileDescriptor const& directory, std::size_t keep) {
        Reserve(keep + kListingBytes, keep);
        ssize_t const got = ::getdents64(directory.Get(), m_Bytes.get() + keep, kListingBytes);
        m_IsComplete = got <= 0;
        m_Length = keep + (got > 0 ? static_cast<std::size_t>(got) : 0);
        m_Position = 0;
        return got > 0;
    }

    void Reserve(std::size_t size, std::size_t keep) {
        if (size <= m_Size) {
            return;
        }
        std::size_t const larger = size > 2 * m_Size ? size : 2 * m_Size;
        auto bytes = std::make_unique_for_overwrite<char[]>(larger);
        std::char_traits<char>::copy(bytes.get(), m_Bytes.get(), keep);
        m_Bytes = std::move(bytes);
        m_Size = larger;
    }

    std::unique_ptr<char[]> m_Bytes;
    std::size_t m_Size = 0;
    std::size_t m_Position = 0;
    std::size_t m_Length = 0;
    bool m_IsComplete = false;
};

struct Level {
    FileDescriptor directory;
    Identity identity;
    std::string name;  // in the directory of the level above
    unsigned units;    // of the full name of an entry, before the entry's own name
    Listing listing;
    bool isShared = false;  // the helper has been given directories of it
};

// What a removal keeps to, wherever in the tree it begins.
struct Bounds {
    unsigned unitLimit;
    Identity top;  // of the tree
};

// One thread's share of a removal.
class TreeRemoval {
public:
    // `helper`, if there is one, is given directories to remove meanwhile.
    explicit TreeRemoval(Bounds const& bounds, HelperThread* helper = nullptr)
        : m_Bounds(bounds), m_Helper(helper) {}

    // Removes what the directory `name` of `parent` holds. Its full name takes `units` units.
    void Empty(FileDescriptor const& parent, char const* name, unsigned units) {
        Enter(parent, name, units);
        while (!m_Levels.empty()) {
            Level& level = m_Levels.back();
            if (std::optional<Entry> const entry = level.listing.Next(level.directory)) {
                Remove(level, *entry);
            } else if (!Leave()) {
                return;
            }
        }
    }

private:
    void Remove(Level& level, Entry const& entry) {
        ++m_Entries;
        std::string_view const name = entry.name;
        if (name == "." || name == ".." || UnitsOf(name) > m_Bounds.unitLimit - level.units) {
            return;
        }
        unsigned char type = entry.type;
        if (type != DT_DIR && type != DT_LNK) {
            std::optional<unsigned> const mode = ModeOf(level.directory.Get(), entry.name);
            if (!mode || (!S_ISDIR(*mode) && IsReadOnly(*mode))) {
                return;
            }
            type = S_ISDIR(*mode) ? DT_DIR : DT_REG;
        }
        if (type != DT_DIR) {
            // What can't be removed makes the removal of its directory fail, which is the report.
            static_cast<void>(::unlinkat(level.directory.Get(), entry.name, 0));
        } else if (name.front() != '.') {
            RemoveDirectory(level, entry.name, level.units + UnitsOf(name));
        }
    }

    void RemoveDirectory(Level& level, char const* name, unsigned units) {
        if (m_Helper != nullptr && m_Entries >= kEntriesAlone && m_Helper->HasRoom() &&
            GiveAway(level, name, units)) {
            return;
        }
        if (!Enter(level.directory, name, units)) {
            static_cast<void>(::unlinkat(level.directory.Get(), name, AT_REMOVEDIR));
        }
    }

    bool GiveAway(Level& level, char const* name, unsigned units);

    // False if the directory can't be listed, or must not be because something else is mounted there.
    bool Enter(FileDescriptor const& parent, char const* name, unsigned units) {
        FileDescriptor directory = OpenDirectory(parent.Get(), name, O_NOFOLLOW);
        std::optional<Identity> const identity = directory.IsOpen() ? IdentityOf(directory) : std::nullopt;
        if (!identity || !identity->IsOnMountOf(m_Bounds.top)) {
            return false;
        }
        // At the limit nothing below has room, not even behind the separator.
        unsigned const unitsBelow = units < m_Bounds.unitLimit ? units + 1 : m_Bounds.unitLimit;
        m_Levels.push_back({std::move(directory), *identity, name, unitsBelow, {}});
        if (m_Levels.size() > kOpenLevels) {
            Suspend(m_Levels[m_Levels.size() - 1 - kOpenLevels]);
        }
        return true;
    }

    static void Suspend(Level& level) {
        if (level.directory.IsOpen()) {
            level.listing.Complete(level.directory);
            level.directory.Reset();
        }
    }

    // Goes back to the level above and removes the directory that is done with. False if there is no way
    // back, because someone has moved that directory elsewhere.
    bool Leave() {
        if (m_Levels.back().isShared) {
            m_Helper->Finish();
        }
        Level done = std::move(m_Levels.back());
        m_Levels.pop_back();
        if (m_Levels.empty()) {
            return true;
        }
        Level& above = m_Levels.back();
        if (!above.directory.IsOpen()) {
            above.directory = OpenDirectory(done.directory.Get(), "..", 0);
            if (!above.directory.IsOpen() || IdentityOf(above.directory) != above.identity) {
                return false;
            }
        }
        done.directory.Reset();
        static_cast<void>(::unlinkat(above.directory.Get(), done.name.c_str(), AT_REMOVEDIR));
        return true;
    }

    Bounds m_Bounds;
    HelperThread* m_Helper;
    std::size_t m_Entries = 0;  // met so far
    std::vector<Level> m_Levels;
};

// A directory that is removed on whichever thread has time for it.
class DirectoryRemoval : public HelperThread::Task {
public:
    DirectoryRemoval(FileDescriptor parent, char const* name, unsigned units, Bounds const& bounds)
        : m_Parent(std::move(parent)), m_Name(name), m_Units(units), m_Bounds(bounds) {}

    void Run() override {
        TreeRemoval(m_Bounds).Empty(m_Parent, m_Name.c_str(), m_Units);
        static_cast<void>(::unlinkat(m_Parent.Get(), m_Name.c_str(), AT_REMOVEDIR));
    }

private:
    FileDescriptor m_Parent;
    std::string m_Name;
    unsigned m_Units;
    Bounds m_Bounds;
};

bool TreeRemoval::GiveAway(Level& level, char const* name, unsigned units) {
    FileDescriptor parent(::fcntl(level.directory.Get(), F_DUPFD_CLOEXEC, 0));
    if (!parent.IsOpen()) {
        return false;
    }
    m_Helper->Give(std::make_unique<DirectoryRemoval>(std::move(parent), name, units, m_Bounds));
    level.isShared = true;
    return true;
}

struct ParentAndName {
    FileDescriptor parent;
    std::string name;
};

// Opens the directory that holds the last name of `path`; none without a name.
std::optional<ParentAndName> Split(std::string_view path) {
    std::size_t const slash = path.find_last_of('/');
    std::string name(slash == std::string_view::npos ? path : path.substr(slash + 1));
    std::string const parent(slash == std::string_view::npos ? "." : path.substr(0, slash + 1));
    if (name.empty()) {
        return std::nullopt;
    }
    FileDescriptor directory = OpenDirectory(AT_FDCWD, parent.c_str(), O_PATH);
    if (!directory.IsOpen()) {
        return std::nullopt;
    }
    return ParentAndName{std::move(directory), std::move(name)};
}

}  // namespace

bool RemoveFile(char const* path) {
    std::optional<ParentAndName> const file = Split(path);
    if (!file) {
        return false;
    }
    std::optional<unsigned> const mode = ModeOf(file->parent.Get(), file->name.c_str());
    return mode && !IsReadOnly(*mode) && ::unlinkat(file->parent.Get(), file->name.c_str(), 0) == 0;
}

bool RemoveTree(char const* path, unsigned unitLimit) {
    std::string_view bare = path;
    while (bare.ends_with('/')) {
        bare.remove_suffix(1);
    }
    std::optional<ParentAndName> const tree = Split(bare);
    if (!tree) {
        return false;
    }
    // Its name is looked up once: whoever stands there later is none of our business.
    FileDescriptor const top = OpenDirectory(tree->parent.Get(), tree->name.c_str(), O_NOFOLLOW);
    auto const isGone = [&] {
        return ::unlinkat(tree->parent.Get(), tree->name.c_str(), AT_REMOVEDIR) == 0;
    };
    std::optional<Identity> const identity = top.IsOpen() ? IdentityOf(top) : std::nullopt;
    if (!identity) {
        return isGone();
    }
    Bounds const bounds{unitLimit, *identity};
    HelperThread helper;
    TreeRemoval(bounds, &helper).Empty(top, ".", UnitsOf(bare));
    helper.Finish();
    if (isGone()) {
        return true;
    }
    if (!helper.WasUsed()) {
        return false;
    }
    // Two threads may have lacked descriptors or memory where there is enough for one.
    TreeRemoval(bounds).Empty(top, ".", UnitsOf(bare));
    return isGone();
}

}  // namespace System::Platform::FileSystem
