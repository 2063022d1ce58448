// What a stranger's first program does: start, log a line, carry a message through a flat encoding and a text
// through a converter, and stop.

#include <cstdio>
#include <cstring>

#include "corvalen/corvalen.h"

namespace {

bool CarriesAMessage() {
    System::RPC::MemOutputStream out;
    out.WriteUInt32(7);
    out.WriteStr("hello");
    std::uint32_t size = 0;
    void* const data = out.GetData(&size);
    System::RPC::MemInputStream in(data, size);
    return in.ReadUInt32() == 7 && std::strcmp(in.ReadStr(), "hello") == 0 && in.SizeLeft() == 0;
}

bool ConvertsAText() {
    std::string hex;
    int const result = System::Text::UcsHexConv::Instance()->StrFromUtf8("h\xC3\xA9", hex);
    return result == 0 && hex == "006800E9";
}

}  // namespace

int main() {
    InitFramework();
    System::Diagnostics::FLog::RegisterProc(System::Diagnostics::FLog::PrintProc, stdout);
    System::Diagnostics::FLog::Put(2, 1, "stranger", "-", "linked and running");
    bool const works = CarriesAMessage() && ConvertsAText();
    System::Diagnostics::FLog::UnregisterProc(System::Diagnostics::FLog::PrintProc, stdout);
    ExitFramework();
    std::puts(works ? "the package works" : "the package does not work");
    return works ? 0 : 1;
}
