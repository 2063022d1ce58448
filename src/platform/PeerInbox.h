#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>

#include "platform/Clock.h"
#include "platform/FileDescriptor.h"
#include "platform/InboxFile.h"

namespace System::Platform {

/// Another thread's inbox, as its senders see it. Nothing of it is trusted.
///
/// Threads: any thread may call any method.
/// Errors: errno values; EAGAIN: the inbox is full, or its lock could not be had for some seconds.
class PeerInbox {
public:
    /// How long a sender waits for the lock of an inbox, which living peers hold for less than a microsecond.
    static constexpr int kLockLimitMs = 5000;

    int Open(std::uint32_t number);

    /// Whether the owner lives and takes messages. One system call.
    [[nodiscard]] bool IsAlive() const;
    /// Whether the owner lived some milliseconds ago. Costs a system call only once in that time.
    [[nodiscard]] bool WasLatelyAlive();
    /// Whether the owner has closed the inbox. Costs nothing, and does not see a death.
    [[nodiscard]] bool IsClosed() const;
    /// Whether `window` is a window of this inbox, and if `className` is not null, of that class.
    [[nodiscard]] bool HasWindow(std::uint32_t window, std::u16string_view const* className) const;
    /// Where the owner last waited, plus 1.
    [[nodiscard]] std::uint32_t Processor() const;

    int Post(SlotRec const& message);
    /// ETIMEDOUT: `deadline` passed before the lock could be had.
    int Send(SlotRec const& message, SlotPlace& place, Deadline const& deadline);
    /// Takes a sent message back; false if the owner has taken it.
    bool Withdraw(SlotPlace const& place) { return Platform::Withdraw(m_File.SentSlots(), place); }
    /// Puts the result of a request where its sender waits. False if the sender does not wait for it any
    /// more.
    bool Reply(std::uint32_t slot, std::uint32_t tag, ReplyState state, std::uint32_t result);

private:
    int Push(RingRec& ring, RingSender sender, std::size_t offset, SlotRec const& message, SlotPlace& place,
             Deadline const& deadline);
    LockResult Acquire(RingRec& ring, Deadline const& deadline);
    void Signal(std::uint32_t bits);
    bool RingOwnersBell();

    InboxFile m_File;
    std::uint32_t m_Number = 0;
    std::atomic<std::int64_t> m_SeenAliveNs{0};
    std::mutex m_BellGuard;
    FileDescriptor m_Bell;  // guarded by m_BellGuard
};

/// The inboxes that this process has lately sent to, by number.
///
/// Threads: any thread may call; a forked child starts with none.
namespace PeerInboxes {

/// The inbox `number`, opened if need be; null and ESRCH or another errno value in `error` if it can't be
/// had.
std::shared_ptr<PeerInbox> Find(std::uint32_t number, int& error);
/// Lets go of an inbox that is found dead.
void Forget(std::uint32_t number);
/// Lets go of the one that was used longest ago, to have its descriptor; false if there is none.
bool DropOldest();

}  // namespace PeerInboxes

}  // namespace System::Platform
