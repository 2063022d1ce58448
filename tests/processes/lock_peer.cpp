// Works under a lock that others share: lock_peer <directory> <name> <rounds>. Each round adds 1 to two plain
// words; what a dead owner left between the two it mends first. Reports "working" and at the end "done".
#include <cstdint>
#include <iostream>
#include <string>

#include "platform/NamedObject.h"
#include "platform/SharedLock.h"

int main(int, char** arguments) {
    using namespace System::Platform;
    struct Shared {
        SharedLockRec lock;
        std::uint64_t first;
        std::uint64_t second;
    };
    NamedObject object;
    if (object.Open({arguments[1], 0666}, arguments[2], sizeof(Shared), sizeof(Shared)) != 0) {
        return 1;
    }
    auto& shared = *reinterpret_cast<Shared volatile*>(object.Data());
    auto& lock = *reinterpret_cast<SharedLockRec*>(object.Data());
    DisownShared(lock, object);
    std::cout << "working" << std::endl;
    for (long round = std::stol(arguments[3]); round > 0; --round) {
        LockResult const result = AcquireShared(lock, object, Deadline(-1));
        if (result == LockResult::kAbandoned) {
            shared.second = shared.first;
        } else if (result != LockResult::kAcquired || shared.first != shared.second) {
            std::cout << "not alone" << std::endl;
            return 2;
        }
        shared.first = shared.first + 1;
        shared.second = shared.second + 1;
        ReleaseShared(lock);
    }
    std::cout << "done" << std::endl;
    std::string line;
    std::getline(std::cin, line);
}
