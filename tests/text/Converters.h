#pragma once

#include <cstdlib>
#include <string>
#include <string_view>

#include "corvalen/text/GsmConv.h"
#include "corvalen/text/Latin1Conv.h"
#include "corvalen/text/NativeConv.h"
#include "corvalen/text/UcsConv.h"
#include "corvalen/text/UcsHexConv.h"
#include "text/Runs.h"

// What the tests of the converters share.

namespace System::Text::Testing {

// A converter that is started for as long as this lives.
template <typename Converter>
class Started {
public:
    Started() { Converter::Init(); }
    ~Started() { Converter::Terminate(); }
    Started(Started const&) = delete;
    Started& operator=(Started const&) = delete;

    Converter* operator->() const { return Converter::Instance(); }
    Converter& operator*() const { return *Converter::Instance(); }
};

struct Converted {
    int result;
    std::string text;
    bool operator==(Converted const&) const = default;
};

inline constexpr char kUntouched = '\x5A';

// Converts into `room` bytes. Bytes behind the output that did not stay as they were join the text.
template <typename Convert>
Converted Collect(unsigned room, Convert&& convert) {
    constexpr unsigned kBehind = 64;
    std::string buffer(room + kBehind, kUntouched);
    unsigned written = room + 1;
    int const result = convert(buffer.data(), room, &written);
    std::size_t const last = buffer.find_last_not_of(kUntouched);
    std::size_t const touched = last == std::string::npos ? 0 : last + 1;
    return {result, buffer.substr(0, touched > written ? touched : written)};
}

inline constexpr unsigned kPlenty = 4096;

inline Converted FromUtf8(Utf8Converter const& converter, std::string_view text, unsigned room = kPlenty) {
    return Collect(room, [&](char* buffer, unsigned size, unsigned* written) {
        return converter.FromUtf8(text.data(), static_cast<unsigned>(text.size()), buffer, size, written);
    });
}

inline Converted ToUtf8(Utf8Converter const& converter, std::string_view text, unsigned room = kPlenty) {
    return Collect(room, [&](char* buffer, unsigned size, unsigned* written) {
        return converter.ToUtf8(text.data(), static_cast<unsigned>(text.size()), buffer, size, written);
    });
}

// UTF-8 as the standard has it, by other means than the library's.
inline std::string Utf8(unsigned value) {
    auto const byte = [](unsigned bits) {
        return static_cast<char>(bits);
    };
    if (value < 0x80) {
        return {byte(value)};
    }
    if (value < 0x800) {
        return {byte(0xC0 + value / 64), byte(0x80 + value % 64)};
    }
    return {byte(0xE0 + value / 4096), byte(0x80 + value / 64 % 64), byte(0x80 + value % 64)};
}

// "E2 82 AC" as bytes.
inline std::string Bytes(std::string_view hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 3) {
        bytes += static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
    }
    return bytes;
}

}  // namespace System::Text::Testing
