// A client of the demo: hands in every message of a file several times, checks each receipt, and waits for
// each delivery. It reports on its standard output: "progress DONE" now and then, and at the end "result
// REQUESTS NOTIFICATIONS MISMATCHES P50 P99" with the round trips' times in tenths of a microsecond.
//
//   message-client CHANNEL MESSAGES ROUNDS

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "common/Message.h"
#include "common/MessageFile.h"
#include "common/Outgoing.h"
#include "corvalen/platform/MessageQueue.h"
#include "corvalen/rpc/RpcChannel.h"
#include "corvalen/system/Framework.h"

namespace {

using Clock = std::chrono::steady_clock;
using System::Platform::Message;
using System::Platform::MessageQueue;

class MessageClient : public System::RPC::RpcChannel {
public:
    explicit MessageClient(char16_t const* name) : RpcChannel(name) {}
    ~MessageClient() override {
        if (IsOpen()) {
            Close();
        }
    }

    /// Opens the channel and finds the centre.
    bool Connect() {
        int const error = OpenClient();
        if (error != 0) {
            std::fprintf(stderr, "cannot open the channel: %s\n", std::strerror(error));
            return false;
        }
        m_Centre = FindServer(Demo::kCentreTitle);
        return m_Centre != 0;
    }

    /// Hands in one message and checks what comes back for it.
    void Send(Demo::TextMessage message) {
        constexpr unsigned kLimitMs = 60000;
        message.number = m_Requests++;
        std::uint32_t const handle = Demo::Pack(*this, message);
        std::uint32_t answer = 0;
        auto const begin = Clock::now();
        int const error = Request(m_Centre, handle, &answer, kLimitMs);
        m_RoundTrips.push_back(Clock::now() - begin);
        if (error != 0) {
            std::fprintf(stderr, "message %u was not taken: %s\n", message.number, std::strerror(error));
        }
        if (error != 0 || !Matches(message, Demo::Unpack<Demo::Receipt>(*this, answer))) {
            ++m_Mismatches;
        }
        DisposeHandle(answer);
        if (m_Requests % kTakeEach == 0) {
            TakeMessages();
        }
    }

    /// Waits until every message has been delivered; what has not been after some time is a mismatch.
    void AwaitDeliveries() {
        auto const end = Clock::now() + std::chrono::seconds(60);
        while (m_Notifications < m_Requests && Clock::now() < end) {
            MessageQueue::Current().Wait(100);
            TakeMessages();
        }
        m_Mismatches += m_Requests - m_Notifications;
    }

    void ReportProgress() const { std::printf("progress %u\n", m_Requests); }

    /// Writes the closing line; whether all was well.
    bool ReportResult() {
        std::sort(m_RoundTrips.begin(), m_RoundTrips.end());
        std::printf("result %u %u %u %ld %ld\n", m_Requests, m_Notifications, m_Mismatches, TenthsAt(0.50),
                    TenthsAt(0.99));
        return m_Mismatches == 0;
    }

private:
    static constexpr unsigned kTakeEach = 8;  // requests between two looks for deliveries

    std::uint32_t OnRequest(std::uint32_t, std::uint32_t) override { return 0; }

    // Deliveries come in the order of our messages, each one once.
    void OnNotify(std::uint32_t, std::uint32_t handle) override {
        if (Demo::Unpack<Demo::Delivery>(*this, handle).number != m_Notifications++) {
            ++m_Mismatches;
        }
    }

    static bool Matches(Demo::TextMessage const& sent, Demo::Receipt const& receipt) {
        return receipt.number == sent.number && receipt.characters == Demo::CountCharacters(sent.text) &&
               receipt.checksum == Demo::Checksum(sent.text) &&
               Demo::FromOutgoing(receipt.form, receipt.outgoing) == sent.text;
    }

    static void TakeMessages() {
        MessageQueue& queue = MessageQueue::Current();
        Message message;
        while (queue.Peek(message)) {
            queue.Dispatch(message);
        }
    }

    [[nodiscard]] long TenthsAt(double part) const {
        auto const index = static_cast<std::size_t>(part * static_cast<double>(m_RoundTrips.size()));
        return m_RoundTrips.empty() ? 0
                                    : static_cast<long>(m_RoundTrips[index] / std::chrono::nanoseconds(100));
    }

    std::uint32_t m_Centre = 0;
    std::uint32_t m_Requests = 0;
    std::uint32_t m_Notifications = 0;
    std::uint32_t m_Mismatches = 0;
    std::vector<Clock::duration> m_RoundTrips;
};

bool Work(std::string const& channel, std::vector<Demo::TextMessage> const& messages, int rounds) {
    MessageClient client(std::u16string(channel.begin(), channel.end()).c_str());
    if (!client.Connect()) {
        std::fputs("there is no message centre\n", stderr);
        return false;
    }
    for (int round = 0; round < rounds; ++round) {
        for (Demo::TextMessage const& message : messages) {
            client.Send(message);
        }
        client.ReportProgress();
    }
    client.AwaitDeliveries();
    return client.ReportResult();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: message-client CHANNEL MESSAGES ROUNDS\n", stderr);
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::vector<Demo::TextMessage> const messages = Demo::ReadMessageFile(argv[2]);
    if (messages.empty()) {
        std::fprintf(stderr, "no messages in %s\n", argv[2]);
        return 2;
    }
    InitFramework();
    bool const good = Work(argv[1], messages, std::atoi(argv[3]));
    ExitFramework();
    return good ? 0 : 1;
}
