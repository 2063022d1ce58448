#include "corvalen/collection/DataBlockLinkedList.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using System::Collection::FDataBlockLinkedList;

// Opens the protected side, as a host's derived class would.
class OpenList : public FDataBlockLinkedList {
public:
    OpenList() = default;
    OpenList(FDataBlock* first, FDataBlock* last) : FDataBlockLinkedList(first, last) {}
    using FDataBlockLinkedList::get_FirstBlock;

    unsigned BlockCount() const {
        unsigned count = 0;
        for (FDataBlock const* block = get_FirstBlock(); block != nullptr; block = block->m_Next) {
            ++count;
        }
        return count;
    }
};

unsigned char const* BytesOf(std::string const& text) {
    return reinterpret_cast<unsigned char const*>(text.data());
}

void Add(FDataBlockLinkedList& list, std::string const& text) {
    list.Add(BytesOf(text), text.size());
}

std::string Peek(FDataBlockLinkedList& list, std::size_t maximum) {
    std::string text(maximum, '?');
    std::uint64_t copied = 77;
    bool const isSome = list.GetDataBlock(reinterpret_cast<unsigned char*>(text.data()), maximum, copied);
    EXPECT_EQ(isSome, copied > 0);
    text.resize(copied);
    return text;
}

// Everything, asking for one byte more than there should be.
std::string Peek(FDataBlockLinkedList& list) {
    return Peek(list, static_cast<std::size_t>(list.GetFullDataLength()) + 1);
}

std::string Next(FDataBlockLinkedList& list) {
    unsigned char value = 77;
    bool const isSome = list.NextDataElement(&value);
    EXPECT_TRUE(isSome || value == 0);
    return isSome ? std::string(1, static_cast<char>(value)) : std::string();
}

std::unique_ptr<FDataBlockLinkedList> Pop(FDataBlockLinkedList& list) {
    FDataBlockLinkedList* popped = &list;
    bool const isSome = list.PopDataList_NF(popped);
    EXPECT_EQ(isSome, popped != nullptr);
    return std::unique_ptr<FDataBlockLinkedList>(popped);
}

TEST(DataBlockLinkedList, GivesNothingWhenItIsNew) {
    OpenList list;
    EXPECT_EQ(list.GetFullDataLength(), 0);
    EXPECT_EQ(Peek(list), "");
    EXPECT_EQ(Next(list), "");
    EXPECT_FALSE(list.ReleaseDataBlock(0));
    EXPECT_FALSE(list.ReleaseDataBlock(1));
    EXPECT_EQ(Pop(list), nullptr);
    EXPECT_EQ(list.get_FirstBlock(), nullptr);
}

struct ReleaseCase {
    char const* name;
    std::vector<std::string> blocks;
    unsigned read;  // bytes taken one by one first
    std::uint64_t length;
    bool isReleased;
    char const* rest;
    unsigned blockCount;
};

class ReleaseOfDataBlock : public testing::TestWithParam<ReleaseCase> {};

TEST_P(ReleaseOfDataBlock, ConsumesFromTheFront) {
    OpenList list;
    for (std::string const& block : GetParam().blocks) {
        Add(list, block);
    }
    for (unsigned i = 0; i < GetParam().read; ++i) {
        EXPECT_NE(Next(list), "");
    }
    EXPECT_EQ(list.ReleaseDataBlock(GetParam().length), GetParam().isReleased);
    EXPECT_EQ(Peek(list), GetParam().rest);
    EXPECT_EQ(list.GetFullDataLength(), static_cast<std::int64_t>(std::string(GetParam().rest).size()));
    EXPECT_EQ(list.BlockCount(), GetParam().blockCount);
}

INSTANTIATE_TEST_SUITE_P(
    DataBlockLinkedList, ReleaseOfDataBlock,
    testing::Values(ReleaseCase{"Nothing", {"abc", "de"}, 0, 0, true, "abcde", 2},
                    ReleaseCase{"NothingDropsABlockThatWasReadToItsEnd", {"abc", "de"}, 3, 0, true, "de", 1},
                    ReleaseCase{"NothingDropsAnEmptyBlock", {"", "de"}, 0, 0, true, "de", 1},
                    ReleaseCase{"NothingDropsOneBlockOnly", {"", "", "de"}, 0, 0, true, "de", 2},
                    ReleaseCase{"PartOfABlock", {"abc", "de"}, 0, 2, true, "cde", 2},
                    ReleaseCase{"AWholeBlock", {"abc", "de"}, 0, 3, true, "de", 1},
                    ReleaseCase{"AcrossBlocks", {"abc", "de"}, 0, 4, true, "e", 1},
                    ReleaseCase{"PastEmptyBlocks", {"abc", "", "", "de"}, 1, 3, true, "e", 1},
                    ReleaseCase{"Everything", {"abc", "de"}, 0, 5, true, "", 0},
                    ReleaseCase{"EverythingLeavesATrailingEmptyBlock", {"abc", ""}, 0, 3, true, "", 1},
                    ReleaseCase{"MoreThanThereIs", {"abc", "de"}, 0, 6, false, "", 0},
                    ReleaseCase{"FarMoreThanThereIs", {"abc", "de"}, 0, UINT64_MAX, false, "", 0},
                    ReleaseCase{"OnlyEmptyBlocks", {"", ""}, 0, 1, false, "", 2}),
    [](auto const& row) { return std::string(row.param.name); });

TEST(DataBlockLinkedList, PeeksAcrossBlocksWithoutConsuming) {
    FDataBlockLinkedList list;
    Add(list, "abc");
    Add(list, "");
    Add(list, "de");
    EXPECT_EQ(Peek(list, 4), "abcd");
    EXPECT_EQ(Peek(list, 4), "abcd");
    EXPECT_EQ(Peek(list, 0), "");
    EXPECT_EQ(list.GetFullDataLength(), 5);
}

TEST(DataBlockLinkedList, KeepsAReadBlockUntilTheNextReadAndDropsTheVeryLastAtOnce) {
    OpenList list;
    Add(list, "a");
    Add(list, "b");
    EXPECT_EQ(Next(list), "a");
    EXPECT_EQ(list.BlockCount(), 2U);
    EXPECT_EQ(Next(list), "b");
    EXPECT_EQ(list.BlockCount(), 0U);
    EXPECT_EQ(Next(list), "");
    Add(list, "c");
    EXPECT_EQ(Next(list), "c");
}

TEST(DataBlockLinkedList, LeavesEmptyBlocksAloneWhenThereIsNoByteToRead) {
    OpenList list;
    list.Add(nullptr, 0);
    EXPECT_EQ(Next(list), "");
    EXPECT_EQ(list.BlockCount(), 1U);
    auto const popped = Pop(list);
    ASSERT_NE(popped, nullptr);
    EXPECT_EQ(popped->GetFullDataLength(), 0);
    EXPECT_EQ(list.BlockCount(), 0U);
}

TEST(DataBlockLinkedList, BringsConsumedBytesBackToLifeInACopy) {
    FDataBlockLinkedList source;
    FDataBlockLinkedList list;
    list.Add(&source);
    EXPECT_EQ(Pop(list), nullptr);
    Add(source, "abc");
    EXPECT_EQ(Next(source), "a");
    list.Add(&source);
    list.Add(&source);
    EXPECT_EQ(Peek(list), "abcabc");
    EXPECT_EQ(list.GetFullDataLength(), 6);
    EXPECT_EQ(Peek(source), "bc");
}

TEST(DataBlockLinkedList, CanAddItself) {
    FDataBlockLinkedList list;
    Add(list, "ab");
    EXPECT_EQ(Next(list), "a");
    list.Add(&list);
    EXPECT_EQ(Peek(list), "bab");
}

TEST(DataBlockLinkedList, MovesPartlyReadBlocksToThePoppedList) {
    FDataBlockLinkedList list;
    Add(list, "abc");
    Add(list, "de");
    EXPECT_EQ(Next(list), "a");
    auto const popped = Pop(list);
    ASSERT_NE(popped, nullptr);
    EXPECT_EQ(popped->GetFullDataLength(), 4);
    EXPECT_EQ(list.GetFullDataLength(), 0);
    Add(list, "x");
    Add(*popped, "f");
    EXPECT_EQ(Peek(*popped), "bcdef");
    EXPECT_EQ(Peek(list), "x");
}

TEST(DataBlockLinkedList, AdoptsAChainWithWhatIsLeftOfIt) {
    auto* const first = FDataBlockLinkedList::FDataBlock::Create(BytesOf("abc"), 3);
    auto* const last = FDataBlockLinkedList::FDataBlock::Create(BytesOf("de"), 2);
    first->m_Offset = 2;
    first->m_Next = last;
    OpenList list(first, last);
    EXPECT_EQ(list.GetFullDataLength(), 3);
    EXPECT_EQ(Peek(list), "cde");
}

TEST(DataBlockLinkedList, CountsAfreshWhenItAddsAListAndNeverBelowZero) {
    OpenList list;
    Add(list, "abc");
    Add(list, "");
    list.get_FirstBlock()->m_Offset = 1;  // as a derived class may
    OpenList other;
    list.Add(&other);
    EXPECT_EQ(list.GetFullDataLength(), 3);
    Add(other, "de");
    list.Add(&other);
    EXPECT_EQ(list.GetFullDataLength(), 4);
    EXPECT_EQ(Peek(list), "bcde");
    list.get_FirstBlock()->m_Offset = 0;
    EXPECT_TRUE(list.ReleaseDataBlock(5));
    EXPECT_EQ(list.GetFullDataLength(), 0);
}

TEST(DataBlockLinkedList, CanBeUsedOnAfterItsRelease) {
    OpenList list;
    Add(list, "abc");
    list.Release();
    list.Release();
    EXPECT_EQ(list.GetFullDataLength(), 0);
    EXPECT_EQ(list.BlockCount(), 0U);
    Add(list, "d");
    EXPECT_EQ(Peek(list), "d");
}

// The same list as plainly as can be: a queue of (bytes, consumed).
class Model {
public:
    struct Block {
        std::string data;
        std::size_t offset = 0;
    };

    void Add(std::string const& text) { m_Blocks.push_back({text}); }
    void Add(Model const& other) {
        std::deque<Block> const blocks = other.m_Blocks;
        for (Block const& block : blocks) {
            m_Blocks.push_back({block.data});
        }
    }
    std::string Content() const {
        std::string content;
        for (Block const& block : m_Blocks) {
            content += block.data.substr(block.offset);
        }
        return content;
    }
    std::string Next() {
        if (Content().empty()) {
            return "";
        }
        DropSpent();
        std::string const byte(1, m_Blocks.front().data[m_Blocks.front().offset++]);
        if (Content().empty()) {
            m_Blocks.pop_front();
        }
        return byte;
    }
    bool Release(std::size_t length) {
        std::size_t const there = Content().size();
        if (there == 0) {
            return false;
        }
        bool isDropping = true;
        for (std::size_t left = length; isDropping && !m_Blocks.empty();) {
            Block& front = m_Blocks.front();
            std::size_t const piece = std::min(left, front.data.size() - front.offset);
            front.offset += piece;
            left -= piece;
            bool const isSpent = front.offset == front.data.size();
            if (isSpent) {
                m_Blocks.pop_front();
            }
            isDropping = isSpent && left != 0;
        }
        return length <= there;
    }
    std::deque<Block> m_Blocks;

private:
    void DropSpent() {
        while (m_Blocks.front().offset == m_Blocks.front().data.size()) {
            m_Blocks.pop_front();
        }
    }
};

std::string RandomText(std::mt19937& random) {
    std::string text(random() % 4 == 0 ? 0 : random() % (random() % 8 == 0 ? 400 : 40), ' ');
    for (char& letter : text) {
        letter = static_cast<char>(random());
    }
    return text;
}

TEST(DataBlockLinkedList, DoesWhatAPlainModelDoes) {
    for (unsigned seed = 1; seed <= 50; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        OpenList list;
        Model model;
        for (int step = 0; step < 100 && !testing::Test::HasFailure(); ++step) {
            std::string const text = RandomText(random);
            switch (random() % 8) {
                case 0:
                case 1:
                case 2:
                    Add(list, text);
                    model.Add(text);
                    break;
                case 3:
                    EXPECT_EQ(Next(list), model.Next());
                    break;
                case 4:
                case 5:
                    EXPECT_EQ(list.ReleaseDataBlock(text.size()), model.Release(text.size()));
                    break;
                case 6:
                    if (list.BlockCount() < 50) {
                        list.Add(&list);
                        model.Add(model);
                    }
                    break;
                default:
                    EXPECT_EQ(Peek(list, text.size()), model.Content().substr(0, text.size()));
            }
            EXPECT_EQ(Peek(list), model.Content());
            EXPECT_EQ(list.GetFullDataLength(), static_cast<std::int64_t>(model.Content().size()));
            EXPECT_EQ(list.BlockCount(), model.m_Blocks.size());
        }
    }
}

TEST(DataBlockLinkedList, LosesNothingBetweenWritersAndAReader) {
    constexpr unsigned kWriters = 3;
    constexpr unsigned kRecords = 2000;
    FDataBlockLinkedList list;
    std::vector<std::jthread> writers;
    for (unsigned char writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([&list, writer] {
            for (unsigned i = 0; i < kRecords; ++i) {
                unsigned char const record[] = {writer, static_cast<unsigned char>(i),
                                                static_cast<unsigned char>(i >> 8)};
                list.Add(record, sizeof record);
            }
        });
    }
    unsigned next[kWriters] = {};
    for (unsigned read = 0; read < kWriters * kRecords;) {
        unsigned char record[3];
        std::uint64_t copied = 0;
        if (!list.GetDataBlock(record, sizeof record, copied)) {
            std::this_thread::yield();
            continue;
        }
        ASSERT_EQ(copied, sizeof record);
        ASSERT_LT(record[0], kWriters);
        EXPECT_EQ(record[1] + 256U * record[2], next[record[0]]++);
        EXPECT_TRUE(list.ReleaseDataBlock(sizeof record));
        ++read;
    }
    writers.clear();
    EXPECT_EQ(list.GetFullDataLength(), 0);
}

// Each list takes its own monitor alone, so the order in which they meet can't block them; that nobody
// changes the other one meanwhile is the callers' business.
TEST(DataBlockLinkedList, AddsEachOtherFromTwoThreads) {
    FDataBlockLinkedList lists[2];
    std::mutex unchanged;
    auto const exchange = [&](FDataBlockLinkedList& mine, FDataBlockLinkedList& other) {
        for (int i = 0; i < 1000; ++i) {
            std::lock_guard const guard(unchanged);
            Add(mine, "ab");
            std::int64_t const expected = mine.GetFullDataLength() + other.GetFullDataLength();
            mine.Add(&other);
            EXPECT_EQ(mine.GetFullDataLength(), expected);
            if (expected > 1000) {
                mine.Release();
            }
        }
    };
    std::jthread const first(exchange, std::ref(lists[0]), std::ref(lists[1]));
    std::jthread const second(exchange, std::ref(lists[1]), std::ref(lists[0]));
}

}  // namespace
