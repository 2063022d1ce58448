#include "corvalen/text/UcsConv.h"

#include <new>

#include "text/Frame.h"
#include "text/Singleton.h"

namespace System::Text {

namespace {

constexpr char kSource[] = "UcsConv";

struct UcsForm {
    static constexpr std::size_t kMaxBytes = 2;

    std::size_t Encode(std::uint16_t value, std::uint8_t* bytes) const {
        StoreUnit(bytes, value);
        return kMaxBytes;
    }

    Decoded Decode(std::uint8_t const* in, std::uint8_t const* /*end*/) const {
        return {Decoded::kCharacter, kMaxBytes, LoadUnit(in)};
    }

    void RunFromUtf8(Runs const& runs, Cursor& c) const { runs.utf8ToUnits(c); }
    void RunToUtf8(Runs const& runs, Cursor& c) const { runs.unitsToUtf8(c); }
};

}  // namespace

UcsConv* UcsConv::s_Instance = nullptr;
int UcsConv::s_InitCount = 0;

void UcsConv::Init() {
    StartSingleton(s_Instance, s_InitCount, [] { return new (std::nothrow) UcsConv; });
}

void UcsConv::Terminate() {
    StopSingleton(s_Instance, s_InitCount, kSource, [](Utf8Converter* converter) { delete converter; });
}

UcsConv* UcsConv::Instance() {
    return GetSingleton(s_Instance, s_InitCount, kSource);
}

bool UcsConv::IsValid(void const* /*src*/, unsigned int srcLen) const {
    return srcLen % 2 == 0;
}

unsigned int UcsConv::FromUtf8BufferSize(char const* /*src*/, unsigned int srcLen) const {
    return 2 * srcLen;
}

unsigned int UcsConv::ToUtf8BufferSize(void const* /*src*/, unsigned int srcLen) const {
    return ((3 * srcLen) >> 1) + 1;
}

int UcsConv::ToUtf8(void const* src, unsigned int srcLen, char* dst, unsigned int dstLen,
                    unsigned int* outLen) const {
    int const result = FrameToUtf8(UcsForm{}, src, srcLen & ~1U, dst, dstLen, outLen);
    return result == 0 && !IsValid(src, srcLen) ? EINVAL : result;
}

int UcsConv::FromUtf8(char const* src, unsigned int srcLen, void* dst, unsigned int dstLen,
                      unsigned int* outLen) const {
    return FrameFromUtf8(UcsForm{}, src, srcLen, dst, dstLen, outLen);
}

}  // namespace System::Text
