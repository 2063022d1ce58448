// What does a piece cost on its way through a locked byte queue: append, peek, release? Ours beside
// libevent's evbuffer with locking and a deque of vectors under a mutex, with none and with a thousand pieces
// waiting. The queues take turns, so that a disturbance of the machine hits all of them.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <semaphore>
#include <thread>
#include <vector>

#include "bench/buffers/Queue.h"

namespace {

using Bench::Queue;

constexpr int kRounds =
    1001;  // short ones: the median leaves out those in which the processor went elsewhere
constexpr std::size_t kPiecesPerRound = 1000;

struct Contender {
    std::unique_ptr<Queue> queue;
    std::vector<double> nsPerPiece = {};

    [[nodiscard]] double Median() {
        auto const middle = nsPerPiece.begin() + static_cast<std::ptrdiff_t>(nsPerPiece.size() / 2);
        std::nth_element(nsPerPiece.begin(), middle, nsPerPiece.end());
        return *middle;
    }
};

std::vector<Contender> MakeContenders() {
    std::vector<Contender> contenders;
    contenders.push_back({Bench::MakeBlockListQueue()});
#ifdef CORVALEN_BENCH_LIBEVENT_FOUND
    contenders.push_back({Bench::MakeEvbufferQueue()});
#endif
    contenders.push_back({Bench::MakeDequeQueue()});
    return contenders;
}

double NsPerPiece(Queue& queue, std::vector<unsigned char> const& piece, std::vector<unsigned char>& buffer) {
    auto const start = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < kPiecesPerRound; ++i) {
        queue.Append(piece.data(), piece.size());
        if (queue.Peek(buffer.data(), buffer.size()) != buffer.size()) {
            std::fprintf(stderr, "%s lost bytes\n", queue.Name());
            std::exit(1);
        }
        queue.Release(buffer.size());
    }
    std::chrono::duration<double, std::nano> const taken = std::chrono::steady_clock::now() - start;
    return taken.count() / kPiecesPerRound;
}

void Measure(std::size_t pieceSize, std::size_t waiting) {
    std::vector<unsigned char> const piece(pieceSize, 0x5A);
    std::vector<unsigned char> buffer(pieceSize);
    std::vector<Contender> contenders = MakeContenders();
    for (Contender& contender : contenders) {
        for (std::size_t i = 0; i < waiting; ++i) {
            contender.queue->Append(piece.data(), piece.size());
        }
        NsPerPiece(*contender.queue, piece, buffer);
    }
    for (int round = 0; round < kRounds; ++round) {
        for (Contender& contender : contenders) {
            contender.nsPerPiece.push_back(NsPerPiece(*contender.queue, piece, buffer));
        }
    }
    double const ours = contenders.front().Median();
    for (Contender& contender : contenders) {
        double const median = contender.Median();
        std::printf("%5zu bytes, %4zu waiting  %-26s %8.1f ns  ours/this %.2f\n", pieceSize, waiting,
                    contender.queue->Name(), median, ours / median);
    }
}

}  // namespace

int main() {
    std::binary_semaphore isOver(0);
    std::jthread const bystander([&] { isOver.acquire(); });
    for (std::size_t const pieceSize : {64U, 4096U}) {
        for (std::size_t const waiting : {0U, 1000U}) {
            Measure(pieceSize, waiting);
        }
    }
    isOver.release();
}
