#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Clock.h"
#include "platform/InboxFile.h"

namespace System::Platform {

/// The calling thread's own inbox.
///
/// Threads: one thread alone. Processes: other processes read and write its memory at any moment; nothing
/// that is read here is trusted.
class OwnInbox {
public:
    OwnInbox() = default;
    ~OwnInbox();
    OwnInbox(OwnInbox const&) = delete;
    OwnInbox& operator=(OwnInbox const&) = delete;

    /// Makes the inbox under a number that no other has; 0 or errno.
    int Create();
    [[nodiscard]] std::uint32_t Number() const { return m_Number; }

    /// Makes a window known to others and gives its id; ENOSPC when there are kWindowSlots already.
    int AddWindow(std::u16string_view className, std::u16string_view title, std::uint32_t& window);
    void RemoveWindow(std::uint32_t window);

    /// Whether a message is there, seen from memory that stays in our cache until one comes.
    [[nodiscard]] bool HasSent() { return m_Sent->HasMessage(); }
    [[nodiscard]] bool HasPosted() { return m_Posted->HasMessage(); }
    bool TakeSent(SlotRec& message) { return m_Sent->Take(message); }
    bool TakePosted(SlotRec& message) { return m_Posted->Take(message); }

    /// Opens a place for the result of a request and names it in `message`; EAGAIN when kReplySlots requests
    /// are under way.
    int BeginReply(SlotRec& message);
    /// The state of the reply that `message` waits for, and its result.
    [[nodiscard]] ReplyState Reply(SlotRec const& message, std::uint32_t& result) const;
    /// Closes the place; a result that comes later is refused. Returns the last state and result.
    ReplyState EndReply(SlotRec const& message, std::uint32_t& result);

    /// The sleep of the owner: PrepareSleep; look once more for messages; Sleep, unless there are; EndSleep.
    std::uint32_t PrepareSleep();
    void Sleep(std::uint32_t prepared, std::int64_t timeoutNs);
    void EndSleep();
    /// From now on the next message rings the bell.
    void ArmBell();
    /// Says where the owner waits, so that senders know whether they share its processor.
    void TellProcessor(std::uint32_t processor);
    /// Goes on behind messages whose slots have been overwritten. For a time when nothing seems to wait.
    void RecoverRings();

private:
    void Close();
    std::uint32_t NextWindowId();
    std::uint32_t SetSignal(SignalBits bit);
    void RecoverRing(RingRec& ring, RingReceiver& receiver, RingSender sender);

    InboxFile m_File;
    std::uint32_t m_Number = 0;
    std::uint32_t m_LastSequence = 0;
    std::uint32_t m_ReplyDepth = 0;
    std::uint32_t m_LastTag = 0;
    std::unique_ptr<RingReceiver> m_Posted;
    std::unique_ptr<RingReceiver> m_Sent;
};

}  // namespace System::Platform
