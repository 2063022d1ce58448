// Shows a text in the forms that phones and their networks use, and what comes back from each.
//
//   texts TEXT...

#include <cstdio>
#include <string>

#include "corvalen/system/Framework.h"
#include "corvalen/text/GsmConv.h"
#include "corvalen/text/Latin1Conv.h"
#include "corvalen/text/UcsConv.h"

namespace {

using System::Text::Utf8Converter;

void PrintBytes(std::string const& bytes) {
    for (char const byte : bytes) {
        std::printf("%02X", static_cast<unsigned char>(byte));
    }
}

// The result 0 says that nothing was malformed, not that the form has all of the characters: what it lacks is
// left out here, since no missing character was set. Only the way back tells.
void Print(char const* form, Utf8Converter const& converter, std::string const& text) {
    std::string bytes;
    std::string back;
    int const result = converter.StrFromUtf8(text, bytes);
    converter.StrToUtf8(bytes, back);
    std::printf("  %-8s ", form);
    PrintBytes(bytes);
    std::printf("%s%s\n", result != 0 ? " malformed" : "", back != text ? " incomplete" : "");
}

}  // namespace

int main(int argc, char** argv) {
    InitFramework();
    for (int i = 1; i < argc; ++i) {
        std::printf("%s\n", argv[i]);
        Print("GSM", *System::Text::GsmConv::Instance(), argv[i]);
        Print("Latin-1", *System::Text::Latin1Conv::Instance(), argv[i]);
        Print("UCS-2", *System::Text::UcsConv::Instance(), argv[i]);
    }
    ExitFramework();
}
