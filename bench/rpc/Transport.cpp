#include "bench/rpc/Transport.h"

#include <sched.h>

#include <cstdio>
#include <cstring>

namespace Bench {

namespace {

// What Fill writes behind the sequence.
char FillerOf(std::uint64_t sequence) {
    return static_cast<char>(sequence & 0x7F);
}

bool s_IsProcessorShared = false;

}  // namespace

void Fill(void* payload, std::uint64_t sequence, std::size_t size) {
    std::memset(payload, FillerOf(sequence), size);
    std::memcpy(payload, &sequence, sizeof sequence);
}

bool IsAnswer(Answer const& answer, std::uint64_t sequence) {
    std::uint64_t last = 0;
    std::memset(&last, FillerOf(sequence), sizeof last);
    return answer.sequence == sequence && answer.sum == sequence + last;
}

Answer Answers::To(void const* payload, std::size_t size) const {
    Answer answer{};
    std::uint64_t last = 0;
    std::memcpy(&answer.sequence, payload, sizeof answer.sequence);
    std::memcpy(&last, static_cast<char const*>(payload) + size - sizeof last, sizeof last);
    answer.sum =
        answer.sequence == kHowMany ? m_Notified.load(std::memory_order_relaxed) : answer.sequence + last;
    return answer;
}

void ReportReady() {
    std::puts("ready");
    std::fflush(stdout);
}

void ShareProcessor(bool isShared) {
    s_IsProcessorShared = isShared;
}

void PausePolling() {
    if (s_IsProcessorShared) {
        ::sched_yield();
    }
}

}  // namespace Bench
