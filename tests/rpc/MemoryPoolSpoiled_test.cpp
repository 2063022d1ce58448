#include "tests/rpc/PoolFixture.h"

namespace {

using namespace Support;

// What a peer may have spoiled, and what the next operation says of it. The pool holds three handles of one
// block at 0, 2 and 4; 1 and 3 are free, 3 at the head of the list, and 5 to 9 behind them.
struct Spoiled {
    char const* name;
    void (*spoil)(PoolHeaderRec&, PoolHandleRec*);
    void (*operate)(OpenPool&);
    unsigned severity;
    char const* report;
};

void Allocate(OpenPool& pool) {
    static_cast<void>(pool.NewHandle(0));
}

void AllocateFour(OpenPool& pool) {
    static_cast<void>(pool.NewHandle(4 * 16 - 8));
}

void DisposeFirst(OpenPool& pool) {
    pool.DisposeHandle(1U << 16);
}

constexpr Spoiled kSpoiled[] = {
    {"IndexOutside", [](auto&, auto*) {}, [](OpenPool& pool) { pool.UseBlock(10); }, 0,
     "iIndex < m_Header->blockCount"},
    {"LiveRunOnTheList", [](auto&, auto* hdls) { hdls[3].ref = 9; }, Allocate, 0, "m_Hdls[iIndex].ref == 0"},
    {"NoRunsCounted", [](auto& header, auto*) { header.freeCount = 0; }, Allocate, 1,
     "m_Header->freeCount > 0"},
    {"NoSpaceCounted", [](auto& header, auto*) { header.freeSize = 0; }, Allocate, 1,
     "m_Header->freeSize >= m_Hdls[iIndex].size"},
    {"NotFirst", [](auto&, auto* hdls) { hdls[1].prevFree = EOL; }, [](OpenPool& pool) { pool.UseBlock(1); },
     0, "m_Header->firstFree == iIndex"},
    {"PredecessorOutside", [](auto&, auto* hdls) { hdls[3].prevFree = 10; }, Allocate, 0,
     "m_Hdls[iIndex].prevFree < m_Header->blockCount"},
    {"PredecessorElsewhere", [](auto&, auto* hdls) { hdls[3].prevFree = 5; }, Allocate, 0,
     "m_Hdls[m_Hdls[iIndex].prevFree].nextFree == iIndex"},
    {"NotLast", [](auto& header, auto*) { header.lastFree = 1; }, AllocateFour, 0,
     "m_Header->lastFree == iIndex"},
    {"SuccessorOutside", [](auto&, auto* hdls) { hdls[3].nextFree = 10; }, Allocate, 0,
     "m_Hdls[iIndex].nextFree < m_Header->blockCount"},
    {"SuccessorElsewhere", [](auto&, auto* hdls) { hdls[1].prevFree = 7; }, Allocate, 0,
     "m_Hdls[m_Hdls[iIndex].nextFree].prevFree == iIndex"},
    {"RunOutside", [](auto&, auto*) {}, [](OpenPool& pool) { pool.FreeBlock(8, 3, true); }, 0,
     "iIndex + iCount <= m_Header->blockCount"},
    {"RunThatWraps", [](auto&, auto*) {}, [](OpenPool& pool) { pool.FreeBlock(1, 0xFFFFFFFF, true); }, 0,
     "iIndex + iCount <= m_Header->blockCount"},
    {"NeighbourBehindUs", [](auto&, auto* hdls) { hdls[1].first = 5; },
     [](OpenPool& pool) { pool.DisposeHandle(3U << 16 | 2); }, 0, "prev < iIndex"},
    {"EmptyListWithAnEnd", [](auto& header, auto*) { header.firstFree = EOL; },
     [](OpenPool& pool) { pool.FreeBlock(6, 1, false); }, 0, "m_Header->lastFree == EOL"},
    {"FirstWithAPredecessor", [](auto&, auto* hdls) { hdls[3].prevFree = 1; },
     [](OpenPool& pool) { pool.FreeBlock(6, 1, false); }, 0,
     "m_Hdls[m_Hdls[iIndex].nextFree].prevFree == EOL"},
    {"ListLeavesTheTable", [](auto&, auto* hdls) { hdls[3].nextFree = 0xFFFE; }, AllocateFour, 0,
     "idx < m_Header->blockCount"},
    {"HeadThatIsNone", [](auto&, auto* hdls) { hdls[2].first = 1; }, [](OpenPool& pool) { Live(pool); }, 0,
     "m_Hdls[idx].first == idx"},
    {"NoHandlesCounted", [](auto& header, auto*) { header.usedCount = 0; }, DisposeFirst, 1,
     "m_Header->usedCount > 0"},
    {"NoUseCounted", [](auto& header, auto*) { header.usedSize = 0; }, DisposeFirst, 1,
     "m_Header->usedSize >= bCount"},
};

class SpoiledPool : public MemoryPoolTest, public testing::WithParamInterface<Spoiled> {};

TEST_P(SpoiledPool, IsReportedAndRebuiltFromItsHandles) {
    Make(16, 10);
    Header().nextRef = 1;
    std::uint32_t const kept[] = {pool->NewHandle(0), pool->NewHandle(0), pool->NewHandle(0)};
    Handles const moved = {pool->NewHandle(0), pool->NewHandle(0)};
    pool->DisposeHandle(kept[1]);
    pool->DisposeHandle(moved[0]);
    ASSERT_EQ(Header().freeCount, 3);
    ASSERT_EQ(Index(kept[2]), 2U);
    GetParam().spoil(Header(), &Entry(0));
    GetParam().operate(*pool);
    EXPECT_GE(log.Asserted(GetParam().severity, GetParam().report, "MemoryPool"), 1U);

    pool->Rebuild();
    log.Clear();
    for (std::uint32_t const handle : Live(*pool)) {
        pool->DisposeHandle(handle);
    }
    EXPECT_EQ(Header().freeSize, 10);
    EXPECT_EQ(Entry(0).size, 10U);
    EXPECT_EQ(Header().usedCount + Header().usedSize, 0);
    for (auto const& line : log.Lines()) {
        EXPECT_NE(line.text.find("memcmp("), std::string::npos) << line.text;
    }
}

INSTANTIATE_TEST_SUITE_P(, SpoiledPool, testing::ValuesIn(kSpoiled),
                         [](auto const& row) { return row.param.name; });

TEST_F(MemoryPoolTest, EndsEveryWalkOfAListThatGoesInCircles) {
    Make(16, 10);
    std::uint32_t const low = pool->NewHandle(0);
    static_cast<void>(pool->NewHandle(0));
    pool->DisposeHandle(low);
    Entry(2).nextFree = 0;
    Entry(2).size = 2;
    EXPECT_EQ(pool->NewHandle(100), 0U);
    Entry(2).size = 0;
    EXPECT_EQ(Live(*pool).size(), 1U);
}

TEST_F(MemoryPoolTest, NeverGivesARunThatItsRecordStretchesBeyondTheTable) {
    Make(16, 10);
    static_cast<void>(pool->NewHandle(0));
    Entry(1).size = 10;
    EXPECT_EQ(pool->NewHandle(10 * 16 - 8), 0U);
    Entry(0).size = 0xFFFFFFFF;
    std::uint32_t const handle = std::uint32_t{Entry(0).ref} << 16;
    EXPECT_EQ(pool->HandleSize(handle), 0U);
    EXPECT_EQ(pool->HandleData(handle), nullptr);
}

}  // namespace
