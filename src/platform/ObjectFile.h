#pragma once

#include <cstdint>
#include <string>

#include "platform/NamedObject.h"

// The files of named objects: how they are found, made and sized. Results are 0 or errno values if nothing
// else is told.
namespace System::Platform::ObjectFile {

constexpr int kTryAgain = -1;  // the file went away while it was being opened

/// Whether other users may open the files of `place`.
[[nodiscard]] bool IsShared(Place const& place);
/// Makes what is missing of a shared place's directory, mode 01777; takes what is there as it is.
void MakeDirectories(std::string const& path);

/// A descriptor of the existing file, never through a link; or -1 with errno.
[[nodiscard]] int Open(std::string const& path);
/// A descriptor of a new file, empty, with the place's mode; or -1 with errno, EEXIST if there is one.
[[nodiscard]] int Create(Place const& place, std::string const& path);

/// Whether `path` still leads to the open file (else kTryAgain) and it is one that an object may use. `size`
/// gets its bytes.
[[nodiscard]] int CheckIdentity(int descriptor, std::string const& path, bool isShared, std::uint64_t& size);

/// Puts memory behind `bytes` bytes from `offset` on; EOPNOTSUPP where the file system can't.
[[nodiscard]] int Reserve(int descriptor, std::uint64_t offset, std::uint64_t bytes);
/// The same from the front, for a file that nobody has mapped yet, on any file system.
[[nodiscard]] int ReserveNew(int descriptor, std::uint64_t bytes);

}  // namespace System::Platform::ObjectFile
