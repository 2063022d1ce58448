#include "bench/buffers/Queue.h"
#include "corvalen/collection/DataBlockLinkedList.h"

namespace Bench {

namespace {

class BlockListQueue : public Queue {
public:
    char const* Name() const override { return "FDataBlockLinkedList"; }
    void Append(unsigned char const* data, std::size_t length) override { m_List.Add(data, length); }
    std::size_t Peek(unsigned char* buffer, std::size_t maximum) override {
        std::uint64_t copied = 0;
        m_List.GetDataBlock(buffer, maximum, copied);
        return copied;
    }
    void Release(std::size_t length) override { m_List.ReleaseDataBlock(length); }

private:
    System::Collection::FDataBlockLinkedList m_List;
};

}  // namespace

std::unique_ptr<Queue> MakeBlockListQueue() {
    return std::make_unique<BlockListQueue>();
}

}  // namespace Bench
