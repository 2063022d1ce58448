#include "corvalen/text/Utf8Converter.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

namespace System::Text {

namespace {

// Most messages fit; what doesn't goes to the heap, so that no length can overrun the stack of a thread.
constexpr unsigned kStackBytes = 4096;
// What the _NF wrappers fall back to without memory for the whole output.
constexpr unsigned kFallbackBytes = 256;

template <typename Convert>
int ConvertToString(unsigned size, std::string& dst, Convert&& convert) {
    char onStack[kStackBytes];
    std::unique_ptr<char[]> onHeap;
    if (size > kStackBytes) {
        onHeap = std::make_unique_for_overwrite<char[]>(size);
    }
    char* const buffer = onHeap ? onHeap.get() : onStack;
    unsigned written = 0;
    int const result = convert(buffer, size, &written);
    dst.assign(buffer, written);
    return result;
}

template <typename Convert>
char* ConvertToBlock(unsigned size, unsigned* outLen, int* result, Convert&& convert) {
    auto* block = static_cast<char*>(std::malloc(std::max(size, 1U)));
    if (block == nullptr) {
        size = kFallbackBytes;
        block = static_cast<char*>(std::malloc(size));
    }
    *outLen = 0;
    int const code = block != nullptr ? convert(block, size, outLen) : E2BIG;
    if (result != nullptr) {
        *result = code;
    }
    return block;
}

}  // namespace

int Utf8Converter::StrFromUtf8(std::string src, std::string& dst) const {
    auto const length = static_cast<unsigned>(src.size());
    return ConvertToString(FromUtf8BufferSize(src.data(), length), dst,
                           [&](char* buffer, unsigned size, unsigned* written) {
                               return FromUtf8(src.data(), length, buffer, size, written);
                           });
}

int Utf8Converter::StrToUtf8(std::string src, std::string& dst) const {
    auto const length = static_cast<unsigned>(src.size());
    return ConvertToString(ToUtf8BufferSize(src.data(), length), dst,
                           [&](char* buffer, unsigned size, unsigned* written) {
                               return ToUtf8(src.data(), length, buffer, size, written);
                           });
}

void* Utf8Converter::FromUtf8_NF(char const* src, unsigned int srcLen, unsigned int* outLen,
                                 int* result) const {
    return ConvertToBlock(FromUtf8BufferSize(src, srcLen), outLen, result,
                          [&](char* block, unsigned size, unsigned* written) {
                              return FromUtf8(src, srcLen, block, size, written);
                          });
}

char* Utf8Converter::ToUtf8_NF(void const* src, unsigned int srcLen, unsigned int* outLen,
                               int* result) const {
    return ConvertToBlock(ToUtf8BufferSize(src, srcLen), outLen, result,
                          [&](char* block, unsigned size, unsigned* written) {
                              return ToUtf8(src, srcLen, block, size, written);
                          });
}

}  // namespace System::Text
