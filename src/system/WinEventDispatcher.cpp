#include "corvalen/system/WinEventDispatcher.h"

#include <utility>

#include "corvalen/platform/MessageQueue.h"
#include "platform/Clock.h"

namespace System {

using Platform::Message;
using Platform::MessageQueue;
using Platform::Clock::TickCount;
using Threading::CComThread;

namespace {

constexpr std::uint32_t kSliceTicks = 2;

}  // namespace

CWinEventDispatcher::CWinEventDispatcher() = default;

CWinEventDispatcher::~CWinEventDispatcher() {
    DestroyWorker();
}

void CWinEventDispatcher::DestroyWorker() {
    if (m_Worker != nullptr) {
        m_Worker->Abort();
        delete std::exchange(m_Worker, nullptr);
    }
}

void CWinEventDispatcher::Init() {
    if (m_Running) {
        return;
    }
    DestroyWorker();
    // Before the thread exists, so that Run finds it set.
    m_Running = true;
    m_Worker = new CComThread(this);
    m_Worker->Start();
}

void CWinEventDispatcher::Run() {
    if (!m_Running) {
        return;
    }
    MessageQueue& queue = MessageQueue::Current();
    do {
        std::uint32_t const start = TickCount();
        while (TickCount() - start < kSliceTicks) {
            Message message;
            if (queue.Peek(message)) {
                queue.Dispatch(message);
            }
        }
    } while (m_Running);
}

void CWinEventDispatcher::Abort() {
    m_Running = false;
}

}  // namespace System
