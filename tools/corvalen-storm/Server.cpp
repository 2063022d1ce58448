#include <cstdio>
#include <thread>
#include <unordered_map>

#include "Message.h"
#include "Roles.h"
#include "corvalen/platform/MessageQueue.h"

namespace Storm {

namespace {

constexpr int kLookMs = 20;

class Server : public System::RPC::RpcChannel {
public:
    Server(Board& board, char16_t const* channel) : RpcChannel(channel), m_Board(board) {
        m_PurgedEndpoints = board.deadEndpointCount.load();
    }

    void Serve() {
        auto& queue = System::Platform::MessageQueue::Current();
        while (PhaseOf(m_Board) != Phase::kEnd) {
            if (queue.Wait(kLookMs)) {
                System::Platform::Message message;
                while (queue.Peek(message)) {
                    queue.Dispatch(message);
                }
            }
            PurgeTheDead();
        }
    }

private:
    std::uint32_t OnRequest(std::uint32_t sender, std::uint32_t handle) override {
        m_Board.requestsHandled++;
        Message request;
        if (!ReadMessage(*this, handle, request) || request.kind != MessageKind::kRequest) {
            m_Board.wrongAtServer++;
            return 0;
        }
        if (request.dawdle != 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(request.dawdle));
        }
        if (request.number % 4 == 0) {
            Deliver(sender, request);
        }
        return Write(AnswerTo(request));
    }

    void OnNotify(std::uint32_t sender, std::uint32_t handle) override {
        m_Board.notificationsHandled++;
        Message notification;
        if (!ReadMessage(*this, handle, notification) || notification.kind != MessageKind::kNotification) {
            m_Board.wrongAtServer++;
            return;
        }
        std::uint32_t& last = m_LastNotification[sender];
        if (notification.number != last + 1) {
            m_Board.outOfOrder++;
            std::fprintf(stderr, "\nclient %u: notification %u came after %u\n", notification.client,
                         notification.number, last);
        }
        last = notification.number;
    }

    void Deliver(std::uint32_t sender, Message const& request) {
        std::uint32_t const handle = Write(DeliveryOf(request));
        if (handle != 0) {
            // A refusal disposes of the handle: the sender is dead or has not looked for long.
            static_cast<void>(Notify(sender, handle));
        }
    }

    // 0 when the pool is full, which the client counts as refused.
    std::uint32_t Write(Message const& message) {
        std::uint32_t handle = 0;
        if (WriteMessage(*this, message, handle) == WriteResult::kLost) {
            m_Board.wrongAtServer++;
            return 0;
        }
        return handle;
    }

    void PurgeTheDead() {
        std::uint32_t const count = m_Board.deadEndpointCount.load();
        while (m_PurgedEndpoints != count) {
            auto const at = m_PurgedEndpoints++ % m_Board.deadEndpoints.size();
            Lock();
            m_Board.purgedMeanwhile += PurgeHandles(0, m_Board.deadEndpoints[at].load());
            Unlock();
        }
    }

    Board& m_Board;
    std::uint32_t m_PurgedEndpoints;
    std::unordered_map<std::uint32_t, std::uint32_t> m_LastNotification;
};

}  // namespace

int RunServer(Board& board, Assignment const& assignment) {
    ErrorWatch const watch(board);
    {
        Server server(board, Wide(assignment.channel).c_str());
        if (int const error = server.OpenServer(kServerTitle); error != 0) {
            std::fprintf(stderr, "\nserver %u cannot open: %i\n", assignment.life, error);
            return 1;
        }
        board.readyServer = assignment.life;
        server.Serve();
        server.Close();
    }
    board.mappingsLeft += MappingsOf(assignment.channel);
    return 0;
}

}  // namespace Storm
