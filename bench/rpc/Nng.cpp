// nng over its ipc transport: request and reply, and push and pull for notifications.

#include <nng/nng.h>
#include <nng/protocol/pipeline0/pull.h>
#include <nng/protocol/pipeline0/push.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <thread>

#include "bench/rpc/Transport.h"

namespace Bench {

namespace {

std::string AddressOf(std::string const& key, char const* suffix) {
    return "ipc:///tmp/" + key + suffix;
}

// Prints what failed.
bool Succeeds(int error, char const* what) {
    if (error != 0) {
        std::fprintf(stderr, "nng %s: %s\n", what, ::nng_strerror(error));
    }
    return error == 0;
}

nng_msg* NewMessage(std::size_t size) {
    nng_msg* message = nullptr;
    if (::nng_msg_alloc(&message, size) != 0) {
        std::abort();
    }
    return message;
}

// The message goes with a success.
bool Send(nng_socket socket, nng_msg* message, int flags) {
    if (::nng_sendmsg(socket, message, flags) != 0) {
        ::nng_msg_free(message);
        return false;
    }
    return true;
}

// Null if the socket is closed.
nng_msg* Await(nng_socket socket, Waiting waiting) {
    nng_msg* message = nullptr;
    int const flags = waiting == Waiting::kPolling ? NNG_FLAG_NONBLOCK : 0;
    for (int error = ::nng_recvmsg(socket, &message, flags); error != 0;
         error = ::nng_recvmsg(socket, &message, flags)) {
        if (error != NNG_EAGAIN) {
            return nullptr;
        }
        PausePolling();
    }
    return message;
}

class NngClient : public Client {
public:
    NngClient(std::string const& key, Waiting waiting) : m_Waiting(waiting) {
        m_IsConnected =
            Succeeds(::nng_req0_open(&m_Requests), "open") &&
            Succeeds(::nng_push0_open(&m_Notifications), "open") &&
            Succeeds(::nng_dial(m_Requests, AddressOf(key, ".req").c_str(), nullptr, 0), "dial") &&
            Succeeds(::nng_dial(m_Notifications, AddressOf(key, ".push").c_str(), nullptr, 0), "dial");
    }
    ~NngClient() override {
        ::nng_close(m_Notifications);
        ::nng_close(m_Requests);
    }

    [[nodiscard]] bool IsConnected() const { return m_IsConnected; }

    Answer Ask(std::uint64_t sequence, std::size_t size) override {
        nng_msg* const request = NewMessage(size);
        Fill(::nng_msg_body(request), sequence, size);
        Answer answer{};
        nng_msg* const reply = Send(m_Requests, request, 0) ? Await(m_Requests, m_Waiting) : nullptr;
        if (reply != nullptr) {
            std::memcpy(&answer, ::nng_msg_body(reply), sizeof answer);
            ::nng_msg_free(reply);
        }
        return answer;
    }

    bool Notify(std::uint64_t sequence, std::size_t size) override {
        nng_msg* const notification = NewMessage(size);
        Fill(::nng_msg_body(notification), sequence, size);
        return Send(m_Notifications, notification, m_Waiting == Waiting::kPolling ? NNG_FLAG_NONBLOCK : 0);
    }

private:
    Waiting m_Waiting;
    nng_socket m_Requests = NNG_SOCKET_INITIALIZER;
    nng_socket m_Notifications = NNG_SOCKET_INITIALIZER;
    bool m_IsConnected = false;
};

class NngServer {
public:
    explicit NngServer(std::string const& key) {
        m_IsListening =
            Succeeds(::nng_rep0_open(&m_Requests), "open") &&
            Succeeds(::nng_pull0_open(&m_Notifications), "open") &&
            Succeeds(::nng_pipe_notify(m_Requests, NNG_PIPE_EV_REM_POST, &NngServer::OnGone, this),
                     "notify") &&
            Succeeds(::nng_listen(m_Requests, AddressOf(key, ".req").c_str(), nullptr, 0), "listen") &&
            Succeeds(::nng_listen(m_Notifications, AddressOf(key, ".push").c_str(), nullptr, 0), "listen");
    }

    [[nodiscard]] bool IsListening() const { return m_IsListening; }

    // A thread for each socket: nng has no wait for several.
    void ServeSleeping() {
        std::thread taker([this] {
            while (nng_msg* const message = Await(m_Notifications, Waiting::kSleeping)) {
                m_Answers.HandleNotification();
                ::nng_msg_free(message);
            }
        });
        while (nng_msg* const request = Await(m_Requests, Waiting::kSleeping)) {
            if (!Reply(request)) {
                break;
            }
        }
        AwaitClientGone();
        ::nng_close(m_Notifications);
        taker.join();
        ::nng_close(m_Requests);
    }

    void ServePolling() {
        for (bool isRunning = true; isRunning;) {
            nng_msg* message = nullptr;
            if (::nng_recvmsg(m_Requests, &message, NNG_FLAG_NONBLOCK) == 0) {
                isRunning = Reply(message);
            } else if (::nng_recvmsg(m_Notifications, &message, NNG_FLAG_NONBLOCK) == 0) {
                m_Answers.HandleNotification();
                ::nng_msg_free(message);
            } else {
                PausePolling();
            }
        }
        AwaitClientGone();
        ::nng_close(m_Notifications);
        ::nng_close(m_Requests);
    }

private:
    static void OnGone(nng_pipe, nng_pipe_ev, void* self) {
        static_cast<NngServer*>(self)->m_ClientIsGone.set_value();
    }

    // A socket that closes drops what it has not sent yet, so that the last answer would be lost.
    void AwaitClientGone() { m_ClientIsGone.get_future().wait(); }

    bool Reply(nng_msg* request) {
        Answer const answer = m_Answers.To(::nng_msg_body(request), ::nng_msg_len(request));
        ::nng_msg_free(request);
        nng_msg* const reply = NewMessage(sizeof answer);
        std::memcpy(::nng_msg_body(reply), &answer, sizeof answer);
        return Send(m_Requests, reply, 0) && answer.sequence != kStop;
    }

    Answers m_Answers;
    std::promise<void> m_ClientIsGone;
    nng_socket m_Requests = NNG_SOCKET_INITIALIZER;
    nng_socket m_Notifications = NNG_SOCKET_INITIALIZER;
    bool m_IsListening = false;
};

class Nng : public Transport {
public:
    [[nodiscard]] char const* Name() const override { return "nng"; }
    [[nodiscard]] bool CanPoll() const override { return true; }
    [[nodiscard]] bool CanNotify() const override { return true; }

    int Serve(std::string const& key, Waiting waiting) override {
        NngServer server(key);
        if (!server.IsListening()) {
            return 1;
        }
        ReportReady();
        if (waiting == Waiting::kPolling) {
            server.ServePolling();
        } else {
            server.ServeSleeping();
        }
        return 0;
    }

    std::unique_ptr<Client> Connect(std::string const& key, Waiting waiting) override {
        auto client = std::make_unique<NngClient>(key, waiting);
        return client->IsConnected() ? std::move(client) : nullptr;
    }
};

}  // namespace

std::unique_ptr<Transport> MakeNng() {
    return std::make_unique<Nng>();
}

}  // namespace Bench
