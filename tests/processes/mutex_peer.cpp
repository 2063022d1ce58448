// Takes a named mutex of the machine: mutex_peer <name>. Reports "acquired" or "abandoned", and gives it back
// and ends when its input ends.
#include <iostream>
#include <string>

#include "platform/NamedMutex.h"

int main(int, char** arguments) {
    using namespace System::Platform;
    std::string const name = arguments[1];
    NamedMutex mutex;
    if (mutex.Open(SharedPlace(), std::u16string(name.begin(), name.end())) != 0) {
        return 1;
    }
    LockResult const result = mutex.Lock(Deadline(-1));
    std::cout << (result == LockResult::kAcquired ? "acquired" : "abandoned") << std::endl;
    std::string line;
    std::getline(std::cin, line);
    return mutex.Unlock() ? 0 : 2;
}
