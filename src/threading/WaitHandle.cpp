#include "corvalen/threading/WaitHandle.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Event.h"

namespace System::Threading {

namespace {

constexpr std::size_t kNameBytes = 510;
constexpr std::u16string_view kNameStart = u"ManualResetEvent_";

struct FreeDeleter {
    void operator()(char16_t const* name) const { std::free(const_cast<char16_t*>(name)); }
};

}  // namespace

constinit std::atomic<std::uint32_t> CWaitHandle::WaitHandleEventCount{0};

CWaitHandle::CWaitHandle() {
    ++WaitHandleEventCount;
}

CWaitHandle::~CWaitHandle() = default;

void CWaitHandle::Close() {
    delete std::exchange(m_Handle, nullptr);
}

void CWaitHandle::Reset() {
    if (m_Handle != nullptr) {
        m_Handle->Reset();
    }
}

bool CWaitHandle::WaitOne(int timeoutMs) {
    // Other values below 0 than kForever are the large unsigned numbers that they are as a time-out.
    std::int64_t const limit =
        timeoutMs == kForever ? -1 : std::int64_t{static_cast<std::uint32_t>(timeoutMs)};
    return m_Handle != nullptr && m_Handle->Wait(limit);
}

void CWaitHandle::WaitOne() {
    static_cast<void>(CWaitHandle::WaitOne(kForever));
}

void CWaitHandle::Set() {
    if (m_Handle != nullptr) {
        m_Handle->Set();
    }
}

char16_t const* CWaitHandle::GenerateUniqueName() const {
    auto* const name = static_cast<char16_t*>(std::malloc(kNameBytes));
    if (name == nullptr) {
        return nullptr;
    }
    char16_t* end = std::copy(kNameStart.begin(), kNameStart.end(), name);
    std::string const number = std::to_string(WaitHandleEventCount.load());
    *std::copy(number.begin(), number.end(), end) = u'\0';
    return name;
}

void CWaitHandle::Create(bool isManualReset, bool isSignalled) {
    // Threads of one process share the event through its object, and nothing opens one by name: the name is
    // made and not registered anywhere.
    std::unique_ptr<char16_t const, FreeDeleter> const name(GenerateUniqueName());
    auto const reset = isManualReset ? Platform::EventReset::kManual : Platform::EventReset::kAuto;
    m_Handle = new (std::nothrow) Platform::Event(reset, isSignalled);
}

CAutoResetEvent::CAutoResetEvent(bool isSignalled) {
    Create(false, isSignalled);
}

CAutoResetEvent::~CAutoResetEvent() {
    CWaitHandle::Close();
}

CManualResetEvent::CManualResetEvent(bool isSignalled) {
    Create(true, isSignalled);
}

CManualResetEvent::~CManualResetEvent() {
    CWaitHandle::Close();
}

}  // namespace System::Threading
