#include "corvalen/platform/Bstr.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

using Count = std::uint32_t;

// The count of bytes has to hold the units, and the text keeps an even address behind it.
constexpr unsigned int kMostUnits = UINT32_MAX / sizeof(char16_t);
static_assert(sizeof(Count) == 4 && sizeof(Count) % alignof(char16_t) == 0);

}  // namespace

BSTR SysAllocString(char16_t const* text) {
    if (text == nullptr) {
        return nullptr;
    }
    std::size_t const units = std::char_traits<char16_t>::length(text);
    return units > kMostUnits ? nullptr : SysAllocStringLen(text, static_cast<unsigned int>(units));
}

BSTR SysAllocStringLen(char16_t const* text, unsigned int units) {
    if (units > kMostUnits) {
        return nullptr;
    }
    std::size_t const bytes = std::size_t{units} * sizeof(char16_t);
    auto* const block = static_cast<unsigned char*>(std::malloc(sizeof(Count) + bytes + sizeof(char16_t)));
    if (block == nullptr) {
        return nullptr;
    }
    Count const count = static_cast<Count>(bytes);
    std::memcpy(block, &count, sizeof count);
    auto* const string = reinterpret_cast<char16_t*>(block + sizeof count);
    if (text != nullptr) {
        std::memcpy(string, text, bytes);
    }
    string[units] = u'\0';
    return string;
}

void SysFreeString(BSTR text) {
    if (text != nullptr) {
        std::free(reinterpret_cast<unsigned char*>(text) - sizeof(Count));
    }
}

unsigned int SysStringLen(BSTR text) {
    if (text == nullptr) {
        return 0;
    }
    Count count = 0;
    std::memcpy(&count, reinterpret_cast<unsigned char*>(text) - sizeof count, sizeof count);
    return count / static_cast<unsigned int>(sizeof(char16_t));
}
