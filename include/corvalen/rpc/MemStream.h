#pragma once

#include <cstdint>

#include "corvalen/Export.h"

namespace System::RPC {

/// Builds a flat message in a private growing buffer: little-endian values one behind the other, with no
/// tags, lengths or alignment; docs/formats/mem-stream.md has the encoding. Sender and receiver agree on the
/// order.
///
/// Threads: one thread at a time.
/// Ownership: the buffer is the stream's, freed with it.
/// Errors: nothing throws and no operation reports. Once memory was not to be had, writes do nothing and
/// GetData gives null for the rest of the stream's life.
class CORVALEN_API MemOutputStream {
public:
    static constexpr std::uint32_t kLeastCapacity = 1024;

    /// An empty stream with room for `size` bytes, at least kLeastCapacity.
    explicit MemOutputStream(std::uint32_t size = kLeastCapacity);
    virtual ~MemOutputStream();
    MemOutputStream(MemOutputStream const&) = delete;
    MemOutputStream& operator=(MemOutputStream const&) = delete;

    /// The content, whose length goes to `*size`; good until the next write, SetOffset, Reset or the
    /// destructor. Null and 0 after a failure.
    virtual void* GetData(std::uint32_t* size);
    /// Empties the stream and goes back to its first capacity. A failure stays.
    virtual void Reset();
    /// Appends `size` bytes. `data` must not lie in the stream's own buffer.
    virtual void Write(void const* data, std::uint32_t size);

    // Each appends one value in its own width.
    void WriteInt8(signed char value);
    void WriteUInt8(unsigned char value);
    void WriteInt16(short value);
    void WriteUInt16(unsigned short value);
    void WriteInt32(int value);
    void WriteUInt32(unsigned int value);
    void WriteInt(unsigned int value);
    /// One byte, 0 or 1.
    void WriteBool(bool value);
    /// The characters of `text` and a zero byte; null counts as empty.
    void WriteStr(char const* text);

    /// Where the next byte goes, which is also the size of the content.
    [[nodiscard]] std::uint32_t GetOffset() const { return m_Offset; }
    /// Moves there. What lies behind an earlier offset is not part of the content until the offset moves
    /// forward again. Beyond the end room is made at once; bytes that were never written are zeros.
    void SetOffset(std::uint32_t offset);

protected:
    /// Makes room for `size` bytes from the offset on.
    void Reallocate(std::uint32_t size);

private:
    void Allocate();

    std::uint32_t m_MinSize;
    std::uint32_t m_Offset;
    std::uint32_t m_Size;
    unsigned char* m_Buffer;
    std::int32_t m_Error;
};

/// Takes a flat message apart in place, without copying or allocating.
///
/// A read that needs more bytes than are left takes those that are, and gives 0, null or an empty string;
/// only SizeLeft tells. A copy of the stream is a second view with a position of its own.
///
/// Threads: one thread at a time.
/// Ownership: the data stays the caller's, and outlives the stream and all pointers that it gave.
/// Errors: nothing throws.
class CORVALEN_API MemInputStream {
public:
    /// An empty stream.
    MemInputStream();
    /// Reads `len` bytes at `data`; null is an empty stream.
    MemInputStream(void const* data, std::uint32_t len);
    virtual ~MemInputStream();
    MemInputStream(MemInputStream const&) = default;
    MemInputStream& operator=(MemInputStream const&) = default;

    /// Starts over with other data, as the constructor does.
    virtual void SetData(void const* data, std::uint32_t len);

    // Each takes one value of its own width, 0 if fewer bytes are left. A boolean is read as an 8-bit
    // integer.
    signed char ReadInt8();
    unsigned char ReadUInt8();
    short ReadInt16();
    unsigned short ReadUInt16();
    int ReadInt32();
    unsigned int ReadUInt32();
    int ReadInt();
    unsigned int ReadUInt();
    /// The next `size` bytes, where they lie in the data; null if fewer are left.
    void const* Read(std::uint32_t size);
    /// The characters up to the next zero byte, where they lie in the data; an empty string if there is no
    /// zero byte, and then nothing is left. Never null.
    char const* ReadStr();

    [[nodiscard]] std::uint32_t GetOffset() const { return m_Offset; }
    /// Moves to `offset`. One beyond the data is reported, and the end is taken instead.
    void SetOffset(std::uint32_t offset);
    /// Bytes that are left.
    [[nodiscard]] int SizeLeft() const { return static_cast<int>(m_Len - m_Offset); }

private:
    template <typename Value>
    Value ReadValue();

    std::uint32_t m_Offset = 0;
    std::uint32_t m_Len = 0;
    unsigned char const* m_Data = nullptr;
};

}  // namespace System::RPC
