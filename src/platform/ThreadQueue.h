#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "corvalen/platform/MessageQueue.h"
#include "platform/Clock.h"
#include "platform/OwnInbox.h"
#include "platform/PeerInbox.h"
#include "platform/QueueDescriptor.h"
#include "platform/ThreadTimers.h"
#include "platform/WaitPolicy.h"
#include "platform/Window.h"

namespace System::Platform {

/// All that makes one thread's message queue: its inbox (made when it is first needed), windows and timers.
class ThreadQueue {
public:
    ThreadQueue();

    /// The calling thread's.
    static ThreadQueue& Current();

    bool Peek(Message& message);
    long Dispatch(Message const& message);
    bool Wait(int timeoutMs);
    int Descriptor();
    ThreadTimers& Timers() { return m_Timers; }
    /// To be called after a change of the timers.
    void RefreshDescriptor();

    int AddWindow(std::u16string_view className, std::u16string_view title, WindowProc proc, void* userData,
                  std::uint32_t& window);
    int RemoveWindow(std::uint32_t window);
    [[nodiscard]] void* UserDataOf(std::uint32_t window) const;
    void ForgetUserData(std::uint32_t window);

    SendOutcome Send(std::uint32_t window, unsigned message, unsigned wParam, long lParam,
                     std::int64_t timeoutMs);

    [[nodiscard]] std::uint32_t Epoch() const { return m_Epoch; }

private:
    struct Window {
        std::uint32_t id;
        WindowProc proc;
        void* userData;
    };
    class PendingReply;

    int NeedInbox();
    [[nodiscard]] Window const* FindWindow(std::uint32_t id) const;
    bool HasMessage();
    bool HasWork();
    void Serve(SlotRec const& message);
    static void Answer(SlotRec const& message, ReplyState state, long result);
    bool ServeSent();
    bool AwaitReply(PendingReply& reply, PeerInbox& peer, Deadline const& deadline);
    template <typename IsDone, typename Goes>
    bool WaitUntil(IsDone isDone, Deadline const& deadline, std::uint32_t peerProcessor, std::int64_t sliceNs,
                   Goes goesOn);

    std::uint32_t m_Epoch;
    std::unique_ptr<OwnInbox> m_Inbox;
    std::vector<Window> m_Windows;
    ThreadTimers m_Timers;
    QueueDescriptor m_Descriptor;
    WaitPolicy m_Policy;
    std::uint32_t m_PeerProcessor = 0;  // where the last sender ran
    unsigned m_UsableProcessors;
    unsigned m_Sleeps = 0;
    std::uint32_t m_Sleeper = 0;  // what a thread without an inbox sleeps on
};

}  // namespace System::Platform
