#include "corvalen/text/UcsHexConv.h"

#include "fuzz/support/ConverterFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using System::Text::UcsHexConv;
    if (size != 0) {
        UcsHexConv::Init();
        Fuzz::TryConverter(*UcsHexConv::Instance(), data, size);
        UcsHexConv::Terminate();
    }
    return 0;
}
