#include "common/Message.h"

#include <algorithm>

namespace Demo {

using System::RPC::MemInputStream;
using System::RPC::MemOutputStream;

void Write(MemOutputStream& out, TextMessage const& message) {
    out.WriteUInt32(message.number);
    out.WriteStr(message.sender.c_str());
    out.WriteStr(message.recipient.c_str());
    out.WriteStr(message.text.c_str());
}

void Write(MemOutputStream& out, Receipt const& receipt) {
    out.WriteUInt32(receipt.number);
    out.WriteUInt32(receipt.characters);
    out.WriteUInt32(receipt.checksum);
    out.WriteUInt8(static_cast<unsigned char>(receipt.form));
    out.WriteStr(receipt.outgoing.c_str());
}

void Write(MemOutputStream& out, Delivery const& delivery) {
    out.WriteUInt32(delivery.number);
}

void Read(MemInputStream& in, TextMessage& message) {
    message.number = in.ReadUInt32();
    message.sender = in.ReadStr();
    message.recipient = in.ReadStr();
    message.text = in.ReadStr();
}

void Read(MemInputStream& in, Receipt& receipt) {
    receipt.number = in.ReadUInt32();
    receipt.characters = in.ReadUInt32();
    receipt.checksum = in.ReadUInt32();
    receipt.form = in.ReadUInt8() == 0 ? Form::kGsm : Form::kUcs2;
    receipt.outgoing = in.ReadStr();
}

void Read(MemInputStream& in, Delivery& delivery) {
    delivery.number = in.ReadUInt32();
}

std::uint32_t CountCharacters(std::string const& text) {
    auto const begins = [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    };
    return static_cast<std::uint32_t>(std::count_if(text.begin(), text.end(), begins));
}

std::uint32_t Checksum(std::string const& text) {
    constexpr std::uint32_t kOffset = 2166136261U;  // FNV-1a, 32 bits
    constexpr std::uint32_t kPrime = 16777619U;
    std::uint32_t sum = kOffset;
    for (char const c : text) {
        sum = (sum ^ static_cast<unsigned char>(c)) * kPrime;
    }
    return sum;
}

}  // namespace Demo
