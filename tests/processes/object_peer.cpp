// Holds a named object for a test: object_peer <directory> <name> <size>. Does what the lines of its input
// say.
//   open    joins; adds 1 to the object's first word; "created" or "opened", "dirty" if a new object is not
//   zeros count   the first word spoil   fills the object with ones close   takes the 1 off again and leaves;
//   "closed" reopen  close and open at once, with the answer of open fork    starts a child that lives until
//   the input ends; "forked" lock    takes the lock whose word is the object's third; "locked"
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iostream>
#include <string>

#include "platform/NamedObject.h"
#include "platform/SharedLock.h"

namespace {

using namespace System::Platform;

struct Peer {
    Place place;
    std::string name;
    std::uint64_t size;
    NamedObject object;

    auto Count() { return std::atomic_ref(*reinterpret_cast<std::uint32_t*>(object.Data())); }

    std::string Open() {
        if (int const error = object.Open(place, name, size, size); error != 0) {
            return "failed " + std::to_string(error);
        }
        // Others may count already, but only at the front.
        bool const isClean =
            std::all_of(object.Data() + std::min<std::uint64_t>(size, 64), object.Data() + size,
                        [](std::byte byte) { return byte == std::byte{0}; });
        ++Count();
        return object.IsCreator() ? (isClean ? "created" : "dirty") : "opened";
    }

    std::string Close() {
        --Count();
        object.Close();
        return "closed";
    }
};

std::string Fork() {
    if (::fork() == 0) {
        static_cast<void>(!::write(STDOUT_FILENO, "forked\n", 7));
        char byte = 0;
        while (::read(STDIN_FILENO, &byte, 1) > 0) {
        }
        ::_exit(0);
    }
    return {};
}

std::string Obey(Peer& peer, std::string const& order) {
    if (order == "open") {
        return peer.Open();
    }
    if (order == "count") {
        return std::to_string(peer.Count());
    }
    if (order == "spoil") {
        std::memset(peer.object.Data(), 0xFF, peer.object.Size());
        return "spoilt";
    }
    if (order == "close") {
        return peer.Close();
    }
    if (order == "reopen") {
        peer.Close();
        return peer.Open();
    }
    if (order == "lock") {
        auto& rec = *reinterpret_cast<SharedLockRec*>(peer.object.Data() + sizeof(SharedLockRec));
        return AcquireShared(rec, peer.object, Deadline(-1)) == LockResult::kAcquired ? "locked" : "failed";
    }
    return order == "fork" ? Fork() : "unknown order";
}

}  // namespace

int main(int, char** arguments) {
    Peer peer{{arguments[1], 0666}, arguments[2], std::stoull(arguments[3]), {}};
    for (std::string order; std::getline(std::cin, order);) {
        if (std::string const answer = Obey(peer, order); !answer.empty()) {
            std::cout << answer << std::endl;
        }
    }
}
