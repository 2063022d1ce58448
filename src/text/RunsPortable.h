#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "text/Runs.h"
#include "text/Utf8Char.h"

// The runs in standard C++: what processors without vectors use, and what ends the vector runs where less
// than a vector is left.

namespace System::Text::Portable {

namespace Detail {

inline constexpr unsigned kAscii = 1;
inline constexpr unsigned kNotNul = 2;
inline constexpr unsigned kGsmPlain = 4;
inline constexpr unsigned kLatin1 = 8;

constexpr bool IsGsmPlain(unsigned byte) {
    return byte == '\n' || byte == '\r' ||
           (byte >= ' ' && byte <= 'z' && byte != '$' && byte != '@' && !(byte > 'Z' && byte < 'a'));
}

constexpr std::array<std::uint8_t, 256> MakeKinds() {
    std::array<std::uint8_t, 256> kinds{};
    for (unsigned byte = 0; byte < kinds.size(); ++byte) {
        unsigned const kind = (byte < 0x80 ? kAscii : 0) | (byte != 0 ? kNotNul : 0) |
                              (IsGsmPlain(byte) ? kGsmPlain : 0) |
                              (byte < 0x80 || byte >= 0xA0 ? kLatin1 : 0);
        kinds[byte] = static_cast<std::uint8_t>(kind);
    }
    return kinds;
}

inline constexpr std::array<std::uint8_t, 256> kKinds = MakeKinds();

constexpr std::array<std::int8_t, 256> MakeDigits() {
    std::array<std::int8_t, 256> digits{};
    for (unsigned byte = 0; byte < digits.size(); ++byte) {
        unsigned const lower = byte | 0x20;
        int const value = byte >= '0' && byte <= '9'     ? static_cast<int>(byte) - '0'
                          : lower >= 'a' && lower <= 'f' ? static_cast<int>(lower) - 'a' + 10
                                                         : -1;
        digits[byte] = static_cast<std::int8_t>(value);
    }
    return digits;
}

inline constexpr std::array<std::int8_t, 256> kDigits = MakeDigits();

}  // namespace Detail

// Copies bytes that have all bits of `kind`.
template <unsigned kind>
void CopyKind(Cursor& c) {
    while (c.in != c.inEnd && c.out != c.outEnd && (Detail::kKinds[*c.in] & kind) == kind) {
        *c.out++ = *c.in++;
    }
}

inline void CopyAscii(Cursor& c) {
    CopyKind<Detail::kAscii>(c);
}
inline void CopyAsciiNoNul(Cursor& c) {
    CopyKind<Detail::kAscii | Detail::kNotNul>(c);
}
inline void CopyGsmPlain(Cursor& c) {
    CopyKind<Detail::kGsmPlain>(c);
}

inline void Utf8ToUnits(Cursor& c) {
    while (c.in != c.inEnd && c.Room() >= 2) {
        Utf8Char const character = ReadUtf8Char(c.in, c.inEnd);
        if (character.length == 0) {
            return;
        }
        StoreUnit(c.out, character.value);
        c.in += character.length;
        c.out += 2;
    }
}

inline void UnitsToUtf8(Cursor& c) {
    while (c.in != c.inEnd) {
        std::size_t const count = WriteUtf8Char(LoadUnit(c.in), c.out, c.outEnd);
        if (count == 0) {
            return;
        }
        c.in += 2;
        c.out += count;
    }
}

inline void UnitsToHex(Cursor& c) {
    for (; c.in != c.inEnd && c.Room() >= 4; c.in += 2, c.out += 4) {
        unsigned const unit = LoadUnit(c.in);
        for (unsigned i = 0; i < 4; ++i) {
            c.out[i] = static_cast<std::uint8_t>("0123456789ABCDEF"[unit >> (12 - 4 * i) & 15]);
        }
    }
}

inline void HexToUnits(Cursor& c) {
    for (; c.in != c.inEnd && c.Room() >= 2; c.in += 4, c.out += 2) {
        unsigned unit = 0;
        for (unsigned i = 0; i < 4; ++i) {
            unit = unit * 16 + static_cast<unsigned>(Detail::kDigits[c.in[i]]);
        }
        StoreUnit(c.out, static_cast<std::uint16_t>(unit));
    }
}

inline void Latin1ToUnits(Cursor& c) {
    constexpr unsigned kWanted = Detail::kLatin1 | Detail::kNotNul;
    for (; c.in != c.inEnd && c.Room() >= 2 && (Detail::kKinds[*c.in] & kWanted) == kWanted; c.out += 2) {
        StoreUnit(c.out, *c.in++);
    }
}

inline void UnitsToLatin1(Cursor& c) {
    for (; c.in != c.inEnd && c.out != c.outEnd; c.in += 2) {
        std::uint16_t const unit = LoadUnit(c.in);
        if (unit >= 0x100 || (Detail::kKinds[unit] & Detail::kLatin1) == 0) {
            return;
        }
        *c.out++ = static_cast<std::uint8_t>(unit);
    }
}

inline bool IsHex(std::uint8_t const* in, std::uint8_t const* end) {
    int bad = 0;
    for (; in != end; ++in) {
        bad |= Detail::kDigits[*in];
    }
    return bad >= 0;
}

}  // namespace System::Text::Portable
