#pragma once

#include <cstdint>
#include <string>

namespace System::Platform {

/// Whether `name` is one of the names of UTF-8.
[[nodiscard]] bool IsUtf8Name(std::string const& name);

/// Strict UTF-8, up to U+10FFFF and without surrogates, to units, low byte first; U+FFFD for each malformed
/// byte. False when there is no room for the next character.
[[nodiscard]] bool DecodeUtf8(std::uint8_t const*& in, std::uint8_t const* inEnd, std::uint8_t*& out,
                              std::uint8_t* outEnd);
/// Units to strict UTF-8; `?` for half a surrogate pair. Unless this is the `last` piece, the first half of a
/// pair at its end is left. False when there is no room for the next character.
[[nodiscard]] bool EncodeUtf8(std::uint8_t const*& in, std::uint8_t const* inEnd, bool last,
                              std::uint8_t*& out, std::uint8_t* outEnd);

}  // namespace System::Platform
