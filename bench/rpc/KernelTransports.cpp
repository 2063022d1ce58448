// What the kernel offers by itself: a pair of FIFOs, and a Unix socket that keeps messages apart.

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/rpc/Transport.h"

namespace Bench {

namespace {

std::string PathOf(std::string const& key, char const* suffix) {
    return "/tmp/" + key + suffix;
}

// A descriptor that does not block is polled.
ssize_t Read(int file, void* to, std::size_t size) {
    for (;;) {
        auto const got = ::read(file, to, size);
        if (got >= 0 || errno != EAGAIN) {
            return got;
        }
        PausePolling();
    }
}

// Reads of `file` poll if `waiting` says so. For sockets that concerns this end's writes as well.
void SetWaiting(int file, Waiting waiting) {
    if (waiting == Waiting::kPolling && ::fcntl(file, F_SETFL, ::fcntl(file, F_GETFL) | O_NONBLOCK) != 0) {
        std::perror("fcntl");
    }
}

bool ReadWhole(int file, void* to, std::size_t size) {
    auto* at = static_cast<char*>(to);
    while (size != 0) {
        auto const got = Read(file, at, size);
        if (got <= 0) {
            return false;
        }
        at += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

bool WriteWhole(int file, void const* from, std::size_t size) {
    auto const* at = static_cast<char const*>(from);
    while (size != 0) {
        auto const put = ::write(file, at, size);
        if (put <= 0) {
            return false;
        }
        at += put;
        size -= static_cast<std::size_t>(put);
    }
    return true;
}

// A message in a stream of bytes: its length, with the top bit for a notification, and its bytes.
constexpr std::uint32_t kNotification = 0x8000'0000;

class PipeClient : public Client {
public:
    PipeClient(std::string const& key, Waiting waiting)
        : m_Out(::open(PathOf(key, ".in").c_str(), O_WRONLY | O_CLOEXEC)),
          m_In(::open(PathOf(key, ".out").c_str(), O_RDONLY | O_CLOEXEC)) {
        SetWaiting(m_In, waiting);
    }
    ~PipeClient() override {
        ::close(m_Out);
        ::close(m_In);
    }

    Answer Ask(std::uint64_t sequence, std::size_t size) override {
        Answer answer{};
        if (!Put(sequence, size, 0) || !ReadWhole(m_In, &answer, sizeof answer)) {
            answer = {};
        }
        return answer;
    }
    bool Notify(std::uint64_t sequence, std::size_t size) override {
        return Put(sequence, size, kNotification);
    }

private:
    bool Put(std::uint64_t sequence, std::size_t size, std::uint32_t flag) {
        std::uint32_t const head = static_cast<std::uint32_t>(size) | flag;
        std::memcpy(m_Buffer, &head, sizeof head);
        Fill(m_Buffer + sizeof head, sequence, size);
        return WriteWhole(m_Out, m_Buffer, sizeof head + size);
    }

    int m_Out;
    int m_In;
    char m_Buffer[sizeof(std::uint32_t) + kMaxPayload];
};

class Pipe : public Transport {
public:
    [[nodiscard]] char const* Name() const override { return "pipe"; }
    [[nodiscard]] bool CanPoll() const override { return true; }
    [[nodiscard]] bool CanNotify() const override { return true; }

    int Serve(std::string const& key, Waiting waiting) override {
        std::string const in = PathOf(key, ".in");
        std::string const out = PathOf(key, ".out");
        if (::mkfifo(in.c_str(), 0600) != 0 || ::mkfifo(out.c_str(), 0600) != 0) {
            std::perror("mkfifo");
            return 1;
        }
        ReportReady();
        int const input = ::open(in.c_str(), O_RDONLY | O_CLOEXEC);
        int const output = ::open(out.c_str(), O_WRONLY | O_CLOEXEC);
        SetWaiting(input, waiting);
        ::unlink(in.c_str());
        ::unlink(out.c_str());
        static char payload[kMaxPayload];
        Answers answers;
        for (;;) {
            std::uint32_t head = 0;
            if (!ReadWhole(input, &head, sizeof head) || !ReadWhole(input, payload, head & ~kNotification)) {
                return 1;
            }
            if ((head & kNotification) != 0) {
                answers.HandleNotification();
                continue;
            }
            Answer const answer = answers.To(payload, head);
            if (!WriteWhole(output, &answer, sizeof answer)) {
                return 1;
            }
            if (answer.sequence == kStop) {
                return 0;
            }
        }
    }

    std::unique_ptr<Client> Connect(std::string const& key, Waiting waiting) override {
        return std::make_unique<PipeClient>(key, waiting);
    }
};

sockaddr_un AddressOf(std::string const& key) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/tmp/%s.socket", key.c_str());
    return address;
}

class SocketClient : public Client {
public:
    SocketClient(std::string const& key, Waiting waiting)
        : m_Socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        sockaddr_un const address = AddressOf(key);
        if (::connect(m_Socket, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
            std::perror("connect");
        }
        SetWaiting(m_Socket, waiting);
    }
    ~SocketClient() override { ::close(m_Socket); }

    Answer Ask(std::uint64_t sequence, std::size_t size) override {
        Answer answer{};
        if (!Put(sequence, size, 0) || Read(m_Socket, &answer, sizeof answer) != sizeof answer) {
            answer = {};
        }
        return answer;
    }
    bool Notify(std::uint64_t sequence, std::size_t size) override { return Put(sequence, size, 1); }

private:
    bool Put(std::uint64_t sequence, std::size_t size, char isNotification) {
        m_Buffer[0] = isNotification;
        Fill(m_Buffer + 1, sequence, size);
        return ::write(m_Socket, m_Buffer, size + 1) == static_cast<ssize_t>(size + 1);
    }

    int m_Socket;
    char m_Buffer[1 + kMaxPayload];
};

class SeqPacket : public Transport {
public:
    [[nodiscard]] char const* Name() const override { return "Unix socket"; }
    [[nodiscard]] bool CanPoll() const override { return true; }
    [[nodiscard]] bool CanNotify() const override { return true; }

    int Serve(std::string const& key, Waiting waiting) override {
        int const listener = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        sockaddr_un const address = AddressOf(key);
        if (::bind(listener, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0 ||
            ::listen(listener, 1) != 0) {
            std::perror("bind");
            return 1;
        }
        ReportReady();
        int const peer = ::accept(listener, nullptr, nullptr);
        SetWaiting(peer, waiting);
        ::unlink(address.sun_path);
        static char buffer[1 + kMaxPayload];
        Answers answers;
        for (;;) {
            auto const got = Read(peer, buffer, sizeof buffer);
            if (got < static_cast<ssize_t>(1 + sizeof(Answer))) {
                return 1;
            }
            if (buffer[0] != 0) {
                answers.HandleNotification();
                continue;
            }
            Answer const answer = answers.To(buffer + 1, static_cast<std::size_t>(got - 1));
            if (::write(peer, &answer, sizeof answer) != sizeof answer) {
                return 1;
            }
            if (answer.sequence == kStop) {
                return 0;
            }
        }
    }

    std::unique_ptr<Client> Connect(std::string const& key, Waiting waiting) override {
        return std::make_unique<SocketClient>(key, waiting);
    }
};

}  // namespace

std::unique_ptr<Transport> MakePipe() {
    return std::make_unique<Pipe>();
}

std::unique_ptr<Transport> MakeSeqPacket() {
    return std::make_unique<SeqPacket>();
}

}  // namespace Bench
