#include "corvalen/text/Latin1Conv.h"

#include "fuzz/support/ConverterFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using System::Text::Latin1Conv;
    if (size != 0) {
        Latin1Conv::Init();
        Fuzz::TryConverter(*Latin1Conv::Instance(), data, size);
        Latin1Conv::Terminate();
    }
    return 0;
}
