#include <ctime>
#include <set>

#include "Roles.h"
#include "corvalen/rpc/MemoryPool.h"
#include "corvalen/rpc/RpcChannel.h"
#include "corvalen/rpc/SharedMemory.h"

namespace Storm {

namespace {

using System::RPC::MemoryPool;
using System::RPC::SharedMemory;

constexpr std::uint32_t kMsPerSecond = 1000;

class Examiner : public System::RPC::RpcChannel {
public:
    using RpcChannel::RpcChannel;

    std::uint32_t Purge(std::uint32_t ageMs) {
        Lock();
        std::uint32_t const purged = PurgeHandles(ageMs, 0);
        Unlock();
        return purged;
    }

    // All handles of the channel's pool, seen through a view of our own.
    std::set<std::uint32_t> LiveHandles() {
        SharedMemory region(m_Name, MemoryPool::CalculateSize(static_cast<std::uint16_t>(m_BlockSize),
                                                              static_cast<std::uint16_t>(m_BlockCount)));
        std::set<std::uint32_t> live;
        Lock();
        MemoryPool pool(region.Data());
        pool.DoForEach([](MemoryPool* /*pool*/, std::uint32_t handle,
                          void* context) { static_cast<std::set<std::uint32_t>*>(context)->insert(handle); },
                       &live);
        Unlock();
        return live;
    }

private:
    std::uint32_t OnRequest(std::uint32_t /*sender*/, std::uint32_t /*handle*/) override { return 0; }
    void OnNotify(std::uint32_t /*sender*/, std::uint32_t /*handle*/) override {}
};

std::set<std::uint32_t> OwnedHandles(Board const& board) {
    std::set<std::uint32_t> owned;
    for (ClientSlot const& slot : board.clients) {
        for (auto const& held : slot.held) {
            if (held.load() != 0) {
                owned.insert(held.load());
            }
        }
    }
    return owned;
}

std::uint64_t CountMissing(std::set<std::uint32_t> const& from, std::set<std::uint32_t> const& in) {
    std::uint64_t missing = 0;
    for (std::uint32_t const handle : from) {
        missing += in.contains(handle) ? 0 : 1;
    }
    return missing;
}

// Just old enough for everything that was sent before the clients began to hold what they hold, a second and
// more to the side of safety.
std::uint32_t AgeOfTheForgotten(std::int64_t holdingSince) {
    std::int64_t const seconds = std::time(nullptr) - holdingSince;
    return static_cast<std::uint32_t>(seconds < 0 ? 0 : seconds) * kMsPerSecond + kMsPerSecond;
}

}  // namespace

int RunExaminer(Board& board, Assignment const& assignment) {
    ErrorWatch const watch(board);
    Examiner examiner(Wide(assignment.channel).c_str());
    if (int const error = examiner.OpenClient(); error != 0) {
        return error;
    }
    std::set<std::uint32_t> const owned = OwnedHandles(board);
    board.liveBeforePurge = examiner.LiveHandles().size();
    board.purged = examiner.Purge(AgeOfTheForgotten(assignment.holdingSince));
    std::set<std::uint32_t> const live = examiner.LiveHandles();
    board.liveAfterPurge = live.size();
    board.notOwned = CountMissing(live, owned);
    board.lost = CountMissing(owned, live);
    board.isExamined = 1;
    examiner.Close();
    board.mappingsLeft += MappingsOf(assignment.channel);
    return 0;
}

int RunVisitor(Board& board, Assignment const& assignment) {
    ErrorWatch const watch(board);
    Examiner visitor(Wide(assignment.channel).c_str());
    int const error = visitor.OpenServer(kServerTitle);
    if (error == 0) {
        visitor.Close();
    }
    return error;
}

}  // namespace Storm
