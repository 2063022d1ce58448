#include "bench/rpc/Transport.h"

#include <cstdio>
#include <cstring>

namespace Bench {

void Client::AwaitNotified(unsigned) {
    Ask(0, sizeof(Answer));
}

Answer AnswerTo(void const* payload, std::size_t size) {
    Answer answer{};
    std::uint64_t last = 0;
    std::memcpy(&answer.sequence, payload, sizeof answer.sequence);
    std::memcpy(&last, static_cast<char const*>(payload) + size - sizeof last, sizeof last);
    answer.sum = answer.sequence + last;
    return answer;
}

void ReportReady() {
    std::puts("ready");
    std::fflush(stdout);
}

void Fill(void* payload, std::uint64_t sequence, std::size_t size) {
    std::memset(payload, static_cast<int>(sequence & 0x7F), size);
    std::memcpy(payload, &sequence, sizeof sequence);
}

}  // namespace Bench
