#pragma once

#include <cstddef>
#include <cstdint>

// Units of UTF-16 in memory, low byte first, and the characters that they make.

namespace System::Platform {

inline constexpr std::uint32_t kReplacement = 0xFFFD;
inline constexpr std::uint32_t kFirstSurrogate = 0xD800;
inline constexpr std::uint32_t kFirstBeyondUnits = 0x10000;
inline constexpr std::uint32_t kBehindLast = 0x110000;

constexpr bool IsSurrogate(std::uint32_t value) {
    return (value & 0xFFFFF800U) == kFirstSurrogate;
}
constexpr bool IsHighSurrogate(std::uint32_t value) {
    return (value & 0xFFFFFC00U) == kFirstSurrogate;
}
constexpr bool IsLowSurrogate(std::uint32_t value) {
    return (value & 0xFFFFFC00U) == 0xDC00U;
}

constexpr std::uint16_t LoadUnit(std::uint8_t const* in) {
    return static_cast<std::uint16_t>(in[0] | in[1] << 8);
}
constexpr void StoreUnit(std::uint8_t*& out, std::uint32_t unit) {
    out[0] = static_cast<std::uint8_t>(unit);
    out[1] = static_cast<std::uint8_t>(unit >> 8);
    out += 2;
}

// Writes one unit, or two for a character beyond them.
constexpr void StoreCharacter(std::uint8_t*& out, std::uint32_t value) {
    if (value < kFirstBeyondUnits) {
        StoreUnit(out, value);
        return;
    }
    std::uint32_t const offset = value - kFirstBeyondUnits;
    StoreUnit(out, kFirstSurrogate | offset >> 10);
    StoreUnit(out, 0xDC00U | (offset & 0x3FFU));
}

struct Utf16Character {
    std::uint32_t value;  // `?` for half a pair
    std::size_t length;   // bytes; 0 for the first half of a pair at the end of a piece that isn't the last
};

constexpr Utf16Character LoadCharacter(std::uint8_t const* in, std::uint8_t const* inEnd, bool last) {
    std::uint32_t const first = LoadUnit(in);
    if (!IsSurrogate(first)) {
        return {first, 2};
    }
    bool const isAtEnd = inEnd - in < 4;
    if (isAtEnd && IsHighSurrogate(first) && !last) {
        return {0, 0};
    }
    if (isAtEnd || !IsHighSurrogate(first) || !IsLowSurrogate(LoadUnit(in + 2))) {
        return {'?', 2};
    }
    return {kFirstBeyondUnits + ((first & 0x3FFU) << 10) + (LoadUnit(in + 2) & 0x3FFU), 4};
}

}  // namespace System::Platform
