#pragma once

#include <cstdint>

#include "corvalen/rpc/RpcChannel.h"

namespace Storm {

enum class MessageKind : std::uint32_t { kRequest = 1, kAnswer, kNotification, kDelivery };

/// What a message says of itself. Its payload follows from these alone, so that the reader knows each byte.
struct Message {
    MessageKind kind = MessageKind::kRequest;
    std::uint32_t client = 0;  // slot of the client
    std::uint32_t life = 0;    // which of the client's lives
    std::uint32_t number = 0;  // counts within the life
    std::uint32_t dawdle = 0;  // milliseconds that the server shall take
    std::uint32_t size = 0;    // bytes of payload

    friend bool operator==(Message const&, Message const&) = default;
};

/// The answer that a request gets.
[[nodiscard]] Message AnswerTo(Message const& request);
[[nodiscard]] Message DeliveryOf(Message const& request);

enum class WriteResult { kWritten, kNoRoom, kLost };

/// Writes `message` into a new handle. kLost: the handle was not valid although it was just given out.
WriteResult WriteMessage(System::RPC::RpcChannel& channel, Message const& message, std::uint32_t& handle);
/// Reads what `handle` holds; false if one byte of it is not as it was written.
[[nodiscard]] bool ReadMessage(System::RPC::RpcChannel& channel, std::uint32_t handle, Message& message);

}  // namespace Storm
