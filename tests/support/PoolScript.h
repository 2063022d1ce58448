#pragma once

#include <cstdint>
#include <set>
#include <vector>

#include "corvalen/rpc/MemoryPool.h"

namespace Support {

/// A way through the operations of a pool that takes each of their branches: splits, exact fits, merges with
/// either neighbour, with both and with none, in short runs and in one that is long.
class PoolScript {
public:
    static constexpr std::uint16_t kBlockSize = 16;
    static constexpr std::uint16_t kBlockCount = 90;

    using Handles = std::set<std::uint32_t>;

    explicit PoolScript(System::RPC::MemoryPool& pool) : m_Pool(pool) {}

    /// Five runs of two blocks, all live, in front of a long free run.
    void Prepare() {
        for (int i = 0; i < 5; ++i) {
            m_Handles.push_back(m_Pool.NewHandle(kTwoBlocks));
        }
        m_States = {Live()};
    }

    void Run() {
        for (auto const& [isAllocation, argument] : kSteps) {
            if (isAllocation) {
                m_Handles.push_back(m_Pool.NewHandle(argument));
            } else {
                m_Pool.DisposeHandle(m_Handles[argument]);
            }
            m_States.push_back(Live());
        }
    }

    /// The handles that Prepare made, for a script on another view of the same pool.
    [[nodiscard]] std::vector<std::uint32_t>& Known() { return m_Handles; }
    /// What lived before the first step and after each.
    [[nodiscard]] std::vector<Handles> const& States() const { return m_States; }

    [[nodiscard]] Handles Live() const {
        Handles live;
        m_Pool.DoForEach([](System::RPC::MemoryPool*, std::uint32_t handle,
                            void* to) { static_cast<Handles*>(to)->insert(handle); },
                         &live);
        return live;
    }

private:
    struct Step {
        bool isAllocation;
        std::uint32_t argument;  // size, or which handle is freed
    };

    static constexpr std::uint32_t kTwoBlocks = 24;
    static constexpr Step kSteps[] = {
        {false, 1},                      // no free neighbour
        {true, kTwoBlocks},              // exact fit, in its place: handle 5
        {false, 5},         {false, 2},  // joins it on its left, and keeps its own reference there
        {true, kTwoBlocks},              // splits the two just at that reference: handle 6
        {false, 4},                      // joins the long run on its right
        {false, 3},                      // joins both
        {true, kTwoBlocks},              // splits the long run: handle 7
        {false, 6},                      // no free neighbour
        {false, 0},                      // joins it on its right
    };

    System::RPC::MemoryPool& m_Pool;
    std::vector<std::uint32_t> m_Handles;
    std::vector<Handles> m_States;
};

}  // namespace Support
