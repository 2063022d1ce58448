#include "corvalen/rpc/MemStream.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "diagnostics/Report.h"

namespace System::RPC {

namespace {

static_assert(std::endian::native == std::endian::little, "the encoding is the host's own order of bytes");

constexpr std::uint32_t kGrowth = 1024;
// Room that a write demands beyond its own bytes.
constexpr std::uint32_t kSpare = 3;
constexpr std::uint64_t kMaxSize = std::numeric_limits<std::uint32_t>::max();

}  // namespace

MemOutputStream::MemOutputStream(std::uint32_t size)
    : m_MinSize(std::max(size, kLeastCapacity)),
      m_Offset(0),
      m_Size(m_MinSize),
      m_Buffer(nullptr),
      m_Error(0) {
    Allocate();
}

MemOutputStream::~MemOutputStream() {
    std::free(m_Buffer);
}

void* MemOutputStream::GetData(std::uint32_t* size) {
    *size = m_Error == 0 ? m_Offset : 0;
    return m_Error == 0 ? m_Buffer : nullptr;
}

void MemOutputStream::Reset() {
    std::free(m_Buffer);
    m_Size = m_MinSize;
    m_Offset = 0;
    Allocate();
}

// Cleared, so that a gap which SetOffset leaves does not show what the heap held.
void MemOutputStream::Allocate() {
    m_Buffer = static_cast<unsigned char*>(std::calloc(m_Size, 1));
    if (m_Buffer == nullptr) {
        m_Error = ENOMEM;
    }
}

void MemOutputStream::Write(void const* data, std::uint32_t size) {
    if (m_Error != 0) {
        return;
    }
    if (std::uint64_t{m_Offset} + size + kSpare > m_Size) {
        if (size > kMaxSize - kSpare) {
            m_Error = ENOMEM;
            return;
        }
        Reallocate(size + kSpare);
    }
    if (m_Error != 0 || size == 0) {
        return;
    }
    std::memcpy(m_Buffer + m_Offset, data, size);
    m_Offset += size;
}

void MemOutputStream::Reallocate(std::uint32_t size) {
    std::uint64_t const needed = std::uint64_t{m_Offset} + size;
    if (m_Error != 0 || needed <= m_Size) {
        return;
    }
    std::uint64_t const capacity = (needed + kGrowth) & ~std::uint64_t{kGrowth - 1};
    auto* const grown =
        capacity <= kMaxSize ? static_cast<unsigned char*>(std::calloc(capacity, 1)) : nullptr;
    if (grown == nullptr) {
        m_Error = ENOMEM;
        return;
    }
    // All of it: bytes may have been written behind the offset, and SetOffset brings them back.
    std::memcpy(grown, m_Buffer, m_Size);
    std::free(m_Buffer);
    m_Buffer = grown;
    m_Size = static_cast<std::uint32_t>(capacity);
}

void MemOutputStream::WriteInt8(signed char value) {
    Write(&value, sizeof(value));
}

void MemOutputStream::WriteUInt8(unsigned char value) {
    Write(&value, sizeof(value));
}

void MemOutputStream::WriteInt16(short value) {
    Write(&value, sizeof(value));
}

void MemOutputStream::WriteUInt16(unsigned short value) {
    Write(&value, sizeof(value));
}

void MemOutputStream::WriteInt32(int value) {
    Write(&value, sizeof(value));
}

void MemOutputStream::WriteUInt32(unsigned int value) {
    Write(&value, sizeof(value));
}

void MemOutputStream::WriteInt(unsigned int value) {
    Write(&value, sizeof(value));
}

void MemOutputStream::WriteBool(bool value) {
    WriteUInt8(value ? 1 : 0);
}

void MemOutputStream::WriteStr(char const* text) {
    char const* const characters = text != nullptr ? text : "";
    std::size_t const size = std::strlen(characters) + 1;
    if (size > kMaxSize) {
        m_Error = ENOMEM;
        return;
    }
    Write(characters, static_cast<std::uint32_t>(size));
}

void MemOutputStream::SetOffset(std::uint32_t offset) {
    if (offset > m_Size) {
        Reallocate(offset - m_Offset);
    }
    if (m_Error == 0) {
        m_Offset = offset;
    }
}

MemInputStream::MemInputStream() = default;

MemInputStream::MemInputStream(void const* data, std::uint32_t len)
    : m_Len(data != nullptr ? len : 0), m_Data(static_cast<unsigned char const*>(data)) {}

MemInputStream::~MemInputStream() = default;

void MemInputStream::SetData(void const* data, std::uint32_t len) {
    m_Offset = 0;
    m_Len = data != nullptr ? len : 0;
    m_Data = static_cast<unsigned char const*>(data);
}

template <typename Value>
Value MemInputStream::ReadValue() {
    Value value{};
    if (void const* const bytes = Read(sizeof(Value)); bytes != nullptr) {
        std::memcpy(&value, bytes, sizeof(Value));
    }
    return value;
}

signed char MemInputStream::ReadInt8() {
    return ReadValue<signed char>();
}

unsigned char MemInputStream::ReadUInt8() {
    return ReadValue<unsigned char>();
}

short MemInputStream::ReadInt16() {
    return ReadValue<short>();
}

unsigned short MemInputStream::ReadUInt16() {
    return ReadValue<unsigned short>();
}

int MemInputStream::ReadInt32() {
    return ReadValue<int>();
}

unsigned int MemInputStream::ReadUInt32() {
    return ReadValue<unsigned int>();
}

int MemInputStream::ReadInt() {
    return ReadValue<int>();
}

unsigned int MemInputStream::ReadUInt() {
    return ReadValue<unsigned int>();
}

void const* MemInputStream::Read(std::uint32_t size) {
    if (size > m_Len - m_Offset) {
        m_Offset = m_Len;
        return nullptr;
    }
    unsigned char const* const bytes = m_Data + m_Offset;
    m_Offset += size;
    return bytes;
}

char const* MemInputStream::ReadStr() {
    std::uint32_t const left = m_Len - m_Offset;
    unsigned char const* const start = m_Data + m_Offset;
    void const* const end = left != 0 ? std::memchr(start, 0, left) : nullptr;
    if (end == nullptr) {
        m_Offset = m_Len;
        return "";
    }
    m_Offset += static_cast<std::uint32_t>(static_cast<unsigned char const*>(end) - start) + 1;
    return reinterpret_cast<char const*>(start);
}

void MemInputStream::SetOffset(std::uint32_t offset) {
    Diagnostics::Verify(offset <= m_Len, Diagnostics::Gravity::kSerious, "offset <= m_Len", "MemStream");
    m_Offset = std::min(offset, m_Len);
}

}  // namespace System::RPC
