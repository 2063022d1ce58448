#pragma once

#include <cstdint>
#include <string>

#include "platform/FileDescriptor.h"

namespace System::Platform {

// The bell of an inbox is a FIFO beside its file: senders write a byte to wake an owner that watches a
// descriptor. Only an owner that asked for its descriptor has one.

std::string BellFileName(std::uint32_t inboxNumber);
/// The number in the name of a bell; 0 if `name` is not one.
std::uint32_t NumberOfBellFile(char const* name);

/// Makes the FIFO and opens both its ends; 0 or errno.
int CreateBell(std::uint32_t inboxNumber, FileDescriptor& bell);
/// Opens the end that senders write to; 0 or errno.
int OpenBell(std::uint32_t inboxNumber, FileDescriptor& bell);
void RemoveBell(std::uint32_t inboxNumber);
/// Makes the bell readable. A bell that is full is readable already.
void RingBell(FileDescriptor const& bell);
/// Makes it unreadable.
void SilenceBell(FileDescriptor const& bell);

}  // namespace System::Platform
