#include "platform/Mutex.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <future>
#include <thread>

namespace {

using System::Platform::LockResult;
using System::Platform::Mutex;

LockResult LockOnAnotherThread(Mutex& mutex, int timeoutMs) {
    LockResult result = LockResult::kFailed;
    std::thread([&] {
        result = mutex.Lock(timeoutMs);
        if (result != LockResult::kTimedOut) {
            EXPECT_TRUE(mutex.Unlock());
        }
    }).join();
    return result;
}

TEST(Mutex, IsFreeOnlyAfterAsManyUnlocksAsLocks) {
    Mutex mutex;
    ASSERT_EQ(mutex.Lock(-1), LockResult::kAcquired);
    ASSERT_EQ(mutex.Lock(0), LockResult::kAcquired);
    EXPECT_TRUE(mutex.Unlock());
    EXPECT_EQ(LockOnAnotherThread(mutex, 20), LockResult::kTimedOut);
    EXPECT_EQ(LockOnAnotherThread(mutex, 0), LockResult::kTimedOut);
    EXPECT_TRUE(mutex.Unlock());
    EXPECT_EQ(LockOnAnotherThread(mutex, 0), LockResult::kAcquired);
    EXPECT_FALSE(mutex.Unlock());
}

TEST(Mutex, TellsTheNextOwnerOnceThatTheLastOneDied) {
    Mutex mutex;
    std::thread([&] { ASSERT_EQ(mutex.Lock(-1), LockResult::kAcquired); }).join();
    EXPECT_EQ(LockOnAnotherThread(mutex, 1000), LockResult::kAbandoned);
    EXPECT_EQ(LockOnAnotherThread(mutex, 1000), LockResult::kAcquired);
}

// The steps that hold in a forked child, as bits of its exit code.
int LookFromChild(auto&& steps) {
    pid_t const child = ::fork();
    if (child == 0) {
        ::_exit(steps());
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Mutex, StaysWithTheThreadThatForks) {
    Mutex mutex;
    Mutex other;
    ASSERT_EQ(mutex.Lock(-1), LockResult::kAcquired);
    ASSERT_EQ(other.Lock(-1), LockResult::kAcquired);
    ASSERT_EQ(mutex.Lock(-1), LockResult::kAcquired);
    ASSERT_TRUE(other.Unlock());
    EXPECT_EQ(LookFromChild([&] {
                  int const nested = mutex.Lock(0) == LockResult::kAcquired ? 1 : 0;
                  int const owns = mutex.Unlock() && mutex.Unlock() && mutex.Unlock() ? 2 : 0;
                  int const isFree = !mutex.Unlock() && mutex.Lock(0) == LockResult::kAcquired ? 4 : 0;
                  return nested | owns | isFree | (other.Unlock() ? 8 : 0);
              }),
              7);
    EXPECT_TRUE(mutex.Unlock());
    EXPECT_TRUE(mutex.Unlock());
    EXPECT_FALSE(mutex.Unlock());
}

TEST(Mutex, IsLeftBehindByThreadsThatDoNotExistInAForkedChild) {
    Mutex mutex;
    std::promise<void> locked;
    std::promise<void> looked;
    std::thread holder([&] {
        ASSERT_EQ(mutex.Lock(-1), LockResult::kAcquired);
        locked.set_value();
        looked.get_future().wait();
        EXPECT_TRUE(mutex.Unlock());
    });
    locked.get_future().wait();
    EXPECT_EQ(mutex.Lock(1), LockResult::kTimedOut);
    EXPECT_EQ(LookFromChild([&] {
                  int const wasLeft = mutex.Lock(0) == LockResult::kAbandoned ? 1 : 0;
                  return wasLeft | (mutex.Unlock() ? 2 : 0) |
                         (mutex.Lock(0) == LockResult::kAcquired ? 4 : 0);
              }),
              7);
    looked.set_value();
    holder.join();
    EXPECT_EQ(mutex.Lock(0), LockResult::kAcquired);
    EXPECT_TRUE(mutex.Unlock());
}

}  // namespace
