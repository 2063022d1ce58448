#include <limits.h>

#include <cstdlib>

#include "platform/NamedObject.h"

namespace System::Platform {

namespace {

constexpr mode_t kEveryUser = 0666;
constexpr mode_t kOwnUser = 0600;
constexpr char16_t kLastAscii = 0x7F;

bool IsPlain(char16_t unit) {
    return (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z') ||
           (unit >= u'0' && unit <= u'9') || unit == u'_' || unit == u'-' || unit == u'.';
}

void AppendHex(std::string& text, unsigned value, unsigned digits) {
    constexpr unsigned kBitsOfDigit = 4;
    for (unsigned left = digits; left-- > 0;) {
        text += "0123456789ABCDEF"[(value >> (left * kBitsOfDigit)) & 0xFU];
    }
}

void AppendEscaped(std::string& text, char16_t unit) {
    if (unit <= kLastAscii) {
        text += '%';
        AppendHex(text, unit, 2);
    } else {
        text += "%u";
        AppendHex(text, unit, 4);
    }
}

// An absolute path without a separator at its end; empty if the variable has none.
std::string DirectoryFrom(char const* variable) {
    char const* const value = std::getenv(variable);
    if (value == nullptr || value[0] != '/') {
        return {};
    }
    std::string path = value;
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

}  // namespace

Place SharedPlace() {
    return {"/dev/shm/Corvalen/Temp", kEveryUser};
}

Place UserPlace() {
    for (char const* const variable : {"XDG_RUNTIME_DIR", "TMPDIR"}) {
        if (std::string path = DirectoryFrom(variable); !path.empty()) {
            return {std::move(path), kOwnUser};
        }
    }
    return {"/tmp", kOwnUser};
}

std::string NamedObject::FileNameOf(std::u16string_view name, Kind kind) {
    if (name.empty() || name == u"." || name == u"..") {
        return {};
    }
    std::string fileName;
    for (char16_t const unit : name) {
        if (IsPlain(unit) && !(unit == u'.' && fileName.empty())) {
            fileName += static_cast<char>(unit);
        } else {
            AppendEscaped(fileName, unit);
        }
    }
    if (kind == Kind::kMutex) {
        fileName += "_mtx";
    }
    return fileName.size() <= NAME_MAX ? fileName : std::string();
}

}  // namespace System::Platform
