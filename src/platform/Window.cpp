#include "platform/Window.h"

#include <atomic>
#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/PeerInbox.h"
#include "platform/ProcessEpoch.h"
#include "platform/Processor.h"
#include "platform/StopDelay.h"
#include "platform/ThreadQueue.h"

namespace System::Platform {

namespace {

constexpr std::size_t kMaxTitle = kTitleUnits - 1;

// A thread that was stopped by force in here would leave it locked for ever.
class ClassRegistry {
public:
    explicit ClassRegistry(std::uint32_t epoch) : m_Epoch(epoch) {}

    // A forked child has classes of its own and leaves its parent's alone: another thread may have been in
    // the midst of them.
    static ClassRegistry& Instance() {
        static std::atomic<ClassRegistry*> s_Instance{nullptr};
        std::uint32_t const epoch = ProcessEpoch();
        ClassRegistry* registry = s_Instance.load(std::memory_order_acquire);
        while (registry == nullptr || registry->m_Epoch != epoch) {
            auto fresh = std::make_unique<ClassRegistry>(epoch);
            if (s_Instance.compare_exchange_strong(registry, fresh.get())) {
                return *fresh.release();
            }
        }
        return *registry;
    }

    int Register(std::u16string_view name, WindowProc proc) {
        StopDelay const stopDelay;
        std::lock_guard const guard(m_Guard);
        return m_Classes.emplace(name, proc).second ? 0 : EADDRINUSE;
    }

    WindowProc Find(std::u16string_view name) {
        StopDelay const stopDelay;
        std::lock_guard const guard(m_Guard);
        auto const found = m_Classes.find(name);
        return found != m_Classes.end() ? found->second : nullptr;
    }

private:
    std::uint32_t const m_Epoch;
    std::mutex m_Guard;
    std::map<std::u16string, WindowProc, std::less<>> m_Classes;
};

}  // namespace

int RegisterWindowClass(std::u16string_view className, WindowProc proc) {
    if (className.empty() || className.size() >= kClassNameUnits) {
        return EINVAL;
    }
    return ClassRegistry::Instance().Register(className, proc);
}

int CreateMessageWindow(std::u16string_view className, std::u16string_view title, void* userData,
                        std::uint32_t& window) {
    WindowProc const proc = ClassRegistry::Instance().Find(className);
    if (proc == nullptr) {
        return EINVAL;
    }
    return ThreadQueue::Current().AddWindow(className, title.substr(0, kMaxTitle), proc, userData, window);
}

int DestroyMessageWindow(std::uint32_t window) {
    return ThreadQueue::Current().RemoveWindow(window);
}

void* UserDataOf(std::uint32_t window) {
    return ThreadQueue::Current().UserDataOf(window);
}

void ForgetUserData(std::uint32_t window) {
    ThreadQueue::Current().ForgetUserData(window);
}

bool IsWindowOfClass(std::uint32_t window, std::u16string_view className) {
    int error = 0;
    auto const peer = PeerInboxes::Find(InboxOfWindow(window), error);
    if (peer == nullptr || !peer->HasWindow(window, &className)) {
        return false;
    }
    if (peer->IsAlive()) {
        return true;
    }
    PeerInboxes::Forget(InboxOfWindow(window));
    return false;
}

int PostToWindow(std::uint32_t window, unsigned message, unsigned wParam, long lParam) {
    int error = 0;
    auto const peer = PeerInboxes::Find(InboxOfWindow(window), error);
    if (peer == nullptr) {
        return error;
    }
    if (peer->IsClosed() || !peer->HasWindow(window, nullptr) || !peer->WasLatelyAlive()) {
        PeerInboxes::Forget(InboxOfWindow(window));
        return ESRCH;
    }
    SlotRec slot{};
    slot.window = window;
    slot.message = message;
    slot.wParam = wParam;
    slot.lParam = lParam;
    slot.processor = CurrentProcessor();
    return peer->Post(slot);
}

SendOutcome SendToWindow(std::uint32_t window, unsigned message, unsigned wParam, long lParam,
                         std::int64_t timeoutMs) {
    return ThreadQueue::Current().Send(window, message, wParam, lParam, timeoutMs);
}

}  // namespace System::Platform
