#include "corvalen/text/NativeConv.h"

#include <cstdlib>

#include "fuzz/support/ConverterFuzz.h"

// The first byte chooses the code set.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using System::Text::NativeConv;
    static constexpr char const* kLocales[] = {"C.UTF-8",       "C",           "x.ISO-8859-1",    "x.EUC-JP",
                                               "x.ISO-2022-JP", "x.ISO646-DE", "x.CP1255",        "x.GB18030",
                                               "x.ISO-2022-KR", "x.BIG5",      "x.SHIFT_JISX0213"};
    if (size != 0) {
        ::setenv("LC_ALL", kLocales[data[0] % std::size(kLocales)], 1);
        NativeConv::Init();
        NativeConv const& native = *NativeConv::Instance();
        std::string const input(reinterpret_cast<char const*>(data) + 1, size - 1 < 2048 ? size - 1 : 2048);
        for (unsigned const room : {8192U, data[0] * 3U}) {
            Fuzz::ConvertAtAllLevels(native, Fuzz::Direction::kFromUtf8, input, room);
            Fuzz::ConvertAtAllLevels(native, Fuzz::Direction::kToUtf8, input, room);
        }
        NativeConv::Terminate();
    }
    return 0;
}
