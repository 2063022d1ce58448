#include "corvalen/text/TextUtils.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "corvalen/platform/Bstr.h"
#include "corvalen/text/NativeConv.h"
#include "corvalen/text/UcsConv.h"
#include "platform/Clock.h"

namespace System::Text {

namespace {

constexpr unsigned int kLargestSize = 0x7FFFFFFF;
constexpr unsigned int kUnitBytes = sizeof(char16_t);
constexpr char kBackslash = '\\';

using CharBlock = std::unique_ptr<char[]>;

struct Free {
    void operator()(char16_t* block) const { std::free(block); }
};
using WideBlock = std::unique_ptr<char16_t, Free>;

unsigned int LengthOf(char16_t const* text) {
    return static_cast<unsigned int>(std::char_traits<char16_t>::length(text));
}

unsigned int LengthOf(char const* text) {
    return static_cast<unsigned int>(std::strlen(text));
}

unsigned int SizeOf(std::string const& text) {
    return static_cast<unsigned int>(text.size());
}

// Hands a terminated block to the caller of an _NF operation.
unsigned int Give(CharBlock block, unsigned int bytes, char*& dst) {
    block[bytes] = '\0';
    dst = block.release();
    return LengthOf(dst);
}

// Makes `dst` the text of a block up to its first NUL.
unsigned int TakeText(CharBlock const& block, unsigned int bytes, std::string& dst) {
    dst.clear();
    if (bytes > 0) {
        dst.append(block.get(), bytes);
    }
    return bytes;
}

void TakeBstr(WideBlock const& block, char16_t*& dst) {
    if (block) {
        dst = SysAllocString(block.get());
    }
}

}  // namespace

unsigned int CTextUtils::NumberOfKey = 0;

unsigned int CTextUtils::ConvertUTF8toWCHAR_NF(char const* src, unsigned int srcLen, char16_t*& dst) {
    dst = nullptr;
    UcsConv const* const converter = UcsConv::Instance();
    if (converter == nullptr) {
        return 0;
    }
    unsigned int const size = converter->FromUtf8BufferSize(src, srcLen);
    dst = static_cast<char16_t*>(std::malloc(std::size_t{size} + kUnitBytes));
    if (dst == nullptr) {
        return 0;
    }
    unsigned int bytes = 0;
    converter->FromUtf8(src, srcLen, dst, size, &bytes);
    dst[bytes / kUnitBytes] = u'\0';
    return LengthOf(dst);
}

unsigned int CTextUtils::ConvertUTF8toWCHAR_NF(std::string const& src, char16_t*& dst) {
    return ConvertUTF8toWCHAR_NF(src.data(), SizeOf(src), dst);
}

unsigned int CTextUtils::ConvertCchWCHARtoUTF8_NF(char16_t const* src, unsigned int cch, char*& dst) {
    dst = nullptr;
    UcsConv const* const converter = src != nullptr ? UcsConv::Instance() : nullptr;
    if (converter == nullptr) {
        return 0;
    }
    unsigned int const size = converter->ToUtf8BufferSize(src, kUnitBytes * cch);
    CharBlock block(new char[std::size_t{size} + 1]);
    unsigned int bytes = 0;
    converter->ToUtf8(src, kUnitBytes * LengthOf(src), block.get(), size, &bytes);
    return Give(std::move(block), bytes, dst);
}

unsigned int CTextUtils::ConvertBSTRtoUTF8_NF(char16_t* src, char*& dst) {
    return ConvertCchWCHARtoUTF8_NF(src, LengthOf(src), dst);
}

unsigned int CTextUtils::ConvertWCHARtoUTF8(char16_t const* src, std::string& dst) {
    char* text = nullptr;
    unsigned int const bytes = ConvertCchWCHARtoUTF8_NF(src, LengthOf(src), text);
    return TakeText(CharBlock(text), bytes, dst);
}

unsigned int CTextUtils::ConvertUTF8toBSTR(char const*& src, unsigned int srcLen, char16_t*& dst) {
    char16_t* text = nullptr;
    unsigned int const units = ConvertUTF8toWCHAR_NF(src, srcLen, text);
    TakeBstr(WideBlock(text), dst);
    return units;
}

void CTextUtils::ConvertWCHAR_NFtoBSTR(char16_t const* src, char16_t*& dst) {
    if (src != nullptr) {
        dst = SysAllocString(src);
    }
}

unsigned int CTextUtils::ConvertLOCALCPtoUTF8_NF(char const* src, unsigned int srcLen, char*& dst) {
    dst = nullptr;
    NativeConv const* const converter = NativeConv::Instance();
    if (converter == nullptr) {
        return 0;
    }
    unsigned int const size = converter->ToUtf8BufferSize(src, srcLen);
    CharBlock block(new char[std::size_t{size} + 1]);
    unsigned int bytes = 0;
    converter->ToUtf8(src, srcLen, block.get(), size, &bytes);
    return Give(std::move(block), bytes, dst);
}

unsigned int CTextUtils::ConvertUTF8toLOCALCP_NF(char const* src, unsigned int srcLen, char*& dst) {
    NativeConv const* const converter = NativeConv::Instance();
    if (converter == nullptr) {
        dst = nullptr;
        return 0;
    }
    // The whole block is offered to the converter, so that one byte more than it can fill is kept behind it.
    unsigned int const size = converter->FromUtf8BufferSize(src, srcLen) + 1;
    CharBlock block(new char[std::size_t{size} + 1]());
    unsigned int bytes = 0;
    converter->FromUtf8(src, srcLen, block.get(), size, &bytes);
    return Give(std::move(block), bytes, dst);
}

unsigned int CTextUtils::ConvertLOCALCPtoUTF8(std::string const& src, std::string& dst) {
    char* text = nullptr;
    unsigned int const bytes = ConvertLOCALCPtoUTF8_NF(src.data(), SizeOf(src), text);
    return TakeText(CharBlock(text), bytes, dst);
}

unsigned int CTextUtils::ConvertUTF8toLOCALCP(std::string const& src, std::string& dst) {
    char* text = nullptr;
    unsigned int const bytes = ConvertUTF8toLOCALCP_NF(src.data(), SizeOf(src), text);
    return TakeText(CharBlock(text), bytes, dst);
}

unsigned int CTextUtils::ConvertLOCALCPtoWCHAR_NF(char const* src, unsigned int srcLen, char16_t*& dst) {
    char* text = nullptr;
    unsigned int const bytes = ConvertLOCALCPtoUTF8_NF(src, srcLen, text);
    CharBlock const owner(text);
    return ConvertUTF8toWCHAR_NF(text, bytes, dst);
}

unsigned int CTextUtils::ConvertLOCALCPtoWCHAR_NF(std::string const& src, char16_t*& dst) {
    std::string text;
    ConvertLOCALCPtoUTF8(src, text);
    return ConvertUTF8toWCHAR_NF(text, dst);
}

void CTextUtils::ConvertLOCALCPtoBSTR(char const* src, unsigned int srcLen, char16_t*& dst) {
    char16_t* text = nullptr;
    ConvertLOCALCPtoWCHAR_NF(src, srcLen, text);
    TakeBstr(WideBlock(text), dst);
}

unsigned int CTextUtils::ConvertWCHARtoLOCALCP_NF(char16_t const* src, char*& dst) {
    char* text = nullptr;
    unsigned int const bytes = ConvertCchWCHARtoUTF8_NF(src, LengthOf(src), text);
    CharBlock const owner(text);
    return text != nullptr ? ConvertUTF8toLOCALCP_NF(text, bytes, dst) : 0;
}

unsigned int CTextUtils::ConvertWCHARtoLOCALCP(char16_t const* src, std::string& dst) {
    std::string text;
    ConvertWCHARtoUTF8(src, text);
    return ConvertUTF8toLOCALCP(text, dst);
}

void CTextUtils::AddBackskash(std::string& text) {
    if (text.size() > 1 && text.back() != kBackslash) {
        text += kBackslash;
    }
}

void CTextUtils::RemoveBackskash(std::string& text) {
    if (text.size() > 1 && text.back() == kBackslash) {
        text.pop_back();
    }
}

bool CTextUtils::ConvertStringToChar(std::string const& src, char* dst, unsigned int dstSize) {
    if (dstSize > 0) {
        std::memset(dst, 0, dstSize);
    }
    if (src.empty() || dstSize > kLargestSize || src.size() > kLargestSize || dstSize == 0) {
        return false;
    }
    std::size_t const length = ::strnlen(src.data(), src.size());
    bool const fits = length < dstSize;
    std::memcpy(dst, src.data(), fits ? length : dstSize - 1);
    return fits;
}

std::string CTextUtils::GenerateUniqueKey() {
    constexpr std::size_t kKeySize = 50;
    auto const seconds = static_cast<std::uint32_t>(Platform::Clock::WallSeconds());
    unsigned int const number = std::atomic_ref(NumberOfKey).fetch_add(1) + 1;
    char key[kKeySize];
    std::snprintf(key, sizeof key, "%03X-%X", number, seconds);
    return key;
}

}  // namespace System::Text
