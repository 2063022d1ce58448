#include <event2/buffer.h>
#include <event2/thread.h>

#include <new>

#include "bench/buffers/Queue.h"

namespace Bench {

namespace {

class EvbufferQueue : public Queue {
public:
    EvbufferQueue() {
        if (::evthread_use_pthreads() != 0 || (m_Buffer = ::evbuffer_new()) == nullptr ||
            ::evbuffer_enable_locking(m_Buffer, nullptr) != 0) {
            throw std::bad_alloc();
        }
    }
    ~EvbufferQueue() override { ::evbuffer_free(m_Buffer); }
    char const* Name() const override { return "libevent evbuffer, locked"; }
    void Append(unsigned char const* data, std::size_t length) override {
        ::evbuffer_add(m_Buffer, data, length);
    }
    std::size_t Peek(unsigned char* buffer, std::size_t maximum) override {
        auto const copied = ::evbuffer_copyout(m_Buffer, buffer, maximum);
        return copied < 0 ? 0 : static_cast<std::size_t>(copied);
    }
    void Release(std::size_t length) override { ::evbuffer_drain(m_Buffer, length); }

private:
    evbuffer* m_Buffer = nullptr;
};

}  // namespace

std::unique_ptr<Queue> MakeEvbufferQueue() {
    return std::make_unique<EvbufferQueue>();
}

}  // namespace Bench
