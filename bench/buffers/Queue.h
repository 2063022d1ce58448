#pragma once

#include <cstddef>
#include <memory>

namespace Bench {

/// A locked byte queue under measurement: ours or a peer.
class Queue {
public:
    virtual ~Queue() = default;
    [[nodiscard]] virtual char const* Name() const = 0;
    virtual void Append(unsigned char const* data, std::size_t length) = 0;
    /// Copies up to `maximum` bytes from the front; how many it copied.
    virtual std::size_t Peek(unsigned char* buffer, std::size_t maximum) = 0;
    virtual void Release(std::size_t length) = 0;
};

std::unique_ptr<Queue> MakeBlockListQueue();
std::unique_ptr<Queue> MakeDequeQueue();
std::unique_ptr<Queue> MakeEvbufferQueue();

}  // namespace Bench
