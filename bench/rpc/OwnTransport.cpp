// This library: both sides wait in it, or poll its queue.

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "bench/rpc/Transport.h"
#include "corvalen/platform/MessageQueue.h"
#include "corvalen/rpc/RpcChannel.h"

namespace Bench {

namespace {

using System::Platform::Message;
using System::Platform::MessageQueue;

constexpr std::uint32_t kLimitMs = 60'000;

class Channel : public System::RPC::RpcChannel {
public:
    explicit Channel(std::string const& key) : RpcChannel(std::u16string(key.begin(), key.end()).c_str()) {}
    ~Channel() override {
        if (IsOpen()) {
            Close();
        }
    }

    std::uint32_t OnRequest(std::uint32_t, std::uint32_t handle) override {
        Answer const answer = m_Answers.To(HandleData(handle), HandleSize(handle));
        isRunning = answer.sequence != kStop;
        std::uint32_t const reply = NewHandle(sizeof answer);
        std::memcpy(HandleData(reply), &answer, sizeof answer);
        return reply;
    }
    void OnNotify(std::uint32_t, std::uint32_t) override { m_Answers.HandleNotification(); }

    bool isRunning = true;

private:
    Answers m_Answers;
};

class OwnClient : public Client {
public:
    explicit OwnClient(std::string const& key) : m_Channel(key) {
        if (int const error = m_Channel.OpenClient(); error != 0) {
            std::fprintf(stderr, "open client: %s\n", std::strerror(error));
            return;
        }
        m_Server = m_Channel.FindServer(u"bench");
    }

    Answer Ask(std::uint64_t sequence, std::size_t size) override {
        std::uint32_t reply = 0;
        Answer answer{};
        if (m_Channel.Request(m_Server, Payload(sequence, size), &reply, kLimitMs) == 0) {
            std::memcpy(&answer, m_Channel.HandleData(reply), sizeof answer);
        }
        m_Channel.DisposeHandle(reply);
        return answer;
    }

    bool Notify(std::uint64_t sequence, std::size_t size) override {
        std::uint32_t const handle = Payload(sequence, size);
        return handle != 0 && m_Channel.Notify(m_Server, handle) == 0;
    }

private:
    std::uint32_t Payload(std::uint64_t sequence, std::size_t size) {
        std::uint32_t const handle = m_Channel.NewHandle(static_cast<std::uint32_t>(size));
        if (void* const data = m_Channel.HandleData(handle)) {
            Fill(data, sequence, size);
        }
        return handle;
    }

    Channel m_Channel;
    std::uint32_t m_Server = 0;
};

class Own : public Transport {
public:
    [[nodiscard]] char const* Name() const override { return "corvalen"; }
    [[nodiscard]] bool IsOwn() const override { return true; }
    [[nodiscard]] bool CanPoll() const override { return true; }
    [[nodiscard]] bool CanNotify() const override { return true; }

    int Serve(std::string const& key, Waiting waiting) override {
        Channel channel(key);
        if (int const error = channel.OpenServer(u"bench"); error != 0) {
            std::fprintf(stderr, "open server: %s\n", std::strerror(error));
            return 1;
        }
        ReportReady();
        MessageQueue& queue = MessageQueue::Current();
        Message message;
        while (channel.isRunning) {
            if (waiting == Waiting::kSleeping) {
                queue.Wait();
            } else {
                PausePolling();
            }
            while (queue.Peek(message)) {
                queue.Dispatch(message);
            }
        }
        return 0;
    }

    std::unique_ptr<Client> Connect(std::string const& key, Waiting) override {
        return std::make_unique<OwnClient>(key);
    }
};

}  // namespace

std::unique_ptr<Transport> MakeOwn() {
    return std::make_unique<Own>();
}

}  // namespace Bench
