// What does the lock of the library cost beside the bare robust recursive mutex that it stands on, and beside
// std::recursive_mutex, which forgets nothing of a dead owner because it does not notice one?

#include <pthread.h>

#include <cstddef>
#include <mutex>
#include <thread>

#include "bench/support/Contest.h"
#include "corvalen/threading/Monitor.h"

namespace {

// Short rounds, so that most of them pass without an interruption by the rest of the machine.
constexpr int kRounds = 301;
constexpr std::size_t kCount = 20000;
constexpr int kContendedRounds = 41;
constexpr std::size_t kContendedCount = 200000;
constexpr int kDepth = 4;

class BareRobustMutex {
public:
    BareRobustMutex() {
        pthread_mutexattr_t attributes;
        ::pthread_mutexattr_init(&attributes);
        ::pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        ::pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
        ::pthread_mutex_init(&m_Native, &attributes);
        ::pthread_mutexattr_destroy(&attributes);
    }
    ~BareRobustMutex() { ::pthread_mutex_destroy(&m_Native); }
    BareRobustMutex(BareRobustMutex const&) = delete;
    BareRobustMutex& operator=(BareRobustMutex const&) = delete;

    void lock() { ::pthread_mutex_lock(&m_Native); }
    void unlock() { ::pthread_mutex_unlock(&m_Native); }

private:
    pthread_mutex_t m_Native;
};

class Monitor {
public:
    void lock() { m_Monitor.Lock(); }
    void unlock() { m_Monitor.Unlock(); }

private:
    System::Threading::CMonitor m_Monitor;
};

template <typename Lock>
void Alone(std::size_t count) {
    static Lock lock;
    for (std::size_t i = 0; i < count; ++i) {
        lock.lock();
        lock.unlock();
    }
}

template <typename Lock>
void Nested(std::size_t count) {
    static Lock lock;
    for (std::size_t i = 0; i < count; i += kDepth) {
        for (int level = 0; level < kDepth; ++level) {
            lock.lock();
        }
        for (int level = 0; level < kDepth; ++level) {
            lock.unlock();
        }
    }
}

// Two threads on two processors that want the lock at every moment, for a few instructions each time.
template <typename Lock>
void Contended(std::size_t count) {
    static Lock lock;
    static std::size_t volatile s_Guarded = 0;
    auto const take = [count] {
        for (std::size_t i = 0; i < count / 2; ++i) {
            lock.lock();
            s_Guarded = s_Guarded + 1;
            lock.unlock();
        }
    };
    std::thread other(take);
    take();
    other.join();
}

}  // namespace

int main() {
    Bench::Contest alone;
    alone.Add("bare robust recursive mutex", Alone<BareRobustMutex>);
    alone.Add("std::recursive_mutex", Alone<std::recursive_mutex>);
    alone.Add("CMonitor", Alone<Monitor>);
    alone.Run("uncontended lock and unlock", kRounds, kCount);

    Bench::Contest nested;
    nested.Add("bare robust recursive mutex", Nested<BareRobustMutex>);
    nested.Add("std::recursive_mutex", Nested<std::recursive_mutex>);
    nested.Add("CMonitor", Nested<Monitor>);
    nested.Run("nested four deep, for each level", kRounds, kCount);

    Bench::Contest contended;
    contended.Add("bare robust recursive mutex", Contended<BareRobustMutex>);
    contended.Add("std::recursive_mutex", Contended<std::recursive_mutex>);
    contended.Add("CMonitor", Contended<Monitor>);
    contended.Run("contended by two threads", kContendedRounds, kContendedCount);
}
