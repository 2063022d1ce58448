#include "platform/WaitPolicy.h"

#include <gtest/gtest.h>

namespace {

using System::Platform::WaitPolicy;

constexpr std::int64_t kQuickNs = 4'000;
constexpr std::int64_t kSliceNs = 3'000'000;  // what somebody else who is busy takes of a processor at a time

int YieldsOnOneProcessor(WaitPolicy& policy) {
    return policy.Yields(1, 1, 2);
}

TEST(WaitPolicy, LooksWhereThePeerCanAnswerMeanwhileAndYieldsWhereItCant) {
    struct Case {
        std::uint32_t here;
        std::uint32_t peer;
        unsigned usable;
        bool isShared;
    };
    for (Case const& c : {Case{1, 1, 2, true}, Case{1, 2, 2, false}, Case{1, 2, 1, false},
                          Case{1, 0, 2, false}, Case{1, 0, 1, true}, Case{0, 1, 1, true}}) {
        WaitPolicy policy;
        EXPECT_EQ(policy.LookNs(c.here, c.peer, c.usable) != 0, !c.isShared) << c.here << " " << c.peer;
        EXPECT_EQ(policy.Yields(c.here, c.peer, c.usable) != 0, c.isShared) << c.here << " " << c.peer;
    }
}

TEST(WaitPolicy, LooksNoMoreWhenWaitsAreLongAndSoonAgainWhenTheyAreShort) {
    WaitPolicy policy;
    for (int i = 0; i < 100; ++i) {
        policy.Learn(kSliceNs);
    }
    EXPECT_EQ(policy.LookNs(1, 2, 2), 0);
    for (int i = 0; i < 2; ++i) {
        policy.Learn(kQuickNs);
    }
    EXPECT_EQ(policy.LookNs(1, 2, 2), WaitPolicy::kLookNs);
}

TEST(WaitPolicy, LosesByLateYieldsNoMoreThanItHasSaved) {
    WaitPolicy policy;
    EXPECT_NE(YieldsOnOneProcessor(policy), 0);
    policy.LearnYield(true, kSliceNs);
    int waitsWithout = 0;
    while (YieldsOnOneProcessor(policy) == 0) {
        ++waitsWithout;
    }
    EXPECT_GE(waitsWithout, 1000);
    EXPECT_LE(waitsWithout, 10000);
    for (int i = 0; i < waitsWithout; ++i) {
        policy.LearnYield(true, kQuickNs);
    }
    policy.LearnYield(false, kSliceNs);
    EXPECT_NE(YieldsOnOneProcessor(policy), 0);
}

}  // namespace
