#include "platform/RegistryText.h"

#include <cstdint>

namespace System::Platform {

namespace {

constexpr std::string_view kMark16 = "\xFF\xFE";
constexpr std::string_view kMark8 = "\xEF\xBB\xBF";
constexpr std::uint32_t kFirstSupplementary = 0x10000;

std::uint32_t ByteAt(std::string_view bytes, std::size_t at) {
    return static_cast<unsigned char>(bytes[at]);
}

std::u16string DecodeUtf16(std::string_view bytes) {
    std::u16string text;
    text.reserve(bytes.size() / 2 + 1);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        text.push_back(static_cast<char16_t>(ByteAt(bytes, i) | ByteAt(bytes, i + 1) << 8U));
    }
    if (bytes.size() % 2 != 0) {
        text.push_back(kNotText);
    }
    return text;
}

// How a character of so many bytes begins, and the least that needs them.
struct Utf8Form {
    std::size_t length;
    std::uint32_t leadMask;
    std::uint32_t lead;
    std::uint32_t least;
};
constexpr Utf8Form kUtf8Forms[] = {
    {1, 0x80, 0x00, 0}, {2, 0xE0, 0xC0, 0x80}, {3, 0xF0, 0xE0, 0x800}, {4, 0xF8, 0xF0, kFirstSupplementary}};

bool IsScalar(std::uint32_t character) {
    constexpr std::uint32_t kLast = 0x10FFFF;
    constexpr std::uint32_t kFirstSurrogate = 0xD800;
    constexpr std::uint32_t kLastSurrogate = 0xDFFF;
    return character <= kLast && (character < kFirstSurrogate || character > kLastSurrogate);
}

// Takes the character at the front of `bytes`; false if none is there.
bool TakeUtf8(std::string_view& bytes, std::uint32_t& character) {
    for (Utf8Form const& form : kUtf8Forms) {
        std::uint32_t const first = ByteAt(bytes, 0);
        if ((first & form.leadMask) != form.lead || bytes.size() < form.length) {
            continue;
        }
        character = first & ~form.leadMask & 0xFFU;
        for (std::size_t i = 1; i < form.length; ++i) {
            if ((ByteAt(bytes, i) & 0xC0U) != 0x80U) {
                return false;
            }
            character = character << 6U | (ByteAt(bytes, i) & 0x3FU);
        }
        if (character < form.least || !IsScalar(character)) {
            return false;
        }
        bytes.remove_prefix(form.length);
        return true;
    }
    return false;
}

void Append(std::u16string& text, std::uint32_t character) {
    if (character < kFirstSupplementary) {
        text.push_back(static_cast<char16_t>(character));
        return;
    }
    character -= kFirstSupplementary;
    text.push_back(static_cast<char16_t>(0xD800U | character >> 10U));
    text.push_back(static_cast<char16_t>(0xDC00U | (character & 0x3FFU)));
}

std::u16string DecodeUtf8(std::string_view bytes) {
    std::u16string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        std::uint32_t character = 0;
        if (TakeUtf8(bytes, character)) {
            Append(text, character);
        } else {
            text.push_back(kNotText);
            bytes.remove_prefix(1);
        }
    }
    return text;
}

}  // namespace

std::u16string DecodeRegistryText(std::string_view bytes) {
    if (bytes.starts_with(kMark16)) {
        return DecodeUtf16(bytes.substr(kMark16.size()));
    }
    if (bytes.starts_with(kMark8)) {
        bytes.remove_prefix(kMark8.size());
    }
    return DecodeUtf8(bytes);
}

}  // namespace System::Platform
