// Both ends of an inbox, in the states that a killed sender or a long life leaves behind.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <set>
#include <string>

#include "platform/FileDescriptor.h"
#include "platform/FileLock.h"
#include "platform/OwnInbox.h"
#include "platform/PeerInbox.h"
#include "tests/support/ChildProcess.h"

namespace {

using namespace System::Platform;

constexpr std::uint32_t kNobody = 0xFFFF;

class InboxTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(m_Own.Create(), 0);
        ASSERT_EQ(m_Peer.Open(m_Own.Number()), 0);
        ASSERT_EQ(m_View.Open(m_Own.Number()), 0);
    }
    void Post(std::uint32_t value) {
        SlotRec message{};
        message.wParam = value;
        EXPECT_EQ(m_Peer.Post(message), 0);
    }
    // The value of the next posted message, 0 if there is none.
    std::uint32_t Take() {
        SlotRec message{};
        return m_Own.TakePosted(message) ? message.wParam : 0;
    }

    OwnInbox m_Own;
    PeerInbox m_Peer;
    InboxFile m_View;
};

TEST_F(InboxTest, TakesAMessageOnceWhoseSenderDiedBeforeItWasCounted) {
    for (std::uint32_t value = 1; value <= 200; ++value) {
        Post(value);
        RingRec& ring = m_View.Rec().posted;
        ring.lock.word = kNobody;
        --ring.tail;
        --ring.tailSlot;
        EXPECT_EQ(Take(), value);
        for (int look = 0; look < 2; ++look) {
            m_Own.RecoverRings();
            ASSERT_EQ(Take(), 0U) << value;
        }
    }
}

TEST_F(InboxTest, GoesOnBehindCountersThatSomebodyHasOverwritten) {
    std::uint32_t value = 0;
    for (std::uint64_t const tail : {std::uint64_t{0}, std::uint64_t{3}, UINT64_MAX, UINT64_MAX / 4}) {
        Post(++value);
        EXPECT_EQ(Take(), value);
        m_View.Rec().posted.tail = tail;
        for (int look = 0; look < 2; ++look) {
            m_Own.RecoverRings();
            ASSERT_EQ(Take(), 0U) << tail;
        }
        Post(++value);
        EXPECT_EQ(Take(), value) << tail;
    }
}

TEST_F(InboxTest, OfADeadOwnerStaysDeadWhenHisNumberIsGivenOutAgain) {
    constexpr std::int64_t kBytes = std::int64_t{65536} * static_cast<int>(Kind::kInbox);
    unsigned dead = 1;
    while (m_View.Object().IsAlive(dead)) {
        ++dead;
    }
    m_View.Rec().head.owner = dead;
    EXPECT_FALSE(m_Peer.IsAlive());
    // Whoever opens it now has no other number to take.
    std::string const path = SharedPlace().directory + "/" + InboxFileName(m_Own.Number());
    FileDescriptor const others(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    for (unsigned number = 1; number <= NamedObject::kMaxParticipant; ++number) {
        struct flock lock = FileLock::Bytes(F_WRLCK, kBytes + number, 1);
        if (number != dead) {
            // Those of the living stay theirs.
            static_cast<void>(::fcntl(others.Get(), F_OFD_SETLK, &lock));
        }
    }
    // But for another process, which looks through all inboxes and has just taken the number for a moment.
    PeerInbox late;
    int error = EUSERS;
    EXPECT_TRUE(Support::WaitUntil([&] {
        error = late.Open(m_Own.Number());
        return error != EUSERS;
    }));
    EXPECT_EQ(error, ESRCH);
    EXPECT_FALSE(m_Peer.IsAlive());
    EXPECT_TRUE(m_Peer.IsClosed());
}

TEST_F(InboxTest, KeepsTheTimeLimitOfARequestAtALockThatIsHeld) {
    RingRec& ring = m_View.Rec().sent;
    ring.lock.word = m_View.Object().Participant();
    SlotPlace place;
    EXPECT_EQ(m_Peer.Send(SlotRec{}, place, Deadline(20)), ETIMEDOUT);
    ring.lock.word = 0;
    EXPECT_EQ(m_Peer.Send(SlotRec{}, place, Deadline(0)), 0);
}

TEST_F(InboxTest, NeverGivesTwoLivingWindowsOneId) {
    std::set<std::uint32_t> living;
    std::uint32_t window = 0;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(m_Own.AddWindow(u"long", u"", window), 0);
        living.insert(window);
    }
    for (int i = 0; i < 10'000; ++i) {
        ASSERT_EQ(m_Own.AddWindow(u"short", u"", window), 0);
        ASSERT_TRUE(living.insert(window).second) << i;
        m_Own.RemoveWindow(window);
        living.erase(window);
    }
}

}  // namespace
