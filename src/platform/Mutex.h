#pragma once

#include <atomic>
#include <cstdint>

#include "platform/ProcessBarrier.h"
#include "platform/ThreadMark.h"

namespace System::Platform {

enum class [[nodiscard]] LockResult{
    kAcquired,
    kAbandoned,  // acquired, and the last owner ended without giving it back: what it guards is suspect
    kTimedOut,
    kFailed,
};

/// A recursive lock of one process. A thread that ends or is ended while it holds it leaves it to the next
/// taker. Taking it and giving it back costs one locked instruction. Who gives it back touches nothing of it
/// afterwards, so that the next owner may destroy it.
///
/// Threads: any thread may call any method; only the owner may unlock.
/// Processes: in a forked child the thread that forked owns what it owned before, at the same depth; what
/// other threads of the parent held counts as left behind by the dead.
class Mutex {
public:
    Mutex() noexcept = default;
    ~Mutex() = default;
    Mutex(Mutex const&) = delete;
    Mutex& operator=(Mutex const&) = delete;

    /// Takes the lock, waiting at most `timeoutMs` milliseconds (below 0: without limit). Never kFailed.
    LockResult Lock(std::int64_t timeoutMs) noexcept {
        std::uint32_t const mark = CurrentThreadMark();
        std::uint32_t seen = 0;
        if (m_Owner.compare_exchange_strong(seen, mark, std::memory_order_acquire, std::memory_order_relaxed))
            [[likely]] {
            m_Depth = 1;
            return LockResult::kAcquired;
        }
        if (seen == mark) {
            ++m_Depth;
            return LockResult::kAcquired;
        }
        return Wait(mark, timeoutMs);
    }

    /// Gives one level back; false if the caller is not the owner.
    bool Unlock() noexcept {
        if (!IsHeldByCaller()) [[unlikely]] {
            return false;
        }
        if (--m_Depth == 0) {
            auto& sleepers = SleepersAt(this);
            m_Owner.store(0, std::memory_order_release);
            // From here on the lock may be gone.
            LightBarrier();
            if (sleepers.load(std::memory_order_relaxed) != 0) [[unlikely]] {
                WakeOne(this);
            }
        }
        return true;
    }

    [[nodiscard]] bool IsHeldByCaller() const noexcept {
        return m_Owner.load(std::memory_order_relaxed) == CurrentThreadMark();
    }
    /// How often the caller has taken it. Requires that it holds it.
    [[nodiscard]] unsigned Depth() const noexcept { return m_Depth; }

private:
    // How many threads sleep for a lock, or are about to, by its address; shared by locks whose addresses
    // fall together. Outside of the lock, so that giving back touches nothing of it.
    static constexpr std::size_t kSleeperSlots = 64;
    struct alignas(64) SleeperSlot {
        std::atomic<std::uint32_t> count;
    };
    static SleeperSlot s_Sleepers[kSleeperSlots];

    static std::atomic<std::uint32_t>& SleepersAt(Mutex const* mutex) noexcept {
        return s_Sleepers[(reinterpret_cast<std::uintptr_t>(mutex) >> 6) % kSleeperSlots].count;
    }
    static void WakeOne(Mutex* mutex) noexcept;

    LockResult Wait(std::uint32_t mark, std::int64_t timeoutMs) noexcept;
    [[nodiscard]] bool TryTake(std::uint32_t mark, LockResult& result) noexcept;
    [[nodiscard]] bool TryWhileLooking(std::uint32_t mark, LockResult& result) noexcept;
    void Sleep(std::int64_t limitNs) noexcept;

    std::atomic<std::uint32_t> m_Owner{0};  // mark of the owning thread, 0 while free
    unsigned m_Depth = 0;                   // the owner's
};

}  // namespace System::Platform
