#include "common/Outgoing.h"

#include <charconv>

#include "corvalen/text/GsmConv.h"
#include "corvalen/text/UcsHexConv.h"

namespace Demo {

using System::Text::GsmConv;
using System::Text::UcsHexConv;

namespace {

std::string HexOf(std::string const& bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (char const c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 15];
    }
    return hex;
}

std::string BytesOf(std::string const& hex) {
    std::string bytes;
    bytes.reserve(hex.size() / 2);
    for (std::size_t at = 0; at + 2 <= hex.size(); at += 2) {
        unsigned char byte = 0;
        char const* const end = hex.data() + at + 2;
        if (std::from_chars(hex.data() + at, end, byte, 16).ptr != end) {
            return {};
        }
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

}  // namespace

Outgoing ToOutgoing(std::string const& text) {
    // A character that the alphabet lacks is dropped without a word, so only the way back tells.
    std::string codes;
    std::string back;
    if (GsmConv::Instance()->StrFromUtf8(text, codes) == 0 &&
        GsmConv::Instance()->StrToUtf8(codes, back) == 0 && back == text) {
        return {Form::kGsm, HexOf(codes)};
    }
    Outgoing outgoing{Form::kUcs2, {}};
    UcsHexConv::Instance()->StrFromUtf8(text, outgoing.hex);
    return outgoing;
}

std::string FromOutgoing(Form form, std::string const& hex) {
    std::string text;
    int const result = form == Form::kGsm ? GsmConv::Instance()->StrToUtf8(BytesOf(hex), text)
                                          : UcsHexConv::Instance()->StrToUtf8(hex, text);
    return result == 0 ? text : std::string();
}

}  // namespace Demo
