#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <vector>

#include "bench/text/Text.h"

namespace Bench {

namespace {

std::shared_ptr<UConverter> Open(char const* name) {
    UErrorCode error = U_ZERO_ERROR;
    return {::ucnv_open(name, &error), ::ucnv_close};
}

std::size_t Utf8ToUnits(std::string const& in, std::string& out) {
    UErrorCode error = U_ZERO_ERROR;
    int32_t length = 0;
    ::u_strFromUTF8(reinterpret_cast<UChar*>(out.data()), static_cast<int32_t>(out.size() / 2), &length,
                    in.data(), static_cast<int32_t>(in.size()), &error);
    return 2 * static_cast<std::size_t>(length);
}

std::size_t UnitsToUtf8(std::string const& in, std::string& out) {
    UErrorCode error = U_ZERO_ERROR;
    int32_t length = 0;
    ::u_strToUTF8(out.data(), static_cast<int32_t>(out.size()), &length,
                  reinterpret_cast<UChar const*>(in.data()), static_cast<int32_t>(in.size() / 2), &error);
    return static_cast<std::size_t>(length);
}

// Between UTF-8 and a converter, with both open.
Conversion Between(char const* name, Way way) {
    auto const form = Open(name);
    auto const utf8 = Open("UTF-8");
    if (form == nullptr) {
        return {};
    }
    return [form, utf8, way](std::string const& in, std::string& out) {
        UErrorCode error = U_ZERO_ERROR;
        UChar pivot[1024];
        UChar* pivotSource = pivot;
        UChar* pivotTarget = pivot;
        char const* source = in.data();
        char* target = out.data();
        ::ucnv_convertEx((way == Way::kFromUtf8 ? form : utf8).get(),
                         (way == Way::kFromUtf8 ? utf8 : form).get(), &target, out.data() + out.size(),
                         &source, in.data() + in.size(), pivot, &pivotSource, &pivotTarget, pivot + 1024, 1,
                         1, &error);
        return static_cast<std::size_t>(target - out.data());
    };
}

// What a user would write on top: a table for the digits.
std::size_t Utf8ToHex(std::string const& in, std::string& out, std::string& units) {
    units.resize(2 * in.size());
    std::size_t const length = Utf8ToUnits(in, units);
    char* to = out.data();
    for (std::size_t i = 0; i < length; i += 2) {
        for (int const byte : {units[i + 1] & 0xFF, units[i] & 0xFF}) {
            *to++ = "0123456789ABCDEF"[byte >> 4];
            *to++ = "0123456789ABCDEF"[byte & 15];
        }
    }
    return static_cast<std::size_t>(to - out.data());
}

int DigitOf(char digit) {
    return digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10;
}

std::size_t HexToUtf8(std::string const& in, std::string& out, std::string& units) {
    units.resize(in.size() / 2);
    for (std::size_t i = 0; i + 3 < in.size(); i += 4) {
        units[i / 2 + 1] = static_cast<char>(DigitOf(in[i]) << 4 | DigitOf(in[i + 1]));
        units[i / 2] = static_cast<char>(DigitOf(in[i + 2]) << 4 | DigitOf(in[i + 3]));
    }
    return UnitsToUtf8(units, out);
}

}  // namespace

Peer MakeIcu(Form form, Way way) {
    switch (form) {
        case Form::kUcs2:
            return {"ICU", way == Way::kFromUtf8 ? Utf8ToUnits : UnitsToUtf8};
        case Form::kHex: {
            auto const units = std::make_shared<std::string>();
            return {"ICU+table", [units, way](std::string const& in, std::string& out) {
                        return way == Way::kFromUtf8 ? Utf8ToHex(in, out, *units)
                                                     : HexToUtf8(in, out, *units);
                    }};
        }
        case Form::kGsm:
            return {"ICU", Between("gsm-03.38-2009", way)};
        default:
            return {"ICU", Between("windows-1252", way)};
    }
}

}  // namespace Bench
