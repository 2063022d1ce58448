// Writes framed records into a shared stream until it is killed: stream_writer <name> <size> <writer> <file>.
// A record is a length, the writer, a sequence number from 1, and bytes that follow from both. After each
// record that Write took, its number goes into the file.
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstdint>
#include <iostream>
#include <string>

#include "corvalen/rpc/SharedStream.h"
#include "tests/support/Record.h"

int main(int, char** arguments) {
    std::string const name = arguments[1];
    System::RPC::SharedStream stream(std::u16string(name.begin(), name.end()).c_str(),
                                     static_cast<std::uint32_t>(std::stoul(arguments[2])));
    auto const writer = static_cast<std::uint32_t>(std::stoul(arguments[3]));
    int const file = ::open(arguments[4], O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (!stream.IsValid() || file < 0) {
        return 1;
    }
    for (std::uint32_t number = 1;; ++number) {
        std::string const record = Support::MakeRecord(writer, number);
        int result = 7;
        while (result == 7) {
            result = stream.Write(record.data(), static_cast<std::uint32_t>(record.size()));
            ::sched_yield();
        }
        if (result != 0 || ::pwrite(file, &number, sizeof number, 0) != sizeof number) {
            return 2;
        }
    }
}
