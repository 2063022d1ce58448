#include "platform/ThreadQueue.h"

#include <algorithm>
#include <cerrno>

#include "platform/Futex.h"
#include "platform/ProcessEpoch.h"
#include "platform/Processor.h"
#include "platform/StopDelay.h"

namespace System::Platform {

namespace {

// A process that is killed between its message and its wake-up can't wake us any more: an idle thread looks
// by itself after this time. Costs some microseconds each time.
constexpr std::int64_t kIdleSliceNs = 1'000'000'000;
// How often a thread that waits for an answer asks whether the other side lives.
constexpr std::int64_t kDeathSliceNs = 4'000'000;
constexpr int kLooksBetweenClockReads = 32;
constexpr unsigned kSleepsBetweenAffinityReads = 256;
// A flood of requests must not keep the posted messages waiting for ever.
constexpr int kMaxServedAtOnce = 64;

template <typename IsDone>
bool YieldUntil(IsDone isDone, int times) {
    for (int i = 0; i < times; ++i) {
        YieldProcessor();
        if (isDone()) {
            return true;
        }
    }
    return false;
}

}  // namespace

// The place for one result, closed at the latest when a procedure that we serve meanwhile throws.
class ThreadQueue::PendingReply {
public:
    explicit PendingReply(OwnInbox& inbox) : m_Inbox(inbox) {}
    ~PendingReply() {
        if (m_IsOpen) {
            std::uint32_t ignored = 0;
            static_cast<void>(m_Inbox.EndReply(m_Message, ignored));
        }
    }
    PendingReply(PendingReply const&) = delete;
    PendingReply& operator=(PendingReply const&) = delete;

    int Open(SlotRec& message) {
        int const error = m_Inbox.BeginReply(message);
        m_Message = message;
        m_IsOpen = error == 0;
        return error;
    }
    [[nodiscard]] bool HasCome() const {
        std::uint32_t ignored = 0;
        return m_Inbox.Reply(m_Message, ignored) != ReplyState::kPending;
    }
    ReplyState End(std::uint32_t& result) {
        m_IsOpen = false;
        return m_Inbox.EndReply(m_Message, result);
    }

private:
    OwnInbox& m_Inbox;
    SlotRec m_Message{};
    bool m_IsOpen = false;
};

ThreadQueue::ThreadQueue() : m_Epoch(ProcessEpoch()), m_UsableProcessors(UsableProcessors()) {}

int ThreadQueue::NeedInbox() {
    if (m_Inbox != nullptr) {
        return 0;
    }
    // Stopped by force in between, the thread would leave an inbox that nobody ends while the process lives.
    StopDelay const stopDelay;
    auto inbox = std::make_unique<OwnInbox>();
    int const error = inbox->Create();
    if (error == 0) {
        m_Inbox = std::move(inbox);
    }
    return error;
}

ThreadQueue::Window const* ThreadQueue::FindWindow(std::uint32_t id) const {
    auto const found =
        std::find_if(m_Windows.begin(), m_Windows.end(), [id](Window const& w) { return w.id == id; });
    return found != m_Windows.end() ? &*found : nullptr;
}

bool ThreadQueue::HasMessage() {
    return m_Inbox != nullptr && (m_Inbox->HasSent() || m_Inbox->HasPosted());
}

bool ThreadQueue::HasWork() {
    return HasMessage() || (!m_Timers.IsEmpty() && m_Timers.NextDueNs() <= Clock::MonotonicNs());
}

void ThreadQueue::Serve(SlotRec const& message) {
    m_PeerProcessor = message.processor;
    // Also where a host polls and never waits.
    m_Inbox->TellProcessor(CurrentProcessor());
    Window const* const window = FindWindow(message.window);
    if (window == nullptr) {
        Answer(message, ReplyState::kRefused, 0);
        return;
    }
    long result = 0;
    try {
        result =
            window->proc(message.window, message.message, message.wParam, static_cast<long>(message.lParam));
    } catch (...) {
        // What it throws is our caller's; the sender must not wait for a result that never comes.
        Answer(message, ReplyState::kRefused, 0);
        throw;
    }
    Answer(message, ReplyState::kDone, result);
}

void ThreadQueue::Answer(SlotRec const& message, ReplyState state, long result) {
    int error = 0;
    // A sender that is gone needs no result, nor does one that has given up.
    if (auto const peer = PeerInboxes::Find(message.replyInbox, error)) {
        peer->Reply(message.replySlot, message.replyTag, state, static_cast<std::uint32_t>(result));
    }
}

bool ThreadQueue::ServeSent() {
    SlotRec message;
    int served = 0;
    while (served < kMaxServedAtOnce && m_Inbox->TakeSent(message)) {
        Serve(message);
        ++served;
    }
    return served != 0;
}

bool ThreadQueue::Peek(Message& message) {
    bool isTaken = false;
    if (m_Inbox != nullptr) {
        ServeSent();
        SlotRec slot;
        if (m_Inbox->TakePosted(slot)) {
            m_PeerProcessor = slot.processor;
            message = {slot.window, slot.message, slot.wParam, slot.lParam};
            isTaken = true;
        }
    }
    if (!isTaken) {
        isTaken = m_Timers.TakeDue(message);
    }
    if (m_Descriptor.IsOpen()) [[unlikely]] {
        RefreshDescriptor();
    }
    return isTaken;
}

// Unreadable only while nothing waits. The bell is armed before the last look, so that a message that comes
// in between either is seen or rings.
void ThreadQueue::RefreshDescriptor() {
    if (!m_Descriptor.IsOpen() || HasMessage()) {
        return;
    }
    m_Descriptor.Silence(m_Timers.NextDueNs());
    m_Inbox->ArmBell();
    if (HasMessage()) {
        m_Descriptor.Ring();
    }
}

long ThreadQueue::Dispatch(Message const& message) {
    if (message.window == 0) {
        if (TimerProc const proc = m_Timers.ProcOf(message.wParam);
            proc != nullptr && message.message == MessageQueue::kTimerMessage) {
            proc(0, message.message, message.wParam, Clock::TickCount());
        }
        return 0;
    }
    Window const* const window = FindWindow(message.window);
    return window != nullptr ? window->proc(message.window, message.message, message.wParam,
                                            static_cast<long>(message.lParam))
                             : 0;
}

// Waits until `isDone`, looking or yielding first if that is likely to pay. At each wake-up without success
// `goesOn` tells whether to wait on. False when the time is up or `goesOn` said no.
template <typename IsDone, typename Goes>
bool ThreadQueue::WaitUntil(IsDone isDone, Deadline const& deadline, std::uint32_t peerProcessor,
                            std::int64_t sliceNs, Goes goesOn) {
    if (isDone()) {
        return true;
    }
    std::uint32_t const here = CurrentProcessor();
    m_Inbox->TellProcessor(here);
    std::int64_t const beginNs = Clock::MonotonicNs();
    std::int64_t nowNs = beginNs;
    auto const succeed = [&] {
        m_Policy.Learn(Clock::MonotonicNs() - beginNs);
        return true;
    };
    std::int64_t const lookNs = m_Policy.LookNs(here, peerProcessor, m_UsableProcessors);
    std::int64_t const lookUntilNs = std::min(beginNs + lookNs, deadline.Ns());
    bool const hasLooked = nowNs < lookUntilNs;
    while (nowNs < lookUntilNs) {
        for (int i = 0; i < kLooksBetweenClockReads; ++i) {
            if (isDone()) {
                return succeed();
            }
            Relax();
        }
        nowNs = Clock::MonotonicNs();
    }
    if (int const yields = m_Policy.Yields(here, peerProcessor, m_UsableProcessors); yields != 0) {
        bool const hasCome = YieldUntil(isDone, yields);
        std::int64_t const waitedNs = Clock::MonotonicNs() - beginNs;
        m_Policy.LearnYield(hasCome, waitedNs);
        if (hasCome) {
            m_Policy.Learn(waitedNs);
            return true;
        }
    }
    // A look in vain costs more than to ask whether there is anything to look for.
    if (hasLooked || ++m_Sleeps % kSleepsBetweenAffinityReads == 0) {
        m_UsableProcessors = UsableProcessors();
    }
    for (;;) {
        std::uint32_t const prepared = m_Inbox->PrepareSleep();
        std::int64_t const leftNs = deadline.LeftNs();
        if (!isDone() && leftNs > 0) {
            m_Inbox->Sleep(prepared, std::min(leftNs, sliceNs));
        }
        m_Inbox->EndSleep();
        if (isDone()) {
            return succeed();
        }
        if (leftNs == 0 || !goesOn()) {
            return false;
        }
    }
}

bool ThreadQueue::Wait(int timeoutMs) {
    Deadline deadline(timeoutMs);
    for (;;) {
        if (HasWork()) {
            return true;
        }
        std::int64_t const dueNs = m_Timers.NextDueNs();
        if (m_Inbox == nullptr) {
            if (deadline.HasPassed()) {
                return false;
            }
            std::int64_t const untilNs = std::min(dueNs, deadline.Ns());
            FutexWait(m_Sleeper, 0,
                      untilNs == Deadline::kNever ? untilNs
                                                  : std::max<std::int64_t>(untilNs - Clock::MonotonicNs(), 0),
                      false);
            continue;
        }
        Deadline const until = Deadline::AtNs(std::min(dueNs, deadline.Ns()));
        bool const isDone = WaitUntil([this] { return HasMessage(); }, until, m_PeerProcessor, kIdleSliceNs,
                                      [this] {
                                          m_Inbox->RecoverRings();
                                          return true;
                                      });
        if (isDone) {
            return true;
        }
        if (deadline.HasPassed()) {
            return HasWork();
        }
    }
}

int ThreadQueue::Descriptor() {
    if (!m_Descriptor.IsOpen()) {
        StopDelay const stopDelay;
        if (NeedInbox() != 0 || m_Descriptor.Open(m_Inbox->Number()) != 0) {
            return -1;
        }
        if (HasMessage()) {
            m_Descriptor.Ring();
        }
        RefreshDescriptor();
    }
    return m_Descriptor.Get();
}

int ThreadQueue::AddWindow(std::u16string_view className, std::u16string_view title, WindowProc proc,
                           void* userData, std::uint32_t& window) {
    if (int const error = NeedInbox(); error != 0) {
        return error;
    }
    StopDelay const stopDelay;
    // Room first: from the moment when others can see the window it has to be ours.
    m_Windows.reserve(m_Windows.size() + 1);
    int const error = m_Inbox->AddWindow(className, title, window);
    if (error == 0) {
        m_Windows.push_back({window, proc, userData});
    }
    return error;
}

int ThreadQueue::RemoveWindow(std::uint32_t window) {
    StopDelay const stopDelay;
    if (std::erase_if(m_Windows, [window](Window const& w) { return w.id == window; }) == 0) {
        return ESRCH;
    }
    m_Inbox->RemoveWindow(window);
    return 0;
}

void* ThreadQueue::UserDataOf(std::uint32_t window) const {
    Window const* const found = FindWindow(window);
    return found != nullptr ? found->userData : nullptr;
}

void ThreadQueue::ForgetUserData(std::uint32_t window) {
    for (Window& own : m_Windows) {
        if (own.id == window) {
            own.userData = nullptr;
        }
    }
}

// True when the result is there; false when the time is up or the other side is gone. What is sent to this
// thread meanwhile is served, so that two threads can ask each other at the same time.
bool ThreadQueue::AwaitReply(PendingReply& reply, PeerInbox& peer, Deadline const& deadline) {
    for (;;) {
        bool const isDone = WaitUntil([&] { return reply.HasCome() || m_Inbox->HasSent(); }, deadline,
                                      peer.Processor(), kDeathSliceNs, [&] { return peer.IsAlive(); });
        if (!isDone || reply.HasCome()) {
            return isDone;
        }
        ServeSent();
        // While one request follows the other the wait above ends at once each time, and looks at neither.
        if (!reply.HasCome() && (deadline.HasPassed() || !peer.WasLatelyAlive())) {
            return false;
        }
    }
}

SendOutcome ThreadQueue::Send(std::uint32_t window, unsigned message, unsigned wParam, long lParam,
                              std::int64_t timeoutMs) {
    if (Window const* const own = FindWindow(window)) {
        return {0, static_cast<std::uint32_t>(own->proc(window, message, wParam, lParam)), false};
    }
    Deadline const deadline(timeoutMs);
    int error = NeedInbox();
    if (error != 0) {
        return {error};
    }
    auto const peer = PeerInboxes::Find(InboxOfWindow(window), error);
    if (peer == nullptr) {
        return {error};
    }
    if (peer->IsClosed() || !peer->HasWindow(window, nullptr)) {
        return {ESRCH};
    }
    SlotRec slot{};
    slot.window = window;
    slot.message = message;
    slot.wParam = wParam;
    slot.lParam = lParam;
    slot.processor = CurrentProcessor();
    PendingReply reply(*m_Inbox);
    SlotPlace place;
    error = reply.Open(slot);
    if (error == 0) {
        error = peer->Send(slot, place, deadline);
    }
    if (error != 0) {
        return {error};
    }
    bool const isDone = AwaitReply(reply, *peer, deadline);
    // The answer, and what was served meanwhile, have rung the bell.
    RefreshDescriptor();
    // What could be taken back was handled by nobody.
    bool const isWithdrawn = !isDone && peer->Withdraw(place);
    SendOutcome outcome;
    switch (reply.End(outcome.result)) {
        case ReplyState::kDone:
            return outcome;
        case ReplyState::kRefused:
            return {ESRCH};
        default:
            break;
    }
    if (!peer->IsAlive()) {
        PeerInboxes::Forget(InboxOfWindow(window));
        return {isWithdrawn ? ESRCH : ECONNRESET};
    }
    return {ETIMEDOUT, 0, !isWithdrawn};
}

}  // namespace System::Platform
