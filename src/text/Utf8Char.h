#pragma once

#include <cstddef>
#include <cstdint>

// The two character-level steps that all converters share.

namespace System::Text {

// One character of UTF-8: its value and the bytes it takes; a length of 0 is a malformed first byte.
struct Utf8Char {
    std::uint16_t value;
    std::uint8_t length;
};

constexpr bool IsContinuation(std::uint8_t byte) {
    return (byte & 0xC0) == 0x80;
}

// Reads the character at `in`, which is below `end`. Overlong forms and surrogates are read as they stand.
constexpr Utf8Char ReadUtf8Char(std::uint8_t const* in, std::uint8_t const* end) {
    std::uint8_t const lead = *in;
    auto const left = end - in;
    if (lead < 0x80) {
        return {lead, 1};
    }
    if ((lead & 0xF0) == 0xE0) {
        if (left < 3 || !IsContinuation(in[1]) || !IsContinuation(in[2])) {
            return {0, 0};
        }
        return {static_cast<std::uint16_t>((lead & 0x0F) << 12 | (in[1] & 0x3F) << 6 | (in[2] & 0x3F)), 3};
    }
    if (left < 2 || (lead & 0xE0) != 0xC0 || !IsContinuation(in[1])) {
        return {0, 0};
    }
    return {static_cast<std::uint16_t>((lead & 0x1F) << 6 | (in[1] & 0x3F)), 2};
}

constexpr std::size_t Utf8Length(std::uint16_t value) {
    return value < 0x80 ? 1 : value < 0x800 ? 2 : 3;
}

// Writes `value` to [out, end) and gives the bytes written, or 0 if it does not fit; then nothing is written.
constexpr std::size_t WriteUtf8Char(std::uint16_t value, std::uint8_t* out, std::uint8_t const* end) {
    std::size_t const length = Utf8Length(value);
    if (static_cast<std::size_t>(end - out) < length) {
        return 0;
    }
    auto const last = static_cast<std::uint8_t>(0x80 | (value & 0x3F));
    if (length == 1) {
        out[0] = static_cast<std::uint8_t>(value);
    } else if (length == 2) {
        out[0] = static_cast<std::uint8_t>(0xC0 | value >> 6);
        out[1] = last;
    } else {
        out[0] = static_cast<std::uint8_t>(0xE0 | value >> 12);
        out[1] = static_cast<std::uint8_t>(0x80 | (value >> 6 & 0x3F));
        out[2] = last;
    }
    return length;
}

// 16-bit units lie in memory low byte first.
constexpr std::uint16_t LoadUnit(std::uint8_t const* in) {
    return static_cast<std::uint16_t>(in[0] | in[1] << 8);
}
constexpr void StoreUnit(std::uint8_t* out, std::uint16_t unit) {
    out[0] = static_cast<std::uint8_t>(unit);
    out[1] = static_cast<std::uint8_t>(unit >> 8);
}

}  // namespace System::Text
