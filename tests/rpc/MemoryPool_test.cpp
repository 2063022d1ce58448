#include "corvalen/rpc/MemoryPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "tests/rpc/PoolFixture.h"
#include "tests/support/FakeClock.h"

namespace {

using namespace Support;

TEST_F(MemoryPoolTest, FormatsOneFreeRun) {
    Support::FakeClock clock;
    Support::FakeClock::s_Tick = 0x12345678;
    Make(256, 4096);
    PoolHeaderRec const expected{0xC5F708A3, 1097756, 256, 4096, 0x5678, 0, 0, 0, 4096, 0, 1, 0};
    EXPECT_EQ(std::memcmp(&Header(), &expected, sizeof(expected)), 0);
    PoolHandleRec const run{0, 0, 4096, EOL, EOL};
    EXPECT_EQ(std::memcmp(&Entry(0), &run, sizeof(run)), 0);
    EXPECT_EQ(Entry(4095).first, 0);
    EXPECT_EQ(Entry(1).size, 0xDDDDDDDD) << "only `first` of the inner records is written";
    Support::FakeClock::s_Tick = 0x10000;
    Make(16, 1);
    EXPECT_EQ(Header().nextRef, 1);
}

TEST_F(MemoryPoolTest, SplitsTheRunAndKeepsTheLowEnd) {
    Make(16, 4);
    std::uint32_t const reference = Header().nextRef;
    std::uint32_t const handle = pool->NewHandle(10);
    EXPECT_EQ(handle, reference << 16);
    EXPECT_EQ(pool->HandleSize(handle), 10U);
    EXPECT_EQ(pool->HandleData(handle), reinterpret_cast<char*>(&Entry(4)) + 4);
    EXPECT_EQ(std::memcmp(&Entry(4), "Beg<", 4), 0);
    EXPECT_EQ(std::memcmp(reinterpret_cast<char*>(&Entry(4)) + 14, ">End", 4), 0);
    EXPECT_EQ(Entry(0).size, 18U);
    PoolHeaderRec const& header = Header();
    EXPECT_EQ(header.freeCount, 1);
    EXPECT_EQ(header.freeSize, 2);
    EXPECT_EQ(header.usedSize, 2);
    EXPECT_EQ(header.usedCount, 1);
    EXPECT_EQ(header.firstFree, 2);
    EXPECT_EQ(header.lastFree, 2);
    EXPECT_EQ(Entry(2).first, 2);
    EXPECT_EQ(Entry(3).first, 2);
}

TEST_F(MemoryPoolTest, TakesAsManyBlocksAsSizeAndGuardsNeed) {
    struct Case {
        std::uint16_t blockSize;
        std::uint32_t size;
        std::uint16_t blocks;
    };
    for (Case const& row : {Case{256, 248, 1}, Case{256, 249, 2}, Case{8, 0, 1}, Case{16, 0, 1},
                            Case{1, 0, 8}, Case{3, 1, 3}}) {
        Make(row.blockSize, 20);
        std::uint32_t const handle = pool->NewHandle(row.size);
        EXPECT_NE(pool->HandleData(handle), nullptr);
        EXPECT_EQ(pool->HandleSize(handle), row.size);
        EXPECT_EQ(Header().usedSize, row.blocks) << row.blockSize << " " << row.size;
        pool->DisposeHandle(handle);
    }
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(MemoryPoolTest, ReadsAndNamesTheSameHandlesFromEveryView) {
    Make(32, 100);
    std::uint32_t const handle = pool->NewHandle(40);
    std::memcpy(pool->HandleData(handle), "shared", 7);
    std::vector<std::uint32_t> elsewhere = memory;
    OpenPool view(elsewhere.data());
    EXPECT_TRUE(view.CheckHandle(handle));
    EXPECT_STREQ(static_cast<char*>(view.HandleData(handle)), "shared");
    EXPECT_EQ(elsewhere, memory);
    view.DisposeHandle(handle);
    pool->DisposeHandle(handle);
    EXPECT_EQ(elsewhere, memory);
}

TEST_F(MemoryPoolTest, PicksTheShortestRunThatFitsWhereverItStands) {
    for (bool const shortOneFirst : {true, false}) {
        Make(16, 16);
        std::uint32_t const five = pool->NewHandle(5 * 16 - 8);
        std::uint32_t const wall = pool->NewHandle(0);
        std::uint32_t const three = pool->NewHandle(3 * 16 - 8);
        static_cast<void>(pool->NewHandle(7 * 16 - 8));
        pool->DisposeHandle(shortOneFirst ? five : three);
        pool->DisposeHandle(shortOneFirst ? three : five);
        EXPECT_EQ(Index(pool->NewHandle(20)), Index(three));
        EXPECT_TRUE(pool->IsValidHandle(wall));
    }
}

TEST_F(MemoryPoolTest, PicksOfEqualRunsTheOneNearestToTheHeadOfTheList) {
    for (bool const lowOneLast : {true, false}) {
        Make(16, 11);
        std::uint32_t const low = pool->NewHandle(40);
        static_cast<void>(pool->NewHandle(0));
        std::uint32_t const high = pool->NewHandle(40);
        static_cast<void>(pool->NewHandle(56));
        ASSERT_EQ(Header().freeCount, 0);
        ASSERT_EQ(Header().firstFree, EOL);
        ASSERT_EQ(Header().lastFree, EOL);
        pool->DisposeHandle(lowOneLast ? high : low);
        pool->DisposeHandle(lowOneLast ? low : high);
        std::uint32_t const newest = lowOneLast ? low : high;
        EXPECT_EQ(Header().firstFree, Index(newest));
        EXPECT_EQ(Index(pool->NewHandle(20)), Index(newest));
        EXPECT_EQ(Header().freeCount, 2) << "what is left of the run is a run";
        EXPECT_EQ(Header().firstFree, Index(newest) + 2) << "and stands at the head";
    }
}

struct MergeCase {
    char const* name;
    unsigned order[3];
    unsigned freeCounts[3];
};

constexpr MergeCase kMergeCases[] = {
    {"MiddleLast", {0, 2, 1}, {1, 2, 1}},
    {"MiddleFirst", {1, 0, 2}, {1, 1, 1}},
    {"Rising", {0, 1, 2}, {1, 1, 1}},
    {"Falling", {2, 1, 0}, {1, 1, 1}},
};

class MergeOfNeighbours : public MemoryPoolTest, public testing::WithParamInterface<MergeCase> {};

TEST_P(MergeOfNeighbours, EndsInOneRun) {
    Make(16, 9);
    std::uint32_t const handles[] = {pool->NewHandle(40), pool->NewHandle(40), pool->NewHandle(40)};
    for (unsigned step = 0; step < 3; ++step) {
        pool->DisposeHandle(handles[GetParam().order[step]]);
        EXPECT_EQ(Header().freeCount, GetParam().freeCounts[step]) << step;
    }
    EXPECT_EQ(Header().firstFree, 0);
    EXPECT_EQ(Header().lastFree, 0);
    EXPECT_EQ(Entry(0).size, 9U);
    for (std::uint32_t index = 0; index < 9; ++index) {
        EXPECT_EQ(Entry(index).first, 0) << index;
    }
}

INSTANTIATE_TEST_SUITE_P(, MergeOfNeighbours, testing::ValuesIn(kMergeCases),
                         [](auto const& row) { return row.param.name; });

TEST_F(MemoryPoolTest, RefusesWhatNoSingleRunHoldsAndChangesNothing) {
    Make(16, 6);
    std::uint32_t const first = pool->NewHandle(24);
    std::uint32_t const middle = pool->NewHandle(24);
    std::uint32_t const last = pool->NewHandle(24);
    pool->DisposeHandle(first);
    pool->DisposeHandle(last);
    std::vector<std::uint32_t> const before = memory;
    for (std::uint32_t const size :
         {25U, 96U, 1U << 20, 0x7FFFFFFFU, 0xFFFFFFF0U, 0xFFFFFFF7U, 0xFFFFFFF8U, 0xFFFFFFFFU}) {
        EXPECT_EQ(pool->NewHandle(size), 0U) << size;
    }
    EXPECT_EQ(memory, before);
    EXPECT_TRUE(pool->CheckHandle(middle));
}

TEST_F(MemoryPoolTest, KnowsAStaleHandleFromALiveOneAtTheSameIndex) {
    Make(16, 4);
    std::uint32_t const stale = pool->NewHandle(1);
    pool->DisposeHandle(stale);
    EXPECT_FALSE(pool->CheckHandle(stale));
    std::uint32_t const live = pool->NewHandle(1);
    ASSERT_EQ(Index(live), Index(stale));
    std::vector<std::uint32_t> const before = memory;
    for (std::uint32_t const wrong :
         {stale, 0U, Index(live), live + 1, live + 4, live | 0xFFFF, 0xFFFFFFFFU}) {
        EXPECT_FALSE(pool->CheckHandle(wrong)) << wrong;
        EXPECT_FALSE(pool->IsValidHandle(wrong)) << wrong;
        EXPECT_EQ(pool->HandleSize(wrong), 0U) << wrong;
        EXPECT_EQ(pool->HandleData(wrong), nullptr) << wrong;
        pool->DisposeHandle(wrong);
    }
    EXPECT_EQ(memory, before);
    EXPECT_TRUE(pool->IsValidHandle(live));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(MemoryPoolTest, GivesOutReferencesInACycleWithoutZero) {
    Make(16, 4);
    Header().nextRef = 0xFFFE;
    EXPECT_EQ(Reference(pool->NewHandle(0)), 0xFFFEU);
    EXPECT_EQ(Reference(pool->NewHandle(0)), 0xFFFFU);
    EXPECT_EQ(Reference(pool->NewHandle(0)), 1U);
    EXPECT_EQ(Header().nextRef, 2);
}

TEST_F(MemoryPoolTest, ReportsAnOverwrittenGuardAndFreesAllTheSame) {
    Make(16, 4);
    for (int const at : {-4, -1, 10, 13}) {
        log.Clear();
        std::uint32_t const handle = pool->NewHandle(10);
        static_cast<char*>(pool->HandleData(handle))[at] = '!';
        pool->DisposeHandle(handle);
        EXPECT_EQ(Reports("memcmp(m_Data + idx * m_Header->blockSize, kBeginSign, 4) == 0"),
                  at < 0 ? 1U : 0U);
        EXPECT_EQ(
            Reports("memcmp(m_Data + idx * m_Header->blockSize + m_Hdls[idx].size - 4, kEndSign, 4) == 0"),
            at < 0 ? 0U : 1U);
        EXPECT_EQ(Header().freeSize, 4);
        EXPECT_EQ(Header().usedCount, 0);
    }
}

TEST_F(MemoryPoolTest, VisitsLiveHandlesInTheOrderOfBlocks) {
    Make(16, 200);
    Handles handles;
    for (std::uint32_t size = 0; size < 30; ++size) {
        handles.push_back(pool->NewHandle(size));
    }
    pool->DisposeHandle(handles[3]);
    pool->DisposeHandle(handles[29]);
    handles.erase(handles.begin() + 29);
    handles.erase(handles.begin() + 3);
    EXPECT_EQ(Live(*pool), handles);
}

TEST_F(MemoryPoolTest, TellsHowManyHandlesLiveWhenAViewGoes) {
    Make(16, 4);
    static_cast<void>(pool->NewHandle(0));
    static_cast<void>(pool->NewHandle(0));
    pool.reset();
    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_EQ(log.Lines()[0].text, "MemoryPool destroyed with 2 blocks still allocated");
    EXPECT_EQ(log.Lines()[0].severity, 2U);
}

TEST_F(MemoryPoolTest, HasNoRoomWithoutBlocks) {
    for (auto const& [blockSize, blockCount] : {std::pair<std::uint16_t, std::uint16_t>{256, 0}, {0, 5}}) {
        Make(blockSize, blockCount);
        EXPECT_EQ(pool->NewHandle(0), 0U);
        EXPECT_EQ(pool->HandleData(0x10000), nullptr);
        EXPECT_TRUE(Live(*pool).empty());
    }
    Make(256, 0);
    EXPECT_EQ(Header().len, 28U);
    EXPECT_EQ(Header().firstFree, EOL);
    EXPECT_EQ(Header().lastFree, EOL);
}

TEST_F(MemoryPoolTest, WritesNothingWhereTheSizeDoesNotFit32Bits) {
    std::uint32_t untouched[16] = {};
    MemoryPool tooLarge(65535, 65535, untouched);
    EXPECT_EQ(tooLarge.NewHandle(0), 0U);
    tooLarge.DisposeHandle(0x10000);
    EXPECT_TRUE(std::all_of(std::begin(untouched), std::end(untouched), [](auto word) { return word == 0; }));
}

struct BadBlock {
    char const* name;
    PoolHeaderRec header;
    bool hasSignature;
    bool hasLength;
};

constexpr char kSignatureReport[] = "m_Header->signature == kSignature";
constexpr char kLengthReport[] = "m_Header->len == CalculateSize(m_Header->blockSize, m_Header->blockCount)";
constexpr std::uint32_t kGoodSignature = 0xC5F708A3;

constexpr BadBlock kBadBlocks[] = {
    {"Zeros", {}, false, false},
    {"OtherSignature", {kGoodSignature + 1, 28 + 28, 16, 1, 1, 0, 0, 0, 1, 0, 1, 0}, false, true},
    {"OtherLength", {kGoodSignature, 28 + 29, 16, 1, 1, 0, 0, 0, 1, 0, 1, 0}, true, false},
    {"LengthThatWrapped", {kGoodSignature, 656377, 65535, 65535, 1, 0, 0, 0, 1, 0, 1, 0}, true, false},
};

class AttachToABadBlock : public MemoryPoolTest, public testing::WithParamInterface<BadBlock> {};

TEST_P(AttachToABadBlock, IsReportedAndNothingTouchesIt) {
    PoolHeaderRec header = GetParam().header;
    header.usedCount = 1;
    PoolHeaderRec const before = header;
    {
        OpenPool view(&header);
        EXPECT_EQ(Reports(kSignatureReport), GetParam().hasSignature ? 0U : 1U);
        EXPECT_EQ(Reports(kLengthReport), GetParam().hasLength ? 0U : 1U);
        log.Clear();
        EXPECT_EQ(view.NewHandle(0), 0U);
        EXPECT_FALSE(view.CheckHandle(0x10000));
        view.DisposeHandle(0x10000);
        view.Rebuild();
        view.SetLockTag(7);
        EXPECT_EQ(view.LockTag(), 0);
        EXPECT_TRUE(Live(view).empty());
    }
    EXPECT_EQ(std::memcmp(&header, &before, sizeof(header)), 0);
    EXPECT_TRUE(log.Lines().empty());
}

INSTANTIATE_TEST_SUITE_P(, AttachToABadBlock, testing::ValuesIn(kBadBlocks),
                         [](auto const& row) { return row.param.name; });

TEST_F(MemoryPoolTest, KeepsTheTagOfTheLockHolderInTheHeader) {
    Make(256, 8);
    pool->SetLockTag(0xABCD);
    EXPECT_EQ(Header().filler, 0xABCD);
    EXPECT_EQ(OpenPool(memory.data()).LockTag(), 0xABCD);
    EXPECT_TRUE(pool->HasGeometry(256, 8));
    EXPECT_FALSE(pool->HasGeometry(256, 9));
    EXPECT_FALSE(pool->HasGeometry(255, 8));
}

}  // namespace
