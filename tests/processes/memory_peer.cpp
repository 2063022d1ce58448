// Locks a region of the machine: memory_peer <name> <size>. Reports "locked" and waits to be killed or for
// the end of its input.
#include <iostream>
#include <string>

#include "corvalen/rpc/SharedMemory.h"

int main(int, char** arguments) {
    std::string const name = arguments[1];
    System::RPC::SharedMemory memory(std::u16string(name.begin(), name.end()).c_str(),
                                     static_cast<std::uint32_t>(std::stoul(arguments[2])));
    memory.Lock();
    std::cout << (memory.IsValid() ? "locked" : "failed") << std::endl;
    std::string line;
    std::getline(std::cin, line);
    memory.Unlock();
}
