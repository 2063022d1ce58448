// D-Bus by way of sd-bus: over a Unix socket between the two, and through a bus daemon of their own.

#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>

#include "bench/rpc/Spawn.h"
#include "bench/rpc/Transport.h"

namespace Bench {

namespace {

constexpr char kService[] = "corvalen.bench";
constexpr char kPath[] = "/corvalen/bench";
constexpr char kAsk[] = "Ask";
constexpr char kNotify[] = "Notify";
constexpr std::uint64_t kForever = ~std::uint64_t{0};
// How many notifications may pile up in the client, and how many between two requests: a bus daemon drops
// what its queue cannot hold.
constexpr std::uint64_t kMaxQueued = 64;
constexpr unsigned kMaxUnanswered = 4096;

std::string SocketOf(std::string const& key) {
    return "/tmp/" + key + ".bus";
}

bool Succeeds(int result, char const* what) {
    if (result < 0) {
        std::fprintf(stderr, "sd-bus %s: %s\n", what, std::strerror(-result));
    }
    return result >= 0;
}

struct Closing {
    void operator()(sd_bus* bus) const { ::sd_bus_flush_close_unref(bus); }
    void operator()(sd_bus_message* message) const { ::sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, Closing>;
using BusMessage = std::unique_ptr<sd_bus_message, Closing>;

Bus NewBus() {
    sd_bus* bus = nullptr;
    return Succeeds(::sd_bus_new(&bus), "new") ? Bus(bus) : nullptr;
}

// A connection to the socket, as the client of a bus daemon or of a peer.
Bus ConnectTo(std::string const& key, bool isThroughDaemon) {
    Bus bus = NewBus();
    if (bus == nullptr ||
        !Succeeds(::sd_bus_set_address(bus.get(), ("unix:path=" + SocketOf(key)).c_str()), "address") ||
        !Succeeds(::sd_bus_set_bus_client(bus.get(), isThroughDaemon ? 1 : 0), "client") ||
        !Succeeds(::sd_bus_start(bus.get()), "start")) {
        return nullptr;
    }
    return bus;
}

// The server's end of a private connection, once its client comes.
Bus AcceptOne(std::string const& key) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", SocketOf(key).c_str());
    int const listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(listener, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0 ||
        ::listen(listener, 1) != 0) {
        std::perror("bind");
        return nullptr;
    }
    ReportReady();
    int const peer = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ::close(listener);
    ::unlink(address.sun_path);
    Bus bus = NewBus();
    sd_id128_t id;
    if (bus == nullptr || !Succeeds(::sd_id128_randomize(&id), "id") ||
        !Succeeds(::sd_bus_set_fd(bus.get(), peer, peer), "descriptor") ||
        !Succeeds(::sd_bus_set_server(bus.get(), 1, id), "server") ||
        !Succeeds(::sd_bus_set_anonymous(bus.get(), 1), "anonymous") ||
        !Succeeds(::sd_bus_start(bus.get()), "start")) {
        return nullptr;
    }
    return bus;
}

class SdBusClient : public Client {
public:
    SdBusClient(Bus bus, Waiting waiting, bool isThroughDaemon)
        : m_Bus(std::move(bus)), m_Waiting(waiting), m_Name(isThroughDaemon ? kService : nullptr) {}

    Answer Ask(std::uint64_t sequence, std::size_t size) override {
        BusMessage const request = NewCall(kAsk, sequence, size);
        m_Answer = {};
        if (m_Waiting == Waiting::kSleeping) {
            sd_bus_message* reply = nullptr;
            if (Succeeds(::sd_bus_call(m_Bus.get(), request.get(), kForever, nullptr, &reply), "call")) {
                Take(reply);
                ::sd_bus_message_unref(reply);
            }
        } else {
            CallPolling(request.get());
        }
        return m_Answer;
    }

    bool Notify(std::uint64_t sequence, std::size_t size) override {
        BusMessage const call = NewCall(kNotify, sequence, size);
        ::sd_bus_message_set_expect_reply(call.get(), 0);
        if (!Succeeds(::sd_bus_send(m_Bus.get(), call.get(), nullptr), "send")) {
            return false;
        }
        std::uint64_t queued = 0;
        if (::sd_bus_get_n_queued_write(m_Bus.get(), &queued) >= 0 && queued > kMaxQueued) {
            ::sd_bus_flush(m_Bus.get());
        }
        if (m_Name != nullptr && ++m_Unanswered == kMaxUnanswered) {
            m_Unanswered = 0;
            Ask(0, sizeof(Answer));
        }
        return true;
    }

private:
    BusMessage NewCall(char const* member, std::uint64_t sequence, std::size_t size) {
        sd_bus_message* message = nullptr;
        void* payload = nullptr;
        if (!Succeeds(
                ::sd_bus_message_new_method_call(m_Bus.get(), &message, m_Name, kPath, kService, member),
                "new") ||
            !Succeeds(::sd_bus_message_append_array_space(message, 'y', size, &payload), "append")) {
            std::abort();
        }
        Fill(payload, sequence, size);
        return BusMessage(message);
    }

    void Take(sd_bus_message* reply) {
        Succeeds(::sd_bus_message_read(reply, "tt", &m_Answer.sequence, &m_Answer.sum), "read");
    }

    static int OnReply(sd_bus_message* reply, void* self, sd_bus_error*) {
        static_cast<SdBusClient*>(self)->Take(reply);
        static_cast<SdBusClient*>(self)->m_IsAnswered = true;
        return 1;
    }

    void CallPolling(sd_bus_message* request) {
        m_IsAnswered = false;
        if (!Succeeds(
                ::sd_bus_call_async(m_Bus.get(), nullptr, request, &SdBusClient::OnReply, this, kForever),
                "call")) {
            return;
        }
        while (!m_IsAnswered) {
            int const done = ::sd_bus_process(m_Bus.get(), nullptr);
            if (!Succeeds(done, "process")) {
                return;
            }
            if (done == 0) {
                PausePolling();
            }
        }
    }

    Bus m_Bus;
    Waiting m_Waiting;
    char const* m_Name;
    Answer m_Answer{};
    bool m_IsAnswered = false;
    unsigned m_Unanswered = 0;
};

class SdBusServer {
public:
    explicit SdBusServer(Bus bus) : m_Bus(std::move(bus)) {}

    int Serve(Waiting waiting) {
        if (!Succeeds(::sd_bus_add_filter(m_Bus.get(), nullptr, &SdBusServer::OnMessage, this), "filter")) {
            return 1;
        }
        while (m_IsRunning) {
            int const done = ::sd_bus_process(m_Bus.get(), nullptr);
            if (!Succeeds(done, "process")) {
                return 1;
            }
            if (done != 0) {
                continue;
            }
            if (waiting == Waiting::kPolling) {
                PausePolling();
            } else {
                ::sd_bus_wait(m_Bus.get(), kForever);
            }
        }
        return 0;
    }

private:
    static int OnMessage(sd_bus_message* message, void* self, sd_bus_error*) {
        return static_cast<SdBusServer*>(self)->Handle(message);
    }

    int Handle(sd_bus_message* message) {
        if (::sd_bus_message_is_method_call(message, kService, kNotify) > 0) {
            m_Answers.HandleNotification();
            return 1;
        }
        if (::sd_bus_message_is_method_call(message, kService, kAsk) <= 0) {
            return 0;
        }
        void const* payload = nullptr;
        std::size_t size = 0;
        if (!Succeeds(::sd_bus_message_read_array(message, 'y', &payload, &size), "read")) {
            return 0;
        }
        Answer const answer = m_Answers.To(payload, size);
        m_IsRunning = answer.sequence != kStop;
        return ::sd_bus_reply_method_return(message, "tt", answer.sequence, answer.sum);
    }

    Bus m_Bus;
    Answers m_Answers;
    bool m_IsRunning = true;
};

class SdBus : public Transport {
public:
    [[nodiscard]] bool CanPoll() const override { return true; }
    [[nodiscard]] bool CanNotify() const override { return true; }
};

class PrivateSdBus : public SdBus {
public:
    [[nodiscard]] char const* Name() const override { return "sd-bus private"; }

    int Serve(std::string const& key, Waiting waiting) override {
        Bus bus = AcceptOne(key);
        return bus != nullptr ? SdBusServer(std::move(bus)).Serve(waiting) : 1;
    }

    std::unique_ptr<Client> Connect(std::string const& key, Waiting waiting) override {
        Bus bus = ConnectTo(key, false);
        return bus != nullptr ? std::make_unique<SdBusClient>(std::move(bus), waiting, false) : nullptr;
    }
};

// A bus daemon that listens on the key's socket, with its configuration.
class BusDaemon {
public:
    explicit BusDaemon(std::string const& key)
        : m_Socket(SocketOf(key)), m_Configuration(m_Socket + ".conf") {
        std::ofstream(m_Configuration)
            << "<busconfig><listen>unix:path=" << m_Socket << "</listen><auth>EXTERNAL</auth>"
            << "<policy context=\"default\"><allow send_destination=\"*\"/><allow eavesdrop=\"false\"/>"
            << "<allow own=\"*\"/></policy></busconfig>\n";
        std::string const file = "--config-file=" + m_Configuration;
        char const* const arguments[] = {"dbus-daemon", file.c_str(), "--nofork", "--print-address", nullptr};
        m_Daemon.emplace("dbus-daemon", arguments, "unix:");
    }
    ~BusDaemon() {
        m_Daemon.reset();
        ::unlink(m_Configuration.c_str());
        ::unlink(m_Socket.c_str());
    }
    BusDaemon(BusDaemon const&) = delete;
    BusDaemon& operator=(BusDaemon const&) = delete;

    [[nodiscard]] Daemon const& Process() const { return *m_Daemon; }

private:
    std::string m_Socket;
    std::string m_Configuration;
    std::optional<Daemon> m_Daemon;
};

class DaemonSdBus : public SdBus {
public:
    [[nodiscard]] char const* Name() const override { return "sd-bus daemon"; }

    bool Prepare(std::string const& key) override {
        m_Bus.emplace(key);
        if (!m_Bus->Process().IsReady()) {
            std::fputs("sd-bus: left out, no bus daemon can be started\n", stderr);
        }
        return m_Bus->Process().IsReady();
    }
    [[nodiscard]] pid_t DaemonPid() const override { return m_Bus ? m_Bus->Process().Pid() : 0; }

    int Serve(std::string const& key, Waiting waiting) override {
        Bus bus = ConnectTo(key, true);
        if (bus == nullptr || !Succeeds(::sd_bus_request_name(bus.get(), kService, 0), "name")) {
            return 1;
        }
        ReportReady();
        return SdBusServer(std::move(bus)).Serve(waiting);
    }

    std::unique_ptr<Client> Connect(std::string const& key, Waiting waiting) override {
        Bus bus = ConnectTo(key, true);
        return bus != nullptr ? std::make_unique<SdBusClient>(std::move(bus), waiting, true) : nullptr;
    }

private:
    std::optional<BusDaemon> m_Bus;
};

}  // namespace

std::unique_ptr<Transport> MakePrivateSdBus() {
    return std::make_unique<PrivateSdBus>();
}

std::unique_ptr<Transport> MakeDaemonSdBus() {
    return std::make_unique<DaemonSdBus>();
}

}  // namespace Bench
