// ZeroMQ over its ipc transport: REQ and REP for requests, PUSH and PULL for notifications.

#include <zmq.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "bench/rpc/Transport.h"

namespace Bench {

namespace {

std::string PathOf(std::string const& key, char const* suffix) {
    return "/tmp/" + key + suffix;
}

std::string AddressOf(std::string const& key, char const* suffix) {
    return "ipc://" + PathOf(key, suffix);
}

struct Closing {
    void operator()(void* socket) const { ::zmq_close(socket); }
};
using Socket = std::unique_ptr<void, Closing>;

class Context {
public:
    Context() : m_Context(::zmq_ctx_new()) {}
    ~Context() { ::zmq_ctx_term(m_Context); }
    Context(Context const&) = delete;
    Context& operator=(Context const&) = delete;

    [[nodiscard]] Socket Open(int kind) const { return Socket(::zmq_socket(m_Context, kind)); }
    // Ends the waits of its sockets.
    void Shutdown() const { ::zmq_ctx_shutdown(m_Context); }

private:
    void* m_Context;
};

class Frame {
public:
    Frame() { ::zmq_msg_init(&m_Message); }
    explicit Frame(std::size_t size) {
        if (::zmq_msg_init_size(&m_Message, size) != 0) {
            std::abort();
        }
    }
    ~Frame() { ::zmq_msg_close(&m_Message); }
    Frame(Frame const&) = delete;
    Frame& operator=(Frame const&) = delete;

    [[nodiscard]] void* Data() { return ::zmq_msg_data(&m_Message); }
    [[nodiscard]] std::size_t Size() const { return ::zmq_msg_size(&m_Message); }
    bool Send(Socket const& socket, int flags) {
        return ::zmq_msg_send(&m_Message, socket.get(), flags) >= 0;
    }
    bool Receive(Socket const& socket, int flags) {
        return ::zmq_msg_recv(&m_Message, socket.get(), flags) >= 0;
    }
    // False once the context shuts down.
    bool Await(Socket const& socket, Waiting waiting) {
        if (waiting == Waiting::kSleeping) {
            return Receive(socket, 0);
        }
        while (!Receive(socket, ZMQ_DONTWAIT)) {
            if (errno != EAGAIN) {
                return false;
            }
            PausePolling();
        }
        return true;
    }

private:
    zmq_msg_t m_Message;
};

class ZeroMqClient : public Client {
public:
    ZeroMqClient(std::string const& key, Waiting waiting)
        : m_Waiting(waiting), m_Requests(m_Context.Open(ZMQ_REQ)), m_Notifications(m_Context.Open(ZMQ_PUSH)) {
        Connect(m_Requests, AddressOf(key, ".req"));
        Connect(m_Notifications, AddressOf(key, ".push"));
    }

    Answer Ask(std::uint64_t sequence, std::size_t size) override {
        Frame request(size);
        Fill(request.Data(), sequence, size);
        Frame reply;
        Answer answer{};
        if (request.Send(m_Requests, 0) && reply.Await(m_Requests, m_Waiting) &&
            reply.Size() == sizeof answer) {
            std::memcpy(&answer, reply.Data(), sizeof answer);
        }
        return answer;
    }

    bool Notify(std::uint64_t sequence, std::size_t size) override {
        Frame notification(size);
        Fill(notification.Data(), sequence, size);
        return notification.Send(m_Notifications, m_Waiting == Waiting::kPolling ? ZMQ_DONTWAIT : 0);
    }

private:
    static void Connect(Socket const& socket, std::string const& address) {
        int const none = 0;
        ::zmq_setsockopt(socket.get(), ZMQ_LINGER, &none, sizeof none);
        if (::zmq_connect(socket.get(), address.c_str()) != 0) {
            std::perror("zmq_connect");
        }
    }

    Waiting m_Waiting;
    Context m_Context;
    Socket m_Requests;
    Socket m_Notifications;
};

class ZeroMqServer {
public:
    explicit ZeroMqServer(std::string const& key)
        : m_Requests(m_Context.Open(ZMQ_REP)), m_Notifications(m_Context.Open(ZMQ_PULL)) {
        m_IsBound = ::zmq_bind(m_Requests.get(), AddressOf(key, ".req").c_str()) == 0 &&
                    ::zmq_bind(m_Notifications.get(), AddressOf(key, ".push").c_str()) == 0;
    }

    [[nodiscard]] bool IsBound() const { return m_IsBound; }

    // A thread for each socket: zmq_poll over both would cost every request a system call more.
    void ServeSleeping() {
        std::thread taker([this] {
            for (Frame frame; frame.Receive(m_Notifications, 0);) {
                m_Answers.HandleNotification();
            }
            m_Notifications.reset();
        });
        for (Frame frame; frame.Receive(m_Requests, 0) && Reply(frame);) {
        }
        m_Requests.reset();
        m_Context.Shutdown();
        taker.join();
    }

    void ServePolling() {
        Frame frame;
        for (bool isRunning = true; isRunning;) {
            if (frame.Receive(m_Requests, ZMQ_DONTWAIT)) {
                isRunning = Reply(frame);
            } else if (frame.Receive(m_Notifications, ZMQ_DONTWAIT)) {
                m_Answers.HandleNotification();
            } else {
                PausePolling();
            }
        }
    }

private:
    bool Reply(Frame& request) {
        Answer const answer = m_Answers.To(request.Data(), request.Size());
        Frame reply(sizeof answer);
        std::memcpy(reply.Data(), &answer, sizeof answer);
        return reply.Send(m_Requests, 0) && answer.sequence != kStop;
    }

    Answers m_Answers;
    Context m_Context;
    Socket m_Requests;
    Socket m_Notifications;
    bool m_IsBound = false;
};

class ZeroMq : public Transport {
public:
    [[nodiscard]] char const* Name() const override { return "ZeroMQ"; }
    [[nodiscard]] bool CanPoll() const override { return true; }
    [[nodiscard]] bool CanNotify() const override { return true; }

    int Serve(std::string const& key, Waiting waiting) override {
        ZeroMqServer server(key);
        if (!server.IsBound()) {
            std::perror("zmq_bind");
            return 1;
        }
        ReportReady();
        if (waiting == Waiting::kPolling) {
            server.ServePolling();
        } else {
            server.ServeSleeping();
        }
        // The library leaves them behind.
        std::remove(PathOf(key, ".req").c_str());
        std::remove(PathOf(key, ".push").c_str());
        return 0;
    }

    std::unique_ptr<Client> Connect(std::string const& key, Waiting waiting) override {
        return std::make_unique<ZeroMqClient>(key, waiting);
    }
};

}  // namespace

std::unique_ptr<Transport> MakeZeroMq() {
    return std::make_unique<ZeroMq>();
}

}  // namespace Bench
