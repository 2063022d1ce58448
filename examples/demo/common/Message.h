#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "corvalen/rpc/MemStream.h"
#include "corvalen/rpc/RpcChannel.h"

namespace Demo {

/// The title by which the clients find the centre.
inline constexpr char16_t const* kCentreTitle = u"message centre";

/// A request: a text message that a client hands in. All texts are UTF-8.
struct TextMessage {
    std::uint32_t number = 0;
    std::string sender;
    std::string recipient;
    std::string text;
};

/// The form in which a text goes out to a phone.
enum class Form : std::uint8_t { kGsm = 0, kUcs2 = 1 };

/// The answer: what the centre took, and how it would send it.
struct Receipt {
    std::uint32_t number = 0;
    std::uint32_t characters = 0;
    std::uint32_t checksum = 0;
    Form form = Form::kGsm;
    std::string outgoing;  // hexadecimal: two digits for a GSM code, four for a UCS-2 unit
};

/// A notification: the message `number` has reached its recipient.
struct Delivery {
    std::uint32_t number = 0;
};

void Write(System::RPC::MemOutputStream& out, TextMessage const& message);
void Write(System::RPC::MemOutputStream& out, Receipt const& receipt);
void Write(System::RPC::MemOutputStream& out, Delivery const& delivery);

void Read(System::RPC::MemInputStream& in, TextMessage& message);
void Read(System::RPC::MemInputStream& in, Receipt& receipt);
void Read(System::RPC::MemInputStream& in, Delivery& delivery);

/// A new handle of `channel` that holds `record`; 0 if the pool has no room.
template <typename Record>
std::uint32_t Pack(System::RPC::RpcChannel& channel, Record const& record) {
    System::RPC::MemOutputStream out;
    Write(out, record);
    std::uint32_t size = 0;
    void const* const data = out.GetData(&size);
    std::uint32_t const handle = channel.NewHandle(size);
    if (handle != 0) {
        std::memcpy(channel.HandleData(handle), data, size);
    }
    return handle;
}

/// The record that `handle` holds. What is missing in it reads as 0 and empty.
template <typename Record>
Record Unpack(System::RPC::RpcChannel& channel, std::uint32_t handle) {
    System::RPC::MemInputStream in(channel.HandleData(handle), channel.HandleSize(handle));
    Record record;
    Read(in, record);
    return record;
}

/// Characters of a UTF-8 text.
std::uint32_t CountCharacters(std::string const& text);
/// A checksum that any changed, lost or swapped byte changes.
std::uint32_t Checksum(std::string const& text);

}  // namespace Demo
