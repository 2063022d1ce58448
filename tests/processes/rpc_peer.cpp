// An endpoint of a channel that tests talk to and kill: rpc_peer <channel> <role> [count]
//   server    opens as "server", reports its endpoint, and answers requests until it is killed: a request's
//   bytes
//             come back reversed. A request of one byte is an order: 'd' dies, 'h' reports "handling" and
//             waits for a line on its input, 'n' gives no answer, 'e' ends cleanly, 'q' reports how many
//             notifications it got
//   client N  sends N requests of checked bytes to "server", reports "done"
//   flood N   posts N numbered notifications to "server", reports "done"
//   idle      opens as a client, reports its endpoint, and takes its messages
//   crowd N   starts N processes of the role idle, whose reports appear as its own, and kills them when its
//   input
//             ends
//   probe     opens as a client, reports its endpoint, and sends requests and notifications that may fail
//   until
//             its input ends
//   find      reports the endpoint of "server" without opening anything
//   hold      takes the channel's lock, reports "locked", and waits for a line

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "corvalen/platform/MessageQueue.h"
#include "corvalen/rpc/RpcChannel.h"

namespace {

using System::Platform::Message;
using System::Platform::MessageQueue;

void Report(std::string const& line) {
    std::cout << line << std::endl;
}

class Peer : public System::RPC::RpcChannel {
public:
    using RpcChannel::Lock;
    using RpcChannel::RpcChannel;
    using RpcChannel::Unlock;

    std::uint32_t OnRequest(std::uint32_t, std::uint32_t handle) override {
        auto const* const data = static_cast<unsigned char const*>(HandleData(handle));
        std::uint32_t const size = HandleSize(handle);
        if (data == nullptr || (size == 1 && !Obey(static_cast<char>(*data)))) {
            return 0;
        }
        std::uint32_t const answer = NewHandle(size);
        if (auto* const to = static_cast<unsigned char*>(HandleData(answer))) {
            std::reverse_copy(data, data + size, to);
        }
        return answer;
    }

    void OnNotify(std::uint32_t sender, std::uint32_t handle) override {
        std::uint32_t number = 0;
        if (void const* const data = HandleData(handle)) {
            std::memcpy(&number, data, sizeof number);
        }
        isInOrder = isInOrder && m_Next[sender] == number;
        m_Next[sender] = number + 1;
        ++notifications;
    }

    bool isRunning = true;
    bool isInOrder = true;
    unsigned notifications = 0;

private:
    // Whether the order is answered.
    bool Obey(char order) {
        std::string line;
        switch (order) {
            case 'd':
                ::kill(::getpid(), SIGKILL);
                return false;
            case 'h':
                Report("handling");
                std::getline(std::cin, line);
                return true;
            case 'e':
                isRunning = false;
                return false;
            case 'q':
                Report(std::to_string(notifications) + (isInOrder ? " in order" : " disordered"));
                return false;
            default:
                return order != 'n';
        }
    }

    std::map<std::uint32_t, std::uint32_t> m_Next;
};

void Serve(Peer& peer) {
    MessageQueue& queue = MessageQueue::Current();
    Message message;
    while (peer.isRunning) {
        queue.Wait();
        while (queue.Peek(message)) {
            queue.Dispatch(message);
        }
    }
}

int Fail(char const* what, int error) {
    Report(std::string(what) + ": " + std::strerror(error));
    return 1;
}

std::uint32_t FindServer(Peer& peer) {
    for (;;) {
        if (std::uint32_t const server = peer.FindServer(u"server"); server != 0) {
            return server;
        }
        std::this_thread::yield();
    }
}

unsigned char ByteAt(unsigned request, std::uint32_t position) {
    return static_cast<unsigned char>(request + position * 7);
}

// Notifications of others may fill the heap for a while: then there is no room for the request, or no answer.
std::uint32_t AskUntilAnswered(Peer& peer, std::uint32_t server, unsigned request, std::uint32_t size,
                               int& error) {
    std::uint32_t reply = 0;
    error = 0;
    while (reply == 0 && error == 0) {
        std::uint32_t const handle = peer.NewHandle(size);
        auto* const data = static_cast<unsigned char*>(peer.HandleData(handle));
        if (data == nullptr) {
            std::this_thread::yield();
            continue;
        }
        for (std::uint32_t k = 0; k < size; ++k) {
            data[k] = ByteAt(request, k);
        }
        error = peer.Request(server, handle, &reply, 60'000);
    }
    return reply;
}

int SendRequests(Peer& peer, unsigned count) {
    std::uint32_t const server = FindServer(peer);
    for (unsigned i = 0; i < count; ++i) {
        std::uint32_t const size = 2 + i % 700;
        int error = 0;
        std::uint32_t const reply = AskUntilAnswered(peer, server, i, size, error);
        if (error != 0) {
            return Fail("request", error);
        }
        auto const* const answer = static_cast<unsigned char const*>(peer.HandleData(reply));
        for (std::uint32_t k = 0; k < size; ++k) {
            if (answer == nullptr || answer[size - 1 - k] != ByteAt(i, k)) {
                return Fail("wrong answer", 0);
            }
        }
        peer.DisposeHandle(reply);
    }
    return 0;
}

int Flood(Peer& peer, unsigned count) {
    std::uint32_t const server = FindServer(peer);
    std::uint32_t i = 0;
    while (i < count) {
        std::uint32_t const handle = peer.NewHandle(sizeof i);
        if (handle == 0) {
            std::this_thread::yield();
            continue;
        }
        std::memcpy(peer.HandleData(handle), &i, sizeof i);
        int const error = peer.Notify(server, handle);
        if (error == 0) {
            ++i;
        } else if (error != EAGAIN) {
            return Fail("notify", error);
        }
    }
    return 0;
}

bool HasInputEnded() {
    pollfd look{STDIN_FILENO, POLLIN, 0};
    return ::poll(&look, 1, 0) == 1 && (look.revents & POLLHUP) != 0;
}

int Probe(Peer& peer) {
    std::uint32_t const server = FindServer(peer);
    Report(std::to_string(peer.LocalEndPoint()));
    Message message;
    for (std::uint32_t size = 2; !HasInputEnded(); size = size % 2000 + 1) {
        constexpr std::uint32_t kShortMs = 20;
        for (bool const isRequest : {true, false}) {
            std::uint32_t const handle = peer.NewHandle(size);
            if (void* const data = peer.HandleData(handle)) {
                std::memset(data, 'x', std::min(size, peer.HandleSize(handle)));
            }
            std::uint32_t reply = 0;
            if (isRequest) {
                peer.Request(server, handle, &reply, kShortMs);
                peer.DisposeHandle(reply);
            } else {
                peer.Notify(server, handle);
            }
        }
        while (MessageQueue::Current().Peek(message)) {
            MessageQueue::Current().Dispatch(message);
        }
    }
    return 0;
}

int Hold(Peer& peer) {
    peer.Lock();
    Report("locked");
    std::string line;
    std::getline(std::cin, line);
    peer.Unlock();
    return 0;
}

void EndAll(std::vector<pid_t> const& members) {
    for (pid_t const member : members) {
        ::kill(member, SIGKILL);
    }
    for (pid_t const member : members) {
        ::waitpid(member, nullptr, 0);
    }
}

int StartCrowd(char* self, char* channel, unsigned count) {
    std::string role = "idle";
    char* const arguments[] = {self, channel, role.data(), nullptr};
    std::vector<pid_t> members;
    while (members.size() < count) {
        pid_t member = -1;
        if (int const error = ::posix_spawn(&member, self, nullptr, nullptr, arguments, environ)) {
            EndAll(members);
            return Fail("spawn", error);
        }
        members.push_back(member);
    }
    std::string line;
    std::getline(std::cin, line);
    EndAll(members);
    return 0;
}

int Run(Peer& peer, std::string const& role, unsigned count) {
    if (role == "server" || role == "idle") {
        Report(std::to_string(peer.LocalEndPoint()));
        Serve(peer);
        return 0;
    }
    if (role == "hold") {
        return Hold(peer);
    }
    if (role == "probe") {
        return Probe(peer);
    }
    int const result = role == "client" ? SendRequests(peer, count) : Flood(peer, count);
    if (result == 0) {
        Report("done");
    }
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    // A test that ends without us must not leave us behind.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (argc < 3) {
        return 2;
    }
    std::string const name = argv[1];
    std::string const role = argv[2];
    unsigned const count = argc > 3 ? static_cast<unsigned>(std::atoi(argv[3])) : 0;
    if (role == "crowd") {
        return StartCrowd(argv[0], argv[1], count);
    }
    Peer peer(std::u16string(name.begin(), name.end()).c_str());
    if (role == "find") {
        Report(std::to_string(peer.FindServer(u"server")));
        return 0;
    }
    if (int const error = role == "server" ? peer.OpenServer(u"server") : peer.OpenClient(); error != 0) {
        return Fail("open", error);
    }
    int const result = Run(peer, role, count);
    peer.Close();
    return result;
}
