#include "corvalen/text/UnicodeStr.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "diagnostics/Report.h"
#include "text/Utf8Char.h"

namespace System::Text {

namespace {

template <typename Unit>
Unit* Allocate(std::size_t units) {
    auto* const block = static_cast<Unit*>(std::malloc(units * sizeof(Unit)));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

template <typename Unit>
Unit* CopyOf(Unit const* text) {
    std::size_t const units = std::char_traits<Unit>::length(text) + 1;
    auto* const copy = Allocate<Unit>(units);
    std::memcpy(copy, text, units * sizeof(Unit));
    return copy;
}

char* Utf8Of(char16_t const* text) {
    constexpr std::size_t kLongestChar = 3;
    std::size_t const size = kLongestChar * std::char_traits<char16_t>::length(text);
    char* const utf8 = Allocate<char>(size + 1);
    auto* out = reinterpret_cast<std::uint8_t*>(utf8);
    auto const* const end = out + size;
    for (; *text != u'\0'; ++text) {
        out += WriteUtf8Char(*text, out, end);
    }
    *out = 0;
    return utf8;
}

char16_t* WideOf(char const* text) {
    std::size_t const length = std::strlen(text);
    char16_t* const wide = Allocate<char16_t>(length + 1);
    auto const* in = reinterpret_cast<std::uint8_t const*>(text);
    auto const* const end = in + length;
    char16_t* out = wide;
    while (in != end) {
        Utf8Char const c = ReadUtf8Char(in, end);
        if (c.length == 0) {
            Diagnostics::LogWarning("Bad utf8 string detected");
            ++in;
        } else {
            *out++ = c.value;
            in += c.length;
        }
    }
    *out = u'\0';
    return wide;
}

}  // namespace

UnicodeStr::UnicodeStr(char const* text) : m_Utf8(CopyOf(text)) {}

UnicodeStr::UnicodeStr(char16_t const* text) : m_Wide(CopyOf(text)) {}

UnicodeStr::~UnicodeStr() {
    std::free(m_Wide);
    std::free(m_Utf8);
}

UnicodeStr::operator char const*() {
    if (m_Utf8 == nullptr) {
        m_Utf8 = Utf8Of(m_Wide);
    }
    return m_Utf8;
}

UnicodeStr::operator char16_t const*() {
    if (m_Wide == nullptr) {
        m_Wide = WideOf(m_Utf8);
    }
    return m_Wide;
}

}  // namespace System::Text
