#include "platform/CodePageUtf8.h"

#include <strings.h>

#include <cstddef>

#include "platform/Utf16.h"

namespace System::Platform {

namespace {

std::size_t LengthOf(std::uint32_t value) {
    return value < 0x80 ? 1 : value < 0x800 ? 2 : value < kFirstBeyondUnits ? 3 : 4;
}

struct CodePoint {
    std::uint32_t value;
    std::size_t length;
};

// A malformed byte reads as one U+FFFD.
CodePoint ReadStrict(std::uint8_t const* in, std::uint8_t const* inEnd) {
    constexpr CodePoint kMalformed{kReplacement, 1};
    std::uint32_t const lead = *in;
    if (lead < 0x80) {
        return {lead, 1};
    }
    std::size_t const length = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
    if (length == 0 || static_cast<std::size_t>(inEnd - in) < length) {
        return kMalformed;
    }
    std::uint32_t value = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((in[i] & 0xC0) != 0x80) {
            return kMalformed;
        }
        value = value << 6 | (in[i] & 0x3FU);
    }
    bool const isGood = LengthOf(value) == length && value < kBehindLast && !IsSurrogate(value);
    return isGood ? CodePoint{value, length} : kMalformed;
}

void Write(std::uint32_t value, std::size_t length, std::uint8_t* out) {
    if (length == 1) {
        *out = static_cast<std::uint8_t>(value);
        return;
    }
    for (std::size_t i = length - 1; i > 0; --i, value >>= 6) {
        out[i] = static_cast<std::uint8_t>(0x80 | (value & 0x3F));
    }
    out[0] = static_cast<std::uint8_t>(0xF00U >> length | value);
}

}  // namespace

bool IsUtf8Name(std::string const& name) {
    return ::strcasecmp(name.c_str(), "UTF-8") == 0 || ::strcasecmp(name.c_str(), "UTF8") == 0;
}

// The loops keep their places in variables of their own: a byte stored could change what a reference names.
bool DecodeUtf8(std::uint8_t const*& inPlace, std::uint8_t const* inEnd, std::uint8_t*& outPlace,
                std::uint8_t* outEnd) {
    auto const* in = inPlace;
    auto* out = outPlace;
    while (in != inEnd) {
        auto const [value, length] = ReadStrict(in, inEnd);
        bool const isPair = value >= kFirstBeyondUnits;
        if (outEnd - out < (isPair ? 4 : 2)) {
            break;
        }
        StoreCharacter(out, value);
        in += length;
    }
    inPlace = in;
    outPlace = out;
    return in == inEnd;
}

bool EncodeUtf8(std::uint8_t const*& inPlace, std::uint8_t const* inEnd, bool last, std::uint8_t*& outPlace,
                std::uint8_t* outEnd) {
    auto const* in = inPlace;
    auto* out = outPlace;
    bool isRoom = true;
    while (in != inEnd) {
        auto const [value, used] = LoadCharacter(in, inEnd, last);
        if (used == 0) {
            break;
        }
        std::size_t const length = LengthOf(value);
        isRoom = static_cast<std::size_t>(outEnd - out) >= length;
        if (!isRoom) {
            break;
        }
        Write(value, length, out);
        out += length;
        in += used;
    }
    inPlace = in;
    outPlace = out;
    return isRoom;
}

}  // namespace System::Platform
