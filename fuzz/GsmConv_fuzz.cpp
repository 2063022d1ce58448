#include "corvalen/text/GsmConv.h"

#include "fuzz/support/ConverterFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using System::Text::GsmConv;
    if (size != 0) {
        GsmConv::Init();
        Fuzz::TryConverter(*GsmConv::Instance(), data, size);
        GsmConv::Terminate();
    }
    return 0;
}
