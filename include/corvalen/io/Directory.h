#pragma once

#include <string>

#include "corvalen/Export.h"

namespace System::IO {

/// Without data and operations.
class CORVALEN_API FFileSystemInfo {};

/// Without data and operations.
class CORVALEN_API FDirectoryInfo {};

/// Removal of files and directory trees.
///
/// Threads: any; nothing is shared and nothing locked. The converters have to be started (InitFramework). A
/// large tree is removed by the caller and a second thread, which takes no signals and has ended on return.
/// Errors: false says that the named file or directory is still there, or never was; no cause is told and
/// nothing logged. There is no undo. Nothing throws but a failed allocation.
class CORVALEN_API FDirectory {
public:
    /// Removes what `path` (UTF-8, separated by '/') names, and returns whether it is gone.
    ///
    /// With `recursive` false that is one file or symbolic link; a directory stays. With `recursive` true it
    /// is a directory with all that it holds, deepest first; separators at the end make no difference. In
    /// the tree
    ///   - files go whatever their names, but a read-only file (one without any write permission) stays;
    ///   - a directory whose name begins with a dot is neither entered nor removed;
    ///   - symbolic links go as files and are never followed, also not when one is put in the place of a
    ///     directory meanwhile;
    ///   - what is mounted there stays.
    /// Whatever stays keeps the directories above it, and the result is false.
    ///
    /// A path has at most 259 16-bit characters: a longer one is cut, and the removal then works on the cut
    /// name. In a tree, an entry whose full name is longer stays. Refused with nothing touched are an empty
    /// path, a path of separators alone, and one that is not well-formed UTF-8 up to U+FFFF throughout, since
    /// without its bad bytes it would name something else.
    static bool Delete(std::string const& path, bool recursive);

protected:
    FDirectory() = default;
    ~FDirectory() = default;

    /// Removes the directory `path` and all that it holds, as Delete does with `recursive` true.
    static bool DeleteT(char16_t const* path);
};

}  // namespace System::IO
