#include "corvalen/rpc/RpcChannel.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "corvalen/rpc/MemoryPool.h"
#include "corvalen/rpc/SharedMemory.h"
#include "diagnostics/Report.h"
#include "platform/ProcessEpoch.h"
#include "platform/Window.h"
#include "rpc/HandleHeader.h"

namespace System::RPC {

using Diagnostics::Gravity;
using Diagnostics::Verify;

namespace {

constexpr char kSource[] = "RpcChannel";

std::u16string_view TextOf(char16_t const* text) {
    return text != nullptr ? text : u"";
}

}  // namespace

class RpcChannel::Guard {
public:
    explicit Guard(RpcChannel& channel) : m_Channel(channel) { m_Channel.Lock(); }
    ~Guard() { m_Channel.Unlock(); }
    Guard(Guard const&) = delete;
    Guard& operator=(Guard const&) = delete;

private:
    RpcChannel& m_Channel;
};

// The handle of a message for the length of its handler, also of one that throws.
class RpcChannel::Received {
public:
    Received(RpcChannel& channel, std::uint32_t handle) : m_Channel(channel), m_Handle(handle) {}
    ~Received() { m_Channel.DisposeAfterHandler(m_Handle); }
    Received(Received const&) = delete;
    Received& operator=(Received const&) = delete;

private:
    RpcChannel& m_Channel;
    std::uint32_t m_Handle;
};

RpcChannel::RpcChannel(char16_t const* name) {
    std::u16string_view const text = TextOf(name).substr(0, kMaxName);
    std::copy(text.begin(), text.end(), m_Name);
}

RpcChannel::~RpcChannel() {
    if (!Verify(m_Ref == 0, Gravity::kMinor, "m_Ref == NULL", kSource)) {
        // The window stays behind, and must not find us any more.
        Platform::ForgetUserData(m_Ref);
    }
}

int RpcChannel::OpenServer(char16_t const* serverName) {
    return Open(serverName != nullptr ? serverName : u"");
}

int RpcChannel::OpenClient() {
    return Open(nullptr);
}

int RpcChannel::Open(char16_t const* serverName) {
    if (!Verify(m_Ref == 0, Gravity::kMinor, "m_Ref == NULL", kSource)) {
        return kOpenAlready;
    }
    int error = OpenPool(serverName != nullptr);
    if (error != 0) {
        return error;
    }
    error = CreateRpcWindow(serverName != nullptr ? serverName : u"");
    if (error != 0) {
        ClosePool();
    }
    return error;
}

int RpcChannel::OpenPool(bool isServer) {
    auto const blockSize = static_cast<std::uint16_t>(m_BlockSize);
    auto const blockCount = static_cast<std::uint16_t>(m_BlockCount);
    m_SharedMem = new SharedMemory(m_Name, MemoryPool::CalculateSize(blockSize, blockCount));
    int error = m_SharedMem->IsValid() ? 0 : m_SharedMem->LastError();
    if (error == 0) {
        // Under the lock, so that a client neither attaches to half a pool nor has one change under an
        // operation.
        m_SharedMem->Lock();
        m_MemPool = isServer ? new MemoryPool(blockSize, blockCount, m_SharedMem->Data())
                             : new MemoryPool(m_SharedMem->Data());
        m_SharedMem->Unlock();
        error = m_MemPool->HasGeometry(blockSize, blockCount) ? 0 : EBADMSG;
    }
    if (error != 0) {
        delete m_MemPool;
        delete m_SharedMem;
        m_MemPool = nullptr;
        m_SharedMem = nullptr;
    }
    return error;
}

int RpcChannel::CreateRpcWindow(char16_t const* title) {
    Verify(m_Ref == 0, Gravity::kMinor, "m_Ref == NULL", kSource);
    int const error = Platform::RegisterWindowClass(m_Name, MessageWindProc);
    if (error != 0) {
        Diagnostics::LogWarning("Can not Register Class");
        return error;
    }
    m_Epoch = Platform::ProcessEpoch();
    return Platform::CreateMessageWindow(m_Name, TextOf(title), this, m_Ref);
}

void RpcChannel::Close() {
    if (!Verify(m_Ref != 0, Gravity::kMinor, "m_Ref != NULL", kSource)) {
        return;
    }
    CloseRpcWindow();
    ClosePool();
}

void RpcChannel::CloseRpcWindow() {
    if (!Verify(m_Ref != 0, Gravity::kMinor, "m_Ref != NULL", kSource)) {
        return;
    }
    // Fails on a thread that did not open it, whose window then stays until that thread ends.
    static_cast<void>(Platform::DestroyMessageWindow(m_Ref));
    m_Ref = 0;
}

void RpcChannel::ClosePool() {
    Verify(m_MemPool != nullptr, Gravity::kSerious, "m_MemPool != NULL", kSource);
    delete m_MemPool;
    m_MemPool = nullptr;
    Verify(m_SharedMem != nullptr, Gravity::kSerious, "m_SharedMem != NULL", kSource);
    delete m_SharedMem;
    m_SharedMem = nullptr;
}

std::uint32_t RpcChannel::FindServer(char16_t const* serverName) const {
    return Platform::FindMessageWindow(m_Name, TextOf(serverName));
}

bool RpcChannel::IsRefValid(std::uint32_t ref) const {
    return Platform::IsWindowOfClass(ref, m_Name);
}

// Any changing number would do, but 0, which says that nobody holds the lock.
std::uint16_t RpcChannel::LockTag() const {
    auto const tag = static_cast<std::uint16_t>(reinterpret_cast<std::uintptr_t>(this));
    return tag != 0 ? tag : 1;
}

void RpcChannel::Lock() {
    if (!CanUsePool()) {
        return;
    }
    m_SharedMem->Lock();
    if (m_SharedMem->LockCount() == 1) {
        if (!Verify(m_MemPool->LockTag() == 0, Gravity::kMinor, "m_MemPool->m_Header->filler == 0",
                    kSource)) {
            // Its last holder died inside the lock; what he left half done is put right before anybody uses
            // it.
            m_MemPool->Rebuild();
        }
        m_MemPool->SetLockTag(LockTag());
    }
}

void RpcChannel::Unlock() {
    if (!CanUsePool()) {
        return;
    }
    if (m_SharedMem->LockCount() == 1) {
        Verify(m_MemPool->LockTag() == LockTag(), Gravity::kMinor,
               "m_MemPool->m_Header->filler == (uint16)this", kSource);
        m_MemPool->SetLockTag(0);
    }
    m_SharedMem->Unlock();
}

// A forked child shares the memory with its parent, and not the lock: it must not touch the pool.
bool RpcChannel::CanUsePool() {
    return Verify(m_MemPool != nullptr && m_SharedMem != nullptr, Gravity::kMinor,
                  "m_MemPool != NULL && m_SharedMem != NULL", kSource) &&
           IsOfThisProcess();
}

bool RpcChannel::IsOfThisProcess() const {
    return m_Epoch == Platform::ProcessEpoch();
}

std::uint32_t RpcChannel::NewHandle(std::uint32_t size) {
    if (!CanUsePool() || size > UINT32_MAX - sizeof(HandleHeaderRec)) {
        return 0;
    }
    Guard const guard(*this);
    std::uint32_t const handle =
        m_MemPool->NewHandle(size + static_cast<std::uint32_t>(sizeof(HandleHeaderRec)));
    if (void* const data = m_MemPool->HandleData(handle)) {
        HandleHeader::Store(data, {0, 0});
    }
    return handle;
}

void RpcChannel::DisposeHandle(std::uint32_t handle) {
    if (!CanUsePool() || handle == 0) {
        return;
    }
    Guard const guard(*this);
    m_MemPool->DisposeHandle(handle);
}

// The three that only read take no lock: the record of a handle does not change while its owner has it, and
// of one that is not his the answer is old by the time he has it, with a lock or without.
std::uint32_t RpcChannel::HandleSize(std::uint32_t handle) {
    if (!CanUsePool()) {
        return 0;
    }
    std::uint32_t const size = m_MemPool->HandleSize(handle);
    return size >= sizeof(HandleHeaderRec) ? size - static_cast<std::uint32_t>(sizeof(HandleHeaderRec)) : 0;
}

void* RpcChannel::HandleData(std::uint32_t handle) {
    void* const data = CanUsePool() ? m_MemPool->HandleData(handle) : nullptr;
    return data != nullptr ? static_cast<char*>(data) + sizeof(HandleHeaderRec) : nullptr;
}

bool RpcChannel::IsValidHandle(std::uint32_t handle) {
    return CanUsePool() && m_MemPool->IsValidHandle(handle);
}

void RpcChannel::TagHandle(std::uint32_t handle, std::uint32_t endpoint) {
    if (handle == 0 || m_MemPool == nullptr || !IsOfThisProcess()) {
        return;
    }
    if (void* const data = m_MemPool->HandleData(handle)) {
        HandleHeader::Store(data, {HandleHeader::Now(), endpoint});
    }
}

bool RpcChannel::CanSend() {
    return Verify(m_Ref != 0, Gravity::kMinor, "m_Ref != NULL", kSource);
}

int RpcChannel::Request(std::uint32_t target, std::uint32_t handle, std::uint32_t* reply,
                        std::uint32_t timeout) {
    if (!CanSend()) {
        return kNotOpen;
    }
    TagHandle(handle, target);
    *reply = 0;
    Platform::SendOutcome outcome{ESRCH};
    if (IsOfThisProcess()) {
        outcome = Platform::SendToWindow(target, kRequestMessage, m_Ref, static_cast<long>(handle), timeout);
    }
    if (outcome.error == 0) {
        *reply = outcome.result;
        return 0;
    }
    // A handler that still reads the handle keeps it until it returns; then its side disposes of it.
    if (!outcome.isStillHandled) {
        DisposeHandle(handle);
    }
    return outcome.error;
}

int RpcChannel::Notify(std::uint32_t target, std::uint32_t handle) {
    if (!CanSend()) {
        return kNotOpen;
    }
    TagHandle(handle, target);
    int error = ESRCH;
    if (IsOfThisProcess()) {
        error = Platform::PostToWindow(target, kNotifyMessage, m_Ref, static_cast<long>(handle));
    }
    if (error != 0) {
        DisposeHandle(handle);
    }
    return error;
}

long RpcChannel::MessageWindProc(std::uint32_t window, unsigned message, unsigned wParam, long lParam) {
    auto* const channel = static_cast<RpcChannel*>(Platform::UserDataOf(window));
    auto const handle = static_cast<std::uint32_t>(lParam);
    if (channel == nullptr) {
        return 0;
    }
    std::uint32_t answer = 0;
    if (message == kRequestMessage) {
        Received const received(*channel, handle);
        answer = channel->OnRequest(wParam, handle);
    } else if (message == kNotifyMessage) {
        Received const received(*channel, handle);
        channel->OnNotify(wParam, handle);
    }
    channel->TagHandle(answer, wParam);
    return static_cast<long>(answer);
}

// A handler may have closed its own channel; the pool is then gone, and the handle with it or purged later.
void RpcChannel::DisposeAfterHandler(std::uint32_t handle) {
    if (handle != 0 && m_MemPool != nullptr) {
        DisposeHandle(handle);
    }
}

}  // namespace System::RPC
