#include "corvalen/rpc/SharedStream.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "diagnostics/Report.h"
#include "platform/FaultPoint.h"

namespace System::RPC {

using Diagnostics::Gravity;
using Diagnostics::Verify;

namespace {

constexpr char const* kSource = "SharedStream";
constexpr std::uint32_t kSignature = 0x5F421AB4;
constexpr int kNotOpen = -1;
constexpr int kNoRoom = 7;
constexpr int kNoMemory = 12;

// Head of the region. Other processes, of other builds, read these bytes: they never change.
struct SharedHeaderRec {
    std::uint32_t SHARED_SIGNATURE;  // kSignature
    std::uint32_t SHARED_LEN;        // bytes in use, this header included
};
static_assert(sizeof(SharedHeaderRec) == 8 && offsetof(SharedHeaderRec, SHARED_LEN) == 4);

constexpr std::uint32_t kBrokenHeader = 0;  // no length: a good one counts the header

SharedHeaderRec& HeaderAt(void* region) {
    return *static_cast<SharedHeaderRec*>(region);
}

std::byte* ContentAt(void* region) {
    return static_cast<std::byte*>(region) + sizeof(SharedHeaderRec);
}

}  // namespace

SharedStream::SharedStream(char16_t const* name, std::uint32_t size)
    : NamedRegion(Home::kUser, name, size, sizeof(SharedHeaderRec), kSource) {
    if (IsValid()) {
        FormatUnlessFormatted();
    }
}

// Looked at again under the lock: between our look and our writing another process may have formatted the
// region and written to it.
void SharedStream::FormatUnlessFormatted() {
    std::atomic_ref const signature(HeaderAt(m_Data).SHARED_SIGNATURE);
    if (signature.load(std::memory_order_acquire) == kSignature) {
        return;
    }
    Lock();
    if (signature.load(std::memory_order_relaxed) != kSignature) {
        PublishLength(sizeof(SharedHeaderRec));
        CORVALEN_FAULT("stream.format.length");
        // Last: a death before it leaves a region that the next opener formats.
        signature.store(kSignature, std::memory_order_release);
    }
    Unlock();
}

// A peer may write between any two of our reads: the length is read once, and only this copy is used. Returns
// kBrokenHeader, with a report, if it can't be trusted.
std::uint32_t SharedStream::ReadLength() const {
    SharedHeaderRec& header = HeaderAt(m_Data);
    std::uint32_t const signature = std::atomic_ref(header.SHARED_SIGNATURE).load(std::memory_order_relaxed);
    std::uint32_t const length = std::atomic_ref(header.SHARED_LEN).load(std::memory_order_acquire);
    bool isGood =
        Verify(signature == kSignature, Gravity::kSerious, "SHARED_SIGNATURE == kSignature", kSource);
    isGood &= Verify(length <= m_Size, Gravity::kSerious, "SHARED_LEN <= m_MaxSize", kSource);
    isGood &= Verify(length >= sizeof(SharedHeaderRec), Gravity::kSerious,
                     "SHARED_LEN >= sizeof(SharedHeaderRec)", kSource);
    return isGood ? length : kBrokenHeader;
}

void SharedStream::PublishLength(std::uint32_t length) {
    std::atomic_ref(HeaderAt(m_Data).SHARED_LEN).store(length, std::memory_order_release);
}

int SharedStream::Write(void const* data, std::uint32_t size) {
    if (!IsValid()) {
        return m_LastError = kNotOpen;
    }
    Lock();
    m_LastError = Append(data, size);
    Unlock();
    return m_LastError;
}

int SharedStream::Append(void const* data, std::uint32_t size) {
    std::uint32_t const length = ReadLength();
    if (length == kBrokenHeader) {
        return EBADMSG;
    }
    if (size > m_Size - length) {
        return kNoRoom;
    }
    if (size > 0) {
        std::memcpy(static_cast<std::byte*>(m_Data) + length, data, size);
        CORVALEN_FAULT("stream.write.copied");
        // A death before this leaves bytes that nobody ever reads; after it, a whole write.
        PublishLength(length + size);
        CORVALEN_FAULT("stream.write.published");
    }
    return 0;
}

int SharedStream::Read_NF(void** data, std::uint32_t* size) {
    *data = nullptr;
    *size = 0;
    if (!IsValid()) {
        return m_LastError = kNotOpen;
    }
    Lock();
    m_LastError = TakeOut(data, size);
    Unlock();
    return m_LastError;
}

int SharedStream::TakeOut(void** data, std::uint32_t* size) {
    std::uint32_t const length = ReadLength();
    if (length == kBrokenHeader) {
        return EBADMSG;
    }
    *size = length - static_cast<std::uint32_t>(sizeof(SharedHeaderRec));
    if (*size == 0) {
        return 0;
    }
    *data = std::malloc(*size);
    if (*data == nullptr) {
        return kNoMemory;
    }
    std::memcpy(*data, ContentAt(m_Data), *size);
    CORVALEN_FAULT("stream.read.copied");
    // A reader that dies before this has taken nothing out.
    PublishLength(sizeof(SharedHeaderRec));
    return 0;
}

}  // namespace System::RPC
