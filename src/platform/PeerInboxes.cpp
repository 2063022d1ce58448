#include <cerrno>
#include <list>
#include <unordered_map>

#include "platform/PeerInbox.h"
#include "platform/ProcessEpoch.h"
#include "platform/StopDelay.h"

namespace System::Platform {

namespace {

// Each holds a descriptor; a quarter of the usual limit of 1024.
constexpr std::size_t kMaxOpen = 256;
// How many of those that are open are asked whether they live when another one is opened.
constexpr int kSweepStep = 4;

class Cache {
public:
    explicit Cache(std::uint32_t epoch) : m_Epoch(epoch) {}

    [[nodiscard]] std::uint32_t Epoch() const { return m_Epoch; }

    std::shared_ptr<PeerInbox> Find(std::uint32_t number) {
        std::lock_guard const guard(m_Guard);
        auto const found = m_ByNumber.find(number);
        if (found == m_ByNumber.end()) {
            return nullptr;
        }
        m_Order.splice(m_Order.begin(), m_Order, found->second);
        return found->second->inbox;
    }

    std::shared_ptr<PeerInbox> Add(std::uint32_t number, int& error) {
        std::lock_guard const guard(m_Guard);
        if (auto const found = m_ByNumber.find(number); found != m_ByNumber.end()) {
            return found->second->inbox;
        }
        Sweep();
        auto inbox = std::make_shared<PeerInbox>();
        error = inbox->Open(number);
        while (error == EMFILE && !m_Order.empty()) {
            Remove(m_Order.back().number);
            error = inbox->Open(number);
        }
        if (error != 0) {
            return nullptr;
        }
        if (m_Order.size() >= kMaxOpen) {
            Remove(m_Order.back().number);
        }
        m_Order.push_front({number, inbox});
        m_ByNumber[number] = m_Order.begin();
        return inbox;
    }

    void Forget(std::uint32_t number) {
        std::lock_guard const guard(m_Guard);
        Remove(number);
    }

    bool DropOldest() {
        std::lock_guard const guard(m_Guard);
        if (m_Order.empty()) {
            return false;
        }
        Remove(m_Order.back().number);
        return true;
    }

private:
    struct Entry {
        std::uint32_t number;
        std::shared_ptr<PeerInbox> inbox;
    };

    void Remove(std::uint32_t number) {
        auto const found = m_ByNumber.find(number);
        if (found != m_ByNumber.end()) {
            m_Order.erase(found->second);
            m_ByNumber.erase(found);
        }
    }

    // Owners that died keep their file for as long as we have it open, so we ask a few at a time, oldest
    // first.
    void Sweep() {
        for (int i = 0; i < kSweepStep && !m_Order.empty(); ++i) {
            if (m_Order.back().inbox->IsAlive()) {
                m_Order.splice(m_Order.begin(), m_Order, std::prev(m_Order.end()));
            } else {
                Remove(m_Order.back().number);
            }
        }
    }

    std::uint32_t const m_Epoch;
    std::mutex m_Guard;
    std::list<Entry> m_Order;  // the one used last first
    std::unordered_map<std::uint32_t, std::list<Entry>::iterator> m_ByNumber;
};

std::atomic<Cache*> s_Cache{nullptr};

// A forked child leaves its parent's cache alone: another thread may have been in the midst of it. What it
// holds has been let go by the objects' own fork handlers.
Cache& TheCache() {
    std::uint32_t const epoch = ProcessEpoch();
    Cache* cache = s_Cache.load(std::memory_order_acquire);
    while (cache == nullptr || cache->Epoch() != epoch) {
        auto fresh = std::make_unique<Cache>(epoch);
        if (s_Cache.compare_exchange_strong(cache, fresh.get())) {
            return *fresh.release();
        }
    }
    return *cache;
}

// Set for good when the thread's own objects are gone: destructors of static objects may still send.
constinit thread_local bool t_HasEnded = false;

struct LastUsed {
    ~LastUsed() { t_HasEnded = true; }

    std::uint32_t number = 0;
    std::uint32_t epoch = 0;
    std::shared_ptr<PeerInbox> inbox;
};
thread_local LastUsed t_Last;

}  // namespace

std::shared_ptr<PeerInbox> PeerInboxes::Find(std::uint32_t number, int& error) {
    error = ESRCH;
    if (number == 0) {
        return nullptr;
    }
    if (!t_HasEnded && t_Last.number == number && t_Last.epoch == ProcessEpoch() &&
        !t_Last.inbox->IsClosed()) {
        error = 0;
        return t_Last.inbox;
    }
    StopDelay const stopDelay;
    error = 0;
    Cache& cache = TheCache();
    auto inbox = cache.Find(number);
    if (inbox == nullptr) {
        inbox = cache.Add(number, error);
    }
    if (!t_HasEnded) {
        t_Last.number = inbox != nullptr ? number : 0;
        t_Last.epoch = ProcessEpoch();
        t_Last.inbox = inbox;
    }
    return inbox;
}

void PeerInboxes::Forget(std::uint32_t number) {
    StopDelay const stopDelay;
    if (!t_HasEnded) {
        t_Last.number = 0;
        t_Last.inbox.reset();
    }
    TheCache().Forget(number);
}

bool PeerInboxes::DropOldest() {
    StopDelay const stopDelay;
    return TheCache().DropOldest();
}

}  // namespace System::Platform
