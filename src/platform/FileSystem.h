#pragma once

#include <climits>

namespace System::Platform::FileSystem {

/// Removal of files and trees. Paths are bytes as the system takes them, separated by '/'.
///
/// What stays:
///   - a file that nobody may write (no write bit in its mode), which counts as read-only;
///   - a directory whose name begins with a dot, with all that is in it;
///   - whatever is mounted inside the tree;
///   - and so every directory above one of these.
/// A symbolic link is removed as a file, never followed, also when another process puts it in the place of a
/// directory while the removal runs: behind the parent of `path`, each name is looked up in a directory that
/// is held open.
///
/// Threads: any; no state is kept.
/// Errors: false, also when another process adds to the tree at the same time. What is gone stays gone.

/// Removes one file or link. A directory stays, and so does a read-only file; then the result is false.
[[nodiscard]] bool RemoveFile(char const* path);

constexpr unsigned kNoLimit = UINT_MAX;

/// Removes the directory `path` with all that it holds, a directory after what is in it. A second thread
/// helps with directories of a large tree, and is gone when this returns; what the two of them leave, the
/// caller goes over once more alone. An entry whose full name, `path` included, takes more than `unitLimit`
/// UTF-16 units stays. Returns whether the directory itself is gone. Takes a fixed number of descriptors and
/// no stack for depth.
[[nodiscard]] bool RemoveTree(char const* path, unsigned unitLimit = kNoLimit);

}  // namespace System::Platform::FileSystem
