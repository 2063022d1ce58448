// The bytes of a ring of messages are the input; sends, takes and withdrawals follow. Nothing may be read or
// written outside of the ring, whatever stands in it, and every call ends.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/InboxRing.h"

namespace {

using namespace System::Platform;

constexpr std::uint32_t kSlots = 8;

// Exactly as many slots as have been reserved, so that one too far is outside of the memory.
struct Region {
    RingRec ring;
    std::uint64_t head;
    SlotRec slots[kSlots + 1];
};

class Memory final : public SlotMemory {
public:
    bool Reserve(std::uint32_t count) override {
        if (count > kSlots + 1) {
            std::abort();
        }
        return true;
    }
};

void Operate(Region& region, RingReceiver& receiver, std::uint8_t operation) {
    RingSender sender(region.ring, region.head, region.slots, kSlots);
    Memory memory;
    SlotRec message{};
    SlotPlace place;
    switch (operation % 5) {
        case 0:
            static_cast<void>(sender.Push(message, memory, place));
            break;
        case 1:
            static_cast<void>(receiver.Take(message));
            break;
        case 2:
            if (sender.Push(message, memory, place) == 0 && place.slot > kSlots) {
                std::abort();
            }
            Withdraw(region.slots, {place.position, place.slot});
            break;
        case 3:
            sender.Repair();
            break;
        default:
            static_cast<void>(receiver.HasMessage());
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    auto const region = std::make_unique<Region>();
    std::memset(static_cast<void*>(region.get()), 0, sizeof(Region));
    region->ring.limit = kSlots / 2;
    std::size_t const used = size < sizeof(Region) ? size : sizeof(Region);
    std::memcpy(static_cast<void*>(region.get()), data, used);
    RingReceiver receiver(region->head, region->slots, kSlots, true);
    for (std::size_t i = used; i < size; ++i) {
        Operate(*region, receiver, data[i]);
    }
    // Also on short inputs, where the operations are what the region's bytes say.
    for (std::size_t i = 0; i < used && i < 64; ++i) {
        Operate(*region, receiver, data[i]);
    }
    return 0;
}
