#include "platform/Window.h"

#include <cerrno>
#include <map>
#include <mutex>
#include <string>

#include "platform/PeerInbox.h"
#include "platform/ProcessEpoch.h"
#include "platform/Processor.h"
#include "platform/ThreadQueue.h"

namespace System::Platform {

namespace {

constexpr std::size_t kMaxTitle = kTitleUnits - 1;

class ClassRegistry {
public:
    static ClassRegistry& Instance() {
        static ClassRegistry* const s_Instance = new ClassRegistry;
        return *s_Instance;
    }

    int Register(std::u16string_view name, WindowProc proc) {
        std::lock_guard const guard(m_Guard);
        auto& entry = m_Classes[std::u16string(name)];
        // A class that the parent registered before a fork is not the child's.
        if (entry.proc != nullptr && entry.epoch == ProcessEpoch()) {
            return EADDRINUSE;
        }
        entry = {proc, ProcessEpoch()};
        return 0;
    }

    WindowProc Find(std::u16string_view name) {
        std::lock_guard const guard(m_Guard);
        auto const found = m_Classes.find(std::u16string(name));
        return found != m_Classes.end() && found->second.epoch == ProcessEpoch() ? found->second.proc
                                                                                 : nullptr;
    }

private:
    struct Entry {
        WindowProc proc = nullptr;
        std::uint32_t epoch = 0;
    };

    std::mutex m_Guard;
    std::map<std::u16string, Entry> m_Classes;
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
