#include "platform/SharedLock.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <thread>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Unique.h"

namespace {

using namespace System::Platform;
using Support::ChildProcess;

constexpr std::uint64_t kSize = 64;
Deadline Generous() {
    return Deadline(std::chrono::milliseconds(Support::kLimit).count());
}

class SharedLocks : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(m_Object.Open(m_Place, "x", kSize, kSize), 0);
        ASSERT_EQ(m_Other.Open(m_Place, "x", kSize, kSize), 0);
    }
    [[nodiscard]] static SharedLockRec& Rec(NamedObject& object, std::size_t offset = 0) {
        return *reinterpret_cast<SharedLockRec*>(object.Data() + offset);
    }
    [[nodiscard]] LockResult Take(NamedObject& object, Deadline const& deadline = Generous()) {
        return AcquireShared(Rec(object), object, deadline);
    }

    Support::TemporaryFolder m_Folder;
    Place m_Place{m_Folder.Path(), 0666};
    NamedObject m_Object;
    NamedObject m_Other;
};

TEST_F(SharedLocks, ExcludeUntilReleased) {
    ASSERT_EQ(Take(m_Object), LockResult::kAcquired);
    EXPECT_EQ(Take(m_Other, Deadline(0)), LockResult::kTimedOut);
    auto const start = Clock::MonotonicNs();
    EXPECT_EQ(Take(m_Other, Deadline(30)), LockResult::kTimedOut);
    EXPECT_GE(Clock::MonotonicNs() - start, 30 * Deadline::kNsPerMs);
    std::thread waiter([&] { EXPECT_EQ(Take(m_Other), LockResult::kAcquired); });
    EXPECT_TRUE(Support::WaitUntil(
        [&] { return (std::atomic_ref(Rec(m_Object).word).load() & Detail::kMaySleep) != 0; }));
    ReleaseShared(Rec(m_Object));
    waiter.join();
    ReleaseShared(Rec(m_Other));
    EXPECT_EQ(Take(m_Object), LockResult::kAcquired);
}

TEST_F(SharedLocks, PassFromTheDeadAsAbandonedOnce) {
    ASSERT_EQ(Take(m_Other), LockResult::kAcquired);
    m_Other.Close();
    EXPECT_EQ(Take(m_Object), LockResult::kAbandoned);
    ReleaseShared(Rec(m_Object));
    EXPECT_EQ(Take(m_Object), LockResult::kAcquired);
    AbandonShared(Rec(m_Object));
    EXPECT_EQ(Take(m_Object), LockResult::kAbandoned);
    EXPECT_EQ(AcquireShared(Rec(m_Object), m_Other, Generous()), LockResult::kFailed) << "not open";
}

TEST_F(SharedLocks, PassFromAKilledProcessToAWaiter) {
    ChildProcess peer("object_peer", {m_Folder.Path(), "x", std::to_string(kSize)});
    peer.WriteLine("open");
    ASSERT_TRUE(peer.Reports("opened"));
    peer.WriteLine("lock");
    ASSERT_TRUE(peer.Reports("locked"));
    std::thread waiter(
        [&] { EXPECT_EQ(AcquireShared(Rec(m_Object, 8), m_Object, Generous()), LockResult::kAbandoned); });
    EXPECT_TRUE(Support::WaitUntil(
        [&] { return (std::atomic_ref(Rec(m_Object, 8).word).load() & Detail::kMaySleep) != 0; }));
    peer.Kill();
    waiter.join();
}

TEST_F(SharedLocks, OfADeadOwnerWhoseNumberIsGivenAgainAreAbandoned) {
    Rec(m_Object).word = m_Object.Participant();
    DisownShared(Rec(m_Object), m_Other);
    EXPECT_EQ(Take(m_Other, Deadline(10)), LockResult::kTimedOut);
    DisownShared(Rec(m_Object), m_Object);
    EXPECT_EQ(Take(m_Other), LockResult::kAbandoned);
}

TEST_F(SharedLocks, WithTheNumberOfSomeoneElseAreWaitedForUntilHeGoes) {
    Rec(m_Object).word = m_Object.Participant();
    std::thread waiter([&] { EXPECT_EQ(Take(m_Other), LockResult::kAbandoned); });
    std::uint32_t& word = Rec(m_Other).word;
    EXPECT_TRUE(Support::WaitUntil([&] { return (std::atomic_ref(word).load() & Detail::kMaySleep) != 0; }));
    m_Object.Close();
    waiter.join();
}

class HostileWords : public SharedLocks, public testing::WithParamInterface<std::uint32_t> {};
TEST_P(HostileWords, HangNobody) {
    std::uint32_t word = GetParam();
    while (m_Object.IsAlive(word & Detail::kOwnerMask)) {
        ++word;
    }
    Rec(m_Object).word = word;
    LockResult const result = Take(m_Object);
    EXPECT_EQ(result, (word & Detail::kOwnerMask) == 0 ? LockResult::kAcquired : LockResult::kAbandoned);
    ReleaseShared(Rec(m_Object));
    EXPECT_EQ(Rec(m_Object).word, 0U);
    EXPECT_EQ(Take(m_Other), LockResult::kAcquired);
}
INSTANTIATE_TEST_SUITE_P(Table, HostileWords,
                         testing::Values(1U, 0xFFFFU, 0x10000U, 0x7FFF0000U, 0x7FFFFFFFU, 0x80000000U,
                                         0x8000FFFFU, 0xFFFFFFFFU, 0x80001234U));

TEST_F(SharedLocks, LetOneInAtATimeWhileOwnersAreKilled) {
    std::vector<std::string> const forever{m_Folder.Path(), "y", "1000000000"};
    ChildProcess survivor("lock_peer", {m_Folder.Path(), "y", "30000"});
    ASSERT_TRUE(survivor.Reports("working"));
    for (int kill = 0; kill < 10; ++kill) {
        ChildProcess victim("lock_peer", forever);
        ASSERT_TRUE(victim.Reports("working"));
        NamedObject object;
        ASSERT_EQ(object.OpenExisting(m_Place, "y", 24), 0);
        auto const count = std::atomic_ref(*reinterpret_cast<std::uint64_t*>(object.Data() + 8));
        std::uint64_t const before = count;
        ASSERT_TRUE(Support::WaitUntil([&] { return count > before + 100; }));
        victim.Kill();
        EXPECT_EQ(victim.ReadLine(), std::nullopt) << "it was not alone";
    }
    EXPECT_TRUE(survivor.Reports("done"));
}

#ifdef CORVALEN_FAULT_POINTS
class DeathsUnderALock : public SharedLocks, public testing::WithParamInterface<char const*> {};
TEST_P(DeathsUnderALock, PassItOnAbandonedOnce) {
    ::setenv("CORVALEN_DIE_AT", GetParam(), 1);
    ChildProcess peer("lock_peer", {m_Folder.Path(), "x", "1000"});
    ::unsetenv("CORVALEN_DIE_AT");
    ASSERT_EQ(peer.Wait(), -SIGKILL);
    EXPECT_EQ(Take(m_Object), LockResult::kAbandoned);
    ReleaseShared(Rec(m_Object));
    EXPECT_EQ(Take(m_Other), LockResult::kAcquired);
}
INSTANTIATE_TEST_SUITE_P(Table, DeathsUnderALock, testing::Values("lock.taken:5", "lock.release:5"));
#endif

}  // namespace
