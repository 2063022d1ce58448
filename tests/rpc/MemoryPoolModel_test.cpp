#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <random>

#include "tests/rpc/PoolFixture.h"

namespace {

using namespace Support;

// The same rules once more, in the plainest form: runs in a map, the free list in a vector.
class Model {
public:
    explicit Model(std::uint32_t blocks) { AddFree(0, blocks); }

    std::optional<std::uint32_t> Allocate(std::uint32_t blocks) {
        auto best = m_List.end();
        for (auto run = m_List.begin(); run != m_List.end(); ++run) {
            bool const fits = m_Free[*run] >= blocks;
            if (fits && (best == m_List.end() || m_Free[*run] < m_Free[*best])) {
                best = run;
            }
        }
        if (best == m_List.end()) {
            return std::nullopt;
        }
        std::uint32_t const head = *best;
        std::uint32_t const length = m_Free[head];
        m_List.erase(best);
        m_Free.erase(head);
        if (length > blocks) {
            AddFree(head + blocks, length - blocks);
        }
        return head;
    }

    void Free(std::uint32_t head, std::uint32_t blocks) {
        if (auto const next = m_Free.find(head + blocks); next != m_Free.end()) {
            blocks += next->second;
            std::erase(m_List, next->first);
            m_Free.erase(next);
        }
        auto const after = m_Free.lower_bound(head);
        if (after != m_Free.begin()) {
            auto const previous = std::prev(after);
            if (previous->first + previous->second == head) {
                previous->second += blocks;
                return;
            }
        }
        AddFree(head, blocks);
    }

    std::vector<std::uint32_t> const& List() const { return m_List; }
    std::map<std::uint32_t, std::uint32_t> const& Runs() const { return m_Free; }

private:
    void AddFree(std::uint32_t head, std::uint32_t blocks) {
        m_Free[head] = blocks;
        m_List.insert(m_List.begin(), head);
    }

    std::map<std::uint32_t, std::uint32_t> m_Free;
    std::vector<std::uint32_t> m_List;
};

struct Allocation {
    std::uint32_t handle;
    std::uint32_t size;
    unsigned char fill;
};

class MemoryPoolModel : public MemoryPoolTest {
protected:
    void CheckFreeList(Model const& model) {
        std::vector<std::uint32_t> list;
        std::uint32_t previous = EOL;
        for (std::uint32_t run = Header().firstFree; run != EOL && list.size() <= model.List().size();
             run = Entry(run).nextFree) {
            ASSERT_EQ(Entry(run).prevFree, previous);
            list.push_back(run);
            previous = run;
        }
        ASSERT_EQ(list, model.List());
        ASSERT_EQ(Header().lastFree, previous);
        ASSERT_EQ(Header().freeCount, list.size());
        for (auto const& [head, length] : model.Runs()) {
            ASSERT_EQ(Entry(head).size, length);
            ASSERT_EQ(Entry(head + length - 1).first, head);
            for (std::uint32_t block = head; length <= 64 && block < head + length; ++block) {
                ASSERT_EQ(Entry(block).first, head);
            }
        }
    }

    // No block inside a run passes for a head, and the runs tile the table.
    void CheckHeads(std::vector<Allocation> const& live, Model const& model) {
        std::uint32_t heads = 0;
        for (std::uint32_t block = 0; block < Header().blockCount; ++block) {
            heads += Entry(block).first == block ? 1 : 0;
        }
        ASSERT_EQ(heads, live.size() + model.Runs().size());
        ASSERT_EQ(Live(*pool).size(), live.size());
        ASSERT_EQ(Header().usedCount, live.size());
        ASSERT_EQ(Header().usedSize + Header().freeSize, Header().blockCount);
    }

    void CheckContent(Allocation const& one) {
        ASSERT_EQ(pool->HandleSize(one.handle), one.size);
        auto const* const bytes = static_cast<unsigned char const*>(pool->HandleData(one.handle));
        ASSERT_TRUE(
            std::all_of(bytes, bytes + one.size, [&](unsigned char byte) { return byte == one.fill; }));
    }
};

TEST_F(MemoryPoolModel, BehavesLikeThePlainRulesUnderRandomChurn) {
    constexpr std::uint32_t kBlockSize = 16;
    constexpr unsigned kSteps = 6000;
    for (std::uint16_t const blockCount : {std::uint16_t{1}, std::uint16_t{40}, std::uint16_t{700}}) {
        std::mt19937 random(blockCount);
        Make(kBlockSize, blockCount);
        Model model(blockCount);
        std::vector<Allocation> live;
        for (unsigned step = 0; step < kSteps; ++step) {
            bool const fills = (step / 500) % 2 == 0;
            if (live.empty() || random() % 10 < (fills ? 7U : 3U)) {
                auto const size = static_cast<std::uint32_t>(
                    random() % (random() % 20 == 0 ? blockCount * kBlockSize : 90));
                auto const expected = model.Allocate((size + 8 + kBlockSize - 1) / kBlockSize);
                std::uint32_t const handle = pool->NewHandle(size);
                ASSERT_EQ(handle != 0, expected.has_value()) << step;
                if (handle != 0) {
                    ASSERT_EQ(Index(handle), *expected) << step;
                    live.push_back({handle, size, static_cast<unsigned char>(step)});
                    std::memset(pool->HandleData(handle), live.back().fill, size);
                }
            } else {
                std::swap(live[random() % live.size()], live.back());
                Allocation const gone = live.back();
                live.pop_back();
                ASSERT_NO_FATAL_FAILURE(CheckContent(gone));
                pool->DisposeHandle(gone.handle);
                model.Free(Index(gone.handle), (gone.size + 8 + kBlockSize - 1) / kBlockSize);
            }
            ASSERT_NO_FATAL_FAILURE(CheckFreeList(model)) << step;
            if (step % 50 == 0) {
                ASSERT_NO_FATAL_FAILURE(CheckHeads(live, model)) << step;
            }
        }
    }
    EXPECT_EQ(log.Count("(MemoryPool:"), 0U);
}

}  // namespace
