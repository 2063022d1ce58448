#include "platform/Mutex.h"

#include <gtest/gtest.h>

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

}  // namespace
