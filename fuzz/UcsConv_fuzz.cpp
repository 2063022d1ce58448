#include "corvalen/text/UcsConv.h"

#include "fuzz/support/ConverterFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using System::Text::UcsConv;
    if (size != 0) {
        UcsConv::Init();
        Fuzz::TryConverter(*UcsConv::Instance(), data, size);
        UcsConv::Terminate();
    }
    return 0;
}
