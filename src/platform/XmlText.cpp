#include "platform/XmlText.h"

#include <charconv>
#include <cstdint>
#include <iterator>

namespace System::Platform {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kMalformed = 0xFFFFFFFF;
constexpr char32_t kFirstSupplementary = 0x10000;
constexpr char32_t kLast = 0x10FFFF;

struct Range {
    char32_t first;
    char32_t last;
};

constexpr Range kNameStart[] = {
    {':', ':'},       {'A', 'Z'},       {'_', '_'},       {'a', 'z'},
    {0xC0, 0xD6},     {0xD8, 0xF6},     {0xF8, 0x2FF},    {0x370, 0x37D},
    {0x37F, 0x1FFF},  {0x200C, 0x200D}, {0x2070, 0x218F}, {0x2C00, 0x2FEF},
    {0x3001, 0xD7FF}, {0xF900, 0xFDCF}, {0xFDF0, 0xFFFD}, {0x10000, 0xEFFFF},
};
constexpr Range kNameOther[] = {
    {'-', '-'}, {'.', '.'}, {'0', '9'}, {0xB7, 0xB7}, {0x300, 0x36F}, {0x203F, 0x2040},
};

template <std::size_t kSize>
bool IsIn(Range const (&ranges)[kSize], char32_t c) {
    for (Range const& range : ranges) {
        if (c >= range.first && c <= range.last) {
            return true;
        }
    }
    return false;
}

bool IsSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

bool IsXmlChar(char32_t c) {
    return c >= 0x20 ? c <= kLast && !IsSurrogate(c) && c != 0xFFFE && c != 0xFFFF
                     : c == '\t' || c == '\n' || c == '\r';
}

// Takes the first character off `text`; kMalformed, with one byte taken, if it is not well-formed.
char32_t TakeChar(std::string_view& text) {
    auto const byteAt = [&](std::size_t i) {
        return static_cast<unsigned char>(text[i]);
    };
    unsigned const lead = byteAt(0);
    std::size_t const length = lead < 0x80 ? 1 : lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    char32_t value = length == 1 ? lead : lead & (0xFFU >> (length + 1));
    bool isWellFormed = length != 0 && length <= text.size();
    for (std::size_t i = 1; isWellFormed && i < length; ++i) {
        isWellFormed = (byteAt(i) & 0xC0) == 0x80;
        value = value << 6 | (byteAt(i) & 0x3F);
    }
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, kFirstSupplementary};
    isWellFormed = isWellFormed && value >= kSmallest[length] && value <= kLast && !IsSurrogate(value);
    text.remove_prefix(isWellFormed ? length : 1);
    return isWellFormed ? value : kMalformed;
}

void AppendUtf8(char32_t c, std::string& to) {
    auto const tail = [&](unsigned shift) {
        to += static_cast<char>(0x80 | (c >> shift & 0x3F));
    };
    if (c < 0x80) {
        to += static_cast<char>(c);
    } else if (c < 0x800) {
        to += static_cast<char>(0xC0 | c >> 6);
        tail(0);
    } else if (c < kFirstSupplementary) {
        to += static_cast<char>(0xE0 | c >> 12);
        tail(6);
        tail(0);
    } else {
        to += static_cast<char>(0xF0 | c >> 18);
        tail(12);
        tail(6);
        tail(0);
    }
}

bool IsCharacterReference(std::string_view digits) {
    int const base = digits.starts_with('x') ? 16 : 10;
    if (base == 16) {
        digits.remove_prefix(1);
    }
    std::uint32_t value = 0;
    auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
    return error == std::errc{} && end == digits.data() + digits.size() && IsXmlChar(value);
}

}  // namespace

std::string Utf8Of(std::u16string_view text) {
    std::string utf8(text.size(), '\0');
    std::size_t plain = 0;
    for (char* to = utf8.data(); plain < text.size() && text[plain] < 0x80; ++plain) {
        to[plain] = static_cast<char>(text[plain]);
    }
    utf8.resize(plain);
    for (std::size_t i = plain; i < text.size(); ++i) {
        char32_t c = text[i];
        if (IsSurrogate(c)) {
            bool const isPair = c < 0xDC00 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00;
            c = isPair ? kFirstSupplementary + ((c & 0x3FF) << 10) + (text[++i] & 0x3FF) : kReplacement;
        }
        AppendUtf8(c, utf8);
    }
    return utf8;
}

std::u16string Utf16Of(std::string_view text) {
    std::u16string utf16;
    utf16.reserve(text.size());
    while (!text.empty()) {
        char32_t const c = TakeChar(text);
        if (c == kMalformed) {
            utf16 += static_cast<char16_t>(kReplacement);
        } else if (c < kFirstSupplementary) {
            utf16 += static_cast<char16_t>(c);
        } else {
            utf16 += static_cast<char16_t>(0xD800 + ((c - kFirstSupplementary) >> 10));
            utf16 += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
        }
    }
    return utf16;
}

bool IsXmlText(std::string_view text) {
    for (;;) {
        // Most text is plain, and looked through without taking it apart.
        std::size_t plain = 0;
        while (plain < text.size() && static_cast<signed char>(text[plain]) >= ' ') {
            ++plain;
        }
        text.remove_prefix(plain);
        if (text.empty()) {
            return true;
        }
        if (!IsXmlChar(TakeChar(text))) {
            return false;
        }
    }
}

bool IsXmlName(std::string_view text) {
    if (text.empty() || !IsIn(kNameStart, TakeChar(text))) {
        return false;
    }
    while (!text.empty()) {
        char32_t const c = TakeChar(text);
        if (!IsIn(kNameStart, c) && !IsIn(kNameOther, c)) {
            return false;
        }
    }
    return true;
}

bool HasOnlyOwnReferences(std::string_view text) {
    for (std::size_t at = text.find('&'); at != std::string_view::npos; at = text.find('&', at + 1)) {
        std::size_t const end = text.find(';', at);
        if (end == std::string_view::npos) {
            return false;
        }
        std::string_view const name = text.substr(at + 1, end - at - 1);
        bool const isOwn = name == "amp" || name == "lt" || name == "gt" || name == "quot" || name == "apos";
        if (!isOwn && !(name.starts_with('#') && IsCharacterReference(name.substr(1)))) {
            return false;
        }
    }
    return true;
}

}  // namespace System::Platform
