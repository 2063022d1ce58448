// What a line of the log costs: one that the filter keeps back, and one that reaches its file before the call
// returns, on one thread and on two.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#include "bench/log/Logger.h"
#include "bench/support/Contest.h"
#include "corvalen/diagnostics/ComponentLog.h"
#include "corvalen/diagnostics/Log.h"
#include "corvalen/text/NativeConv.h"
#include "corvalen/text/UcsConv.h"
#include "corvalen/threading/ComThread.h"

namespace {

using namespace Bench;
using System::Diagnostics::FLog;

constexpr int kRounds = 15;
constexpr std::size_t kFilteredLines = 2'000'000;
constexpr std::size_t kDeliveredLines = 20'000;

template <typename Log>
std::unique_ptr<Log> s_Log;

template <typename Log>
void Open(std::string const& folder) {
    std::string const name = folder + "/corvalen";
    s_Log<Log> = std::make_unique<Log>(name.c_str(), static_cast<unsigned>(name.size()));
}

template <typename Log>
void Close() {
    s_Log<Log>.reset();
}

void Filtered(std::size_t count) {
    for (std::size_t line = 0; line < count; ++line) {
        FLog::Put(3, 1, "ERR", "-", kText);
        KeepLoop();
    }
}

void Delivered(std::size_t count) {
    for (std::size_t line = 0; line < count; ++line) {
        FLog::Put(0, 1, "ERR", "-", kText);
    }
}

// The loop and the test of the mask, with nothing behind them.
void OnlyTheTest(std::size_t count) {
    static std::atomic<std::uint64_t> s_Mask[4] = {~0ULL, ~0ULL, ~0ULL, 0};
    std::size_t passed = 0;
    for (std::size_t line = 0; line < count; ++line) {
        passed += (s_Mask[3].load(std::memory_order_relaxed) & 1) != 0;
        KeepLoop();
    }
    if (passed != 0) {
        std::abort();
    }
}

constexpr Logger kRte{"FRteCompLog", Open<System::Diagnostics::FRteCompLog>, Filtered, Delivered,
                      Close<System::Diagnostics::FRteCompLog>};
constexpr Logger kCorvalen{"FCorvalenLog", Open<System::Diagnostics::FCorvalenLog>, Filtered, Delivered,
                           Close<System::Diagnostics::FCorvalenLog>};

std::vector<Logger> Peers() {
    std::vector<Logger> peers;
#ifdef CORVALEN_BENCH_SPDLOG_FOUND
    peers.push_back(kSpdlog);
#endif
#ifdef CORVALEN_BENCH_GLOG_FOUND
    peers.push_back(kGlog);
#endif
    return peers;
}

void OnTwoThreads(Logger const& logger, std::size_t count) {
    std::thread other(logger.delivered, count / 2);
    logger.delivered(count - count / 2);
    other.join();
}

// Ours are opened for their turn only, since every line goes to all that are open.
void AddDelivered(Contest& contest, Logger const& logger, bool isOurs, bool isOnTwo,
                  std::string const& folder) {
    contest.Add(logger.name, [=](std::size_t count) {
        if (isOurs) {
            logger.open(folder);
        }
        if (isOnTwo) {
            OnTwoThreads(logger, count);
        } else {
            logger.delivered(count);
        }
        if (isOurs) {
            logger.close();
        }
    });
}

void RunDelivered(char const* title, std::vector<Logger> const& peers, bool isOnTwo,
                  std::string const& folder) {
    Contest contest;
    for (Logger const& peer : peers) {
        AddDelivered(contest, peer, false, isOnTwo, folder);
    }
    AddDelivered(contest, kRte, true, isOnTwo, folder);
    AddDelivered(contest, kCorvalen, true, isOnTwo, folder);
    contest.Run(title, kRounds, kDeliveredLines);
}

void RunFiltered(std::vector<Logger> const& peers) {
    Contest contest;
    contest.Add("the loop with the test", OnlyTheTest);
    contest.Add("FLog::Put", Filtered);
    for (Logger const& peer : peers) {
        contest.Add(peer.name, peer.filtered);
    }
    contest.Run("A line that the level keeps back", kRounds, kFilteredLines);
}

}  // namespace

int main() {
    std::string folder = (std::filesystem::temp_directory_path() / "corvalen_bench_log_XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr) {
        std::perror(folder.c_str());
        return 1;
    }
    System::Threading::CComThread::Init();
    FLog::Init();
    System::Text::UcsConv::Init();
    System::Text::NativeConv::Init();
    std::vector<Logger> const peers = Peers();
    for (Logger const& peer : peers) {
        peer.open(folder);
    }
    RunFiltered(peers);
    RunDelivered("A line that is in its file when the call returns, one thread", peers, false, folder);
    RunDelivered("The same, two threads", peers, true, folder);
    for (Logger const& peer : peers) {
        peer.close();
    }
    System::Text::NativeConv::Terminate();
    System::Text::UcsConv::Terminate();
    FLog::Terminate();
    System::Threading::CComThread::Terminate();
    std::filesystem::remove_all(folder);
}
