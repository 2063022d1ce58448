#include "platform/NamedMutex.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <thread>

#include "tests/support/ChildProcess.h"
#include "tests/support/Unique.h"

namespace {

using namespace System::Platform;
using Support::ChildProcess;

class NamedMutexes : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(m_First.Open(SharedPlace(), m_Name), 0);
        ASSERT_EQ(m_Second.Open(SharedPlace(), m_Name), 0);
    }
    [[nodiscard]] std::string NarrowName() const { return {m_Name.begin(), m_Name.end()}; }
    [[nodiscard]] std::string File() const { return SharedPlace().directory + "/" + NarrowName() + "_mtx"; }

    std::u16string m_Name = Support::UniqueWideName();
    NamedMutex m_First;
    NamedMutex m_Second;
};

Deadline Generous() {
    return Deadline(std::chrono::milliseconds(Support::kLimit).count());
}

LockResult LockOnAnotherThread(NamedMutex& mutex, Deadline const& deadline, bool givesBack = true) {
    LockResult result = LockResult::kFailed;
    std::thread([&] {
        result = mutex.Lock(deadline);
        if (givesBack && result != LockResult::kTimedOut) {
            EXPECT_TRUE(mutex.Unlock());
        }
    }).join();
    return result;
}

TEST_F(NamedMutexes, AreOneRecursiveLockThroughAllObjectsOfAProcess) {
    ASSERT_EQ(m_First.Lock(Deadline(-1)), LockResult::kAcquired);
    ASSERT_EQ(m_Second.Lock(Deadline(0)), LockResult::kAcquired);
    EXPECT_TRUE(m_First.Unlock());
    EXPECT_EQ(LockOnAnotherThread(m_First, Deadline(20)), LockResult::kTimedOut);
    EXPECT_TRUE(m_First.Unlock());
    EXPECT_FALSE(m_Second.Unlock());
    EXPECT_EQ(LockOnAnotherThread(m_Second, Generous()), LockResult::kAcquired);
}

TEST_F(NamedMutexes, LetOneThreadInAtATime) {
    constexpr int kRounds = 5000;
    long plain = 0;
    auto const work = [&](NamedMutex& mutex) {
        for (int i = 0; i < kRounds; ++i) {
            ASSERT_EQ(mutex.Lock(Generous()), LockResult::kAcquired);
            ++plain;
            ASSERT_TRUE(mutex.Unlock());
        }
    };
    std::thread one([&] { work(m_First); });
    std::thread two([&] { work(m_Second); });
    work(m_First);
    one.join();
    two.join();
    EXPECT_EQ(plain, 3 * kRounds);
}

TEST_F(NamedMutexes, PassOnWhatAnEndedThreadHeldAsAbandoned) {
    EXPECT_EQ(LockOnAnotherThread(m_First, Generous(), false), LockResult::kAcquired);
    EXPECT_EQ(LockOnAnotherThread(m_First, Generous()), LockResult::kAbandoned);
    EXPECT_EQ(LockOnAnotherThread(m_First, Generous()), LockResult::kAcquired);
}

TEST_F(NamedMutexes, ExcludeAnotherProcessAndOutliveItsDeath) {
    ASSERT_EQ(m_First.Lock(Deadline(-1)), LockResult::kAcquired);
    ChildProcess peer("mutex_peer", {NarrowName()});
    EXPECT_EQ(peer.ReadLine(std::chrono::milliseconds(50)), std::nullopt);
    ASSERT_TRUE(m_First.Unlock());
    ASSERT_TRUE(peer.Reports("acquired"));
    EXPECT_EQ(m_First.Lock(Deadline(20)), LockResult::kTimedOut);
    peer.Kill();
    EXPECT_EQ(m_First.Lock(Generous()), LockResult::kAbandoned);
    EXPECT_TRUE(m_First.Unlock());
}

TEST_F(NamedMutexes, AreFreeForOthersWhenTheLastObjectIsClosedWithTheLock) {
    ChildProcess holder("mutex_peer", {NarrowName()});
    ASSERT_TRUE(holder.Reports("acquired"));
    holder.CloseInput();
    ASSERT_EQ(holder.Wait(), 0);
    ASSERT_EQ(m_First.Lock(Generous()), LockResult::kAcquired);
    ChildProcess waiter("mutex_peer", {NarrowName()});
    m_First.Close();
    EXPECT_EQ(waiter.ReadLine(std::chrono::milliseconds(50)), std::nullopt)
        << "the second object holds it still";
    m_Second.Close();
    EXPECT_TRUE(waiter.Reports("abandoned"));
    waiter.CloseInput();
    EXPECT_EQ(waiter.Wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(NamedMutexes, GoWithTheThreadThatHeldThemWhenAllObjectsAreClosed) {
    std::thread([&] {
        ASSERT_EQ(m_First.Lock(Generous()), LockResult::kAcquired);
        std::thread([&] {
            m_First.Close();
            m_Second.Close();
        }).join();
        EXPECT_TRUE(std::filesystem::exists(File()));
    }).join();
    EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(NamedMutexes, FailWithoutANameOrARoom) {
    EXPECT_EQ(m_First.Open(SharedPlace(), u".."), EINVAL);
    EXPECT_FALSE(m_First.IsOpen());
    EXPECT_EQ(m_First.Lock(Deadline(-1)), LockResult::kFailed);
    EXPECT_FALSE(m_First.Unlock());
    NamedObject region;
    std::u16string const name = Support::UniqueWideName();
    std::string const taken = NamedObject::FileNameOf(name, Kind::kMutex);
    ASSERT_EQ(region.Open(SharedPlace(), taken, 1, 1), 0);
    EXPECT_EQ(m_First.Open(SharedPlace(), name), EEXIST);
}

}  // namespace
