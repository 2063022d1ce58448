#include <algorithm>
#include <deque>
#include <mutex>
#include <vector>

#include "bench/buffers/Queue.h"

namespace Bench {

namespace {

// What a user writes without a library.
class DequeQueue : public Queue {
public:
    char const* Name() const override { return "deque of vectors, mutex"; }
    void Append(unsigned char const* data, std::size_t length) override {
        std::lock_guard const guard(m_Lock);
        m_Pieces.emplace_back(data, data + length);
    }
    std::size_t Peek(unsigned char* buffer, std::size_t maximum) override {
        std::lock_guard const guard(m_Lock);
        std::size_t copied = 0;
        std::size_t offset = m_Offset;
        for (auto piece = m_Pieces.begin(); piece != m_Pieces.end() && copied < maximum; ++piece) {
            std::size_t const length = std::min(piece->size() - offset, maximum - copied);
            std::copy_n(piece->data() + offset, length, buffer + copied);
            copied += length;
            offset = 0;
        }
        return copied;
    }
    void Release(std::size_t length) override {
        std::lock_guard const guard(m_Lock);
        while (!m_Pieces.empty() && length >= m_Pieces.front().size() - m_Offset) {
            length -= m_Pieces.front().size() - m_Offset;
            m_Offset = 0;
            m_Pieces.pop_front();
        }
        m_Offset += m_Pieces.empty() ? 0 : length;
    }

private:
    std::mutex m_Lock;
    std::deque<std::vector<unsigned char>> m_Pieces;
    std::size_t m_Offset = 0;  // consumed bytes of the first piece
};

}  // namespace

std::unique_ptr<Queue> MakeDequeQueue() {
    return std::make_unique<DequeQueue>();
}

}  // namespace Bench
