#include "Message.h"

#include <cstring>
#include <vector>

#include "corvalen/rpc/MemStream.h"

namespace Storm {

namespace {

constexpr std::uint32_t kMaxPayload = 1U << 20;

using System::RPC::MemInputStream;
using System::RPC::MemOutputStream;

// A generator with the message's own seed (splitmix64).
class PayloadBytes {
public:
    explicit PayloadBytes(Message const& message)
        : m_State((std::uint64_t{message.client} << 48) ^ (std::uint64_t{message.life} << 32) ^
                  (std::uint64_t{message.number} << 3) ^ static_cast<std::uint64_t>(message.kind)) {}

    std::uint8_t Next() {
        if (m_Left == 0) {
            m_State += 0x9E3779B97F4A7C15;
            m_Word = (m_State ^ (m_State >> 30)) * 0xBF58476D1CE4E5B9;
            m_Word = (m_Word ^ (m_Word >> 27)) * 0x94D049BB133111EB;
            m_Left = sizeof(m_Word);
        }
        --m_Left;
        auto const byte = static_cast<std::uint8_t>(m_Word);
        m_Word >>= 8;
        return byte;
    }

private:
    std::uint64_t m_State;
    std::uint64_t m_Word = 0;
    unsigned m_Left = 0;
};

bool HasPayload(Message const& message, std::uint8_t const* bytes) {
    PayloadBytes expected(message);
    for (std::uint32_t i = 0; i < message.size; ++i) {
        if (bytes[i] != expected.Next()) {
            return false;
        }
    }
    return true;
}

}  // namespace

Message AnswerTo(Message const& request) {
    Message answer = request;
    answer.kind = MessageKind::kAnswer;
    answer.size = request.size / 2 + request.number % 50;
    return answer;
}

Message DeliveryOf(Message const& request) {
    Message delivery = request;
    delivery.kind = MessageKind::kDelivery;
    delivery.size = request.number % 30;
    return delivery;
}

WriteResult WriteMessage(System::RPC::RpcChannel& channel, Message const& message, std::uint32_t& handle) {
    MemOutputStream out(message.size + 64);
    for (std::uint32_t const field : {static_cast<std::uint32_t>(message.kind), message.client, message.life,
                                      message.number, message.dawdle, message.size}) {
        out.WriteUInt32(field);
    }
    std::vector<std::uint8_t> payload(message.size);
    PayloadBytes bytes(message);
    for (auto& byte : payload) {
        byte = bytes.Next();
    }
    out.Write(payload.data(), message.size);
    std::uint32_t size = 0;
    void const* const data = out.GetData(&size);
    handle = data != nullptr ? channel.NewHandle(size) : 0;
    if (handle == 0) {
        return WriteResult::kNoRoom;
    }
    void* const to = channel.HandleData(handle);
    if (to == nullptr) {
        return WriteResult::kLost;
    }
    std::memcpy(to, data, size);
    return WriteResult::kWritten;
}

bool ReadMessage(System::RPC::RpcChannel& channel, std::uint32_t handle, Message& message) {
    MemInputStream in(channel.HandleData(handle), channel.HandleSize(handle));
    message.kind = static_cast<MessageKind>(in.ReadUInt32());
    message.client = in.ReadUInt32();
    message.life = in.ReadUInt32();
    message.number = in.ReadUInt32();
    message.dawdle = in.ReadUInt32();
    message.size = in.ReadUInt32();
    if (message.size > kMaxPayload) {
        return false;
    }
    auto const* const payload = static_cast<std::uint8_t const*>(in.Read(message.size));
    return payload != nullptr && in.SizeLeft() == 0 && HasPayload(message, payload);
}

}  // namespace Storm
