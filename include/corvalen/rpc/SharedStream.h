#pragma once

#include "corvalen/rpc/NamedRegion.h"

namespace System::RPC {

/// A mailbox of bytes between processes of one user: writers append, and a read takes out all that has piled
/// up. The bytes have no framing, and nobody is woken: a reader looks when it wants to. The region never
/// grows; a full stream refuses.
///
/// Processes, Threads: as NamedRegion; an object is used by one thread at a time. The file lies in
/// $XDG_RUNTIME_DIR, else $TMPDIR, else "/tmp", readable by its user alone. The content outlives each opener
/// while one process has the region open. A writer that dies inside Write leaves a stream that has its bytes
/// whole or not at all. Errors: nothing throws but a failed allocation in the constructor. A failed open
/// leaves its errno value in LastError(); Write and Read_NF return and set there one of
///
///     0        done
///     -1       the region is not open
///     7        Write: the bytes do not fit
///     12       Read_NF: no memory for the copy
///     EBADMSG  the header is broken; nothing was copied or written
class CORVALEN_API SharedStream : public NamedRegion {
public:
    /// Opens the stream `name`, creating it if no process has it; an open one keeps its content. `size` is
    /// that of the whole region, header of 8 bytes included; less than 8 fails with EINVAL.
    SharedStream(char16_t const* name, std::uint32_t size);
    ~SharedStream() override = default;

    /// Appends `size` bytes in one piece, or none of them.
    int Write(void const* data, std::uint32_t size);
    /// Takes out the whole content as `*size` bytes in a new buffer, which the caller must free(); null and 0
    /// for an empty stream. With 12 the stream stays as it was, `*data` is null, and `*size` tells how much
    /// there is.
    int Read_NF(void** data, std::uint32_t* size);

private:
    void FormatUnlessFormatted();
    std::uint32_t ReadLength() const;
    void PublishLength(std::uint32_t length);
    int Append(void const* data, std::uint32_t size);
    int TakeOut(void** data, std::uint32_t* size);
};

}  // namespace System::RPC
