// iceoryx: its request and response ports for requests, publisher and subscriber for notifications, a WaitSet
// to wait on them, and its daemon, which hands out the memory.

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "bench/rpc/Spawn.h"
#include "bench/rpc/Transport.h"
#include "iceoryx_hoofs/log/logmanager.hpp"
#include "iceoryx_posh/popo/untyped_client.hpp"
#include "iceoryx_posh/popo/untyped_publisher.hpp"
#include "iceoryx_posh/popo/untyped_server.hpp"
#include "iceoryx_posh/popo/untyped_subscriber.hpp"
#include "iceoryx_posh/popo/wait_set.hpp"
#include "iceoryx_posh/runtime/posh_runtime.hpp"

namespace Bench {

namespace {

using iox::mepoo::ChunkHeader;
using iox::popo::RequestHeader;

iox::capro::ServiceDescription Service(std::string const& key, char const* event) {
    return {"bench", iox::capro::IdString_t(iox::cxx::TruncateToCapacity, key),
            iox::capro::IdString_t(iox::cxx::TruncateToCapacity, event)};
}

void InitRuntime(std::string const& name) {
    iox::log::LogManager::GetLogManager().SetDefaultLogLevel(iox::log::LogLevel::kError,
                                                             iox::log::LogLevelOutput::kHideLogLevel);
    iox::runtime::PoshRuntime::initRuntime(iox::RuntimeName_t(iox::cxx::TruncateToCapacity, name));
}

// The daemon makes connections in its own rhythm, and there is no event for it.
template <typename Condition>
void AwaitConnection(Condition const& isConnected) {
    while (!isConnected()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

iox::popo::PublisherOptions Lossless() {
    iox::popo::PublisherOptions options;
    options.subscriberTooSlowPolicy = iox::popo::ConsumerTooSlowPolicy::WAIT_FOR_CONSUMER;
    return options;
}

iox::popo::SubscriberOptions Blocking() {
    iox::popo::SubscriberOptions options;
    options.queueFullPolicy = iox::popo::QueueFullPolicy::BLOCK_PRODUCER;
    return options;
}

class IceoryxClient : public Client {
public:
    IceoryxClient(std::string const& key, Waiting waiting)
        : m_Waiting(waiting),
          m_Requests(Service(key, "requests")),
          m_Notifications(Service(key, "notifications"), Lossless()) {
        m_WaitSet.attachState(m_Requests, iox::popo::ClientState::HAS_RESPONSE).or_else([](auto) {
            std::fputs("iceoryx: no room in the wait set\n", stderr);
        });
        AwaitConnection(
            [this] { return m_Requests.getConnectionState() == iox::ConnectionState::CONNECTED; });
        AwaitConnection([this] { return m_Notifications.hasSubscribers(); });
    }

    Answer Ask(std::uint64_t sequence, std::size_t size) override {
        Answer answer{};
        bool isSent = false;
        m_Requests.loan(static_cast<std::uint32_t>(size), alignof(std::uint64_t))
            .and_then([&](void* payload) {
                Fill(payload, sequence, size);
                m_Requests.send(payload).and_then([&] { isSent = true; });
            });
        while (isSent && !Take(answer)) {
            if (m_Waiting == Waiting::kSleeping) {
                m_WaitSet.wait();
            } else {
                PausePolling();
            }
        }
        return answer;
    }

    bool Notify(std::uint64_t sequence, std::size_t size) override {
        bool isSent = false;
        m_Notifications.loan(static_cast<std::uint32_t>(size)).and_then([&](void* payload) {
            Fill(payload, sequence, size);
            m_Notifications.publish(payload);
            isSent = true;
        });
        return isSent;
    }

private:
    bool Take(Answer& answer) {
        bool isTaken = false;
        m_Requests.take().and_then([&](void const* payload) {
            std::memcpy(&answer, payload, sizeof answer);
            m_Requests.releaseResponse(payload);
            isTaken = true;
        });
        return isTaken;
    }

    Waiting m_Waiting;
    iox::popo::UntypedClient m_Requests;
    iox::popo::UntypedPublisher m_Notifications;
    iox::popo::WaitSet<1> m_WaitSet;
};

class IceoryxServer {
public:
    explicit IceoryxServer(std::string const& key)
        : m_Requests(Service(key, "requests")), m_Notifications(Service(key, "notifications"), Blocking()) {}

    void Serve(Waiting waiting) {
        iox::popo::WaitSet<2> waitSet;
        auto refuse = [](auto) {
            std::fputs("iceoryx: no room in the wait set\n", stderr);
        };
        waitSet.attachState(m_Requests, iox::popo::ServerState::HAS_REQUEST).or_else(refuse);
        waitSet.attachState(m_Notifications, iox::popo::SubscriberState::HAS_DATA).or_else(refuse);
        while (m_IsRunning) {
            if (waiting == Waiting::kSleeping) {
                waitSet.wait();
                TakeAll();
            } else if (!TakeAll()) {
                PausePolling();
            }
        }
    }

private:
    // Whether there was anything.
    bool TakeAll() {
        bool isAny = false;
        while (TakeRequest() || TakeNotification()) {
            isAny = true;
        }
        return isAny;
    }

    bool TakeRequest() {
        bool isTaken = false;
        m_Requests.take().and_then([&](void const* payload) {
            Reply(payload);
            m_Requests.releaseRequest(payload);
            isTaken = true;
        });
        return isTaken;
    }

    bool TakeNotification() {
        bool isTaken = false;
        m_Notifications.take().and_then([&](void const* payload) {
            m_Answers.HandleNotification();
            m_Notifications.release(payload);
            isTaken = true;
        });
        return isTaken;
    }

    void Reply(void const* request) {
        Answer const answer = m_Answers.To(request, ChunkHeader::fromUserPayload(request)->userPayloadSize());
        m_Requests.loan(RequestHeader::fromPayload(request), sizeof answer, alignof(Answer))
            .and_then([&](void* payload) {
                std::memcpy(payload, &answer, sizeof answer);
                m_Requests.send(payload).or_else(
                    [](auto) { std::fputs("iceoryx: answer not sent\n", stderr); });
            })
            .or_else([](auto) { std::fputs("iceoryx: no memory for an answer\n", stderr); });
        m_IsRunning = answer.sequence != kStop;
    }

    Answers m_Answers;
    iox::popo::UntypedServer m_Requests;
    iox::popo::UntypedSubscriber m_Notifications;
    bool m_IsRunning = true;
};

// One for the whole run: the runtime of the client's process does not survive its daemon.
Daemon const& RouDi() {
    static char const* const s_Arguments[] = {"iox-roudi", "--log-level", "error", nullptr};
    static Daemon const s_Daemon("iox-roudi", s_Arguments, "RouDi is ready for clients");
    return s_Daemon;
}

class Iceoryx : public Transport {
public:
    [[nodiscard]] char const* Name() const override { return "iceoryx"; }
    [[nodiscard]] bool CanPoll() const override { return true; }
    [[nodiscard]] bool CanNotify() const override { return true; }

    bool Prepare(std::string const& key) override {
        if (!RouDi().IsReady()) {
            std::fputs("iceoryx: left out, its daemon cannot be started\n", stderr);
            return false;
        }
        m_Daemon = RouDi().Pid();
        static bool const s_IsInitialized = (InitRuntime(key + "_client"), true);
        return s_IsInitialized;
    }
    [[nodiscard]] pid_t DaemonPid() const override { return m_Daemon; }

    int Serve(std::string const& key, Waiting waiting) override {
        InitRuntime(key);
        IceoryxServer server(key);
        ReportReady();
        server.Serve(waiting);
        return 0;
    }

    std::unique_ptr<Client> Connect(std::string const& key, Waiting waiting) override {
        return std::make_unique<IceoryxClient>(key, waiting);
    }

private:
    pid_t m_Daemon = 0;
};

}  // namespace

std::unique_ptr<Transport> MakeIceoryx() {
    return std::make_unique<Iceoryx>();
}

}  // namespace Bench
