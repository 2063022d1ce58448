// A pair of Boost.Interprocess message queues.

#include <boost/interprocess/ipc/message_queue.hpp>
#include <cstring>

#include "bench/rpc/Transport.h"

namespace Bench {

namespace {

using boost::interprocess::create_only;
using boost::interprocess::message_queue;
using boost::interprocess::open_only;

constexpr std::size_t kQueueLength = 256;
constexpr std::size_t kMaxMessage = 1 + kMaxPayload;
constexpr unsigned kPriority = 0;
// The first byte of what a client sends.
constexpr char kRequest = 0;
constexpr char kNotification = 1;

std::size_t Await(message_queue& queue, void* to, std::size_t room, Waiting waiting) {
    std::size_t size = 0;
    unsigned priority = 0;
    if (waiting == Waiting::kSleeping) {
        queue.receive(to, room, size, priority);
    } else {
        while (!queue.try_receive(to, room, size, priority)) {
            PausePolling();
        }
    }
    return size;
}

class BoostClient : public Client {
public:
    BoostClient(std::string const& key, Waiting waiting)
        : m_Waiting(waiting),
          m_Out(open_only, (key + ".in").c_str()),
          m_In(open_only, (key + ".out").c_str()) {}

    Answer Ask(std::uint64_t sequence, std::size_t size) override {
        Put(kRequest, sequence, size);
        m_Out.send(m_Buffer, size + 1, kPriority);
        Answer answer{};
        Await(m_In, &answer, sizeof answer, m_Waiting);
        return answer;
    }

    bool Notify(std::uint64_t sequence, std::size_t size) override {
        Put(kNotification, sequence, size);
        if (m_Waiting == Waiting::kPolling) {
            return m_Out.try_send(m_Buffer, size + 1, kPriority);
        }
        m_Out.send(m_Buffer, size + 1, kPriority);
        return true;
    }

private:
    void Put(char kind, std::uint64_t sequence, std::size_t size) {
        m_Buffer[0] = kind;
        Fill(m_Buffer + 1, sequence, size);
    }

    Waiting m_Waiting;
    message_queue m_Out;
    message_queue m_In;
    char m_Buffer[kMaxMessage];
};

// The names of both queues, for as long as the server runs.
class Names {
public:
    explicit Names(std::string const& key) : in(key + ".in"), out(key + ".out") {}
    ~Names() {
        message_queue::remove(in.c_str());
        message_queue::remove(out.c_str());
    }
    Names(Names const&) = delete;
    Names& operator=(Names const&) = delete;

    std::string const in;
    std::string const out;
};

class BoostQueue : public Transport {
public:
    [[nodiscard]] char const* Name() const override { return "Boost queue"; }
    [[nodiscard]] bool CanPoll() const override { return true; }
    [[nodiscard]] bool CanNotify() const override { return true; }

    int Serve(std::string const& key, Waiting waiting) override {
        Names const names(key);
        message_queue in(create_only, names.in.c_str(), kQueueLength, kMaxMessage);
        message_queue out(create_only, names.out.c_str(), kQueueLength, sizeof(Answer));
        ReportReady();
        static char buffer[kMaxMessage];
        Answers answers;
        for (;;) {
            std::size_t const size = Await(in, buffer, sizeof buffer, waiting);
            if (buffer[0] == kNotification) {
                answers.HandleNotification();
                continue;
            }
            Answer const answer = answers.To(buffer + 1, size - 1);
            out.send(&answer, sizeof answer, kPriority);
            if (answer.sequence == kStop) {
                return 0;
            }
        }
    }

    std::unique_ptr<Client> Connect(std::string const& key, Waiting waiting) override {
        return std::make_unique<BoostClient>(key, waiting);
    }
};

}  // namespace

std::unique_ptr<Transport> MakeBoostQueue() {
    return std::make_unique<BoostQueue>();
}

}  // namespace Bench
