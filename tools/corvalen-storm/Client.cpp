#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <random>

#include "Message.h"
#include "Roles.h"
#include "corvalen/platform/MessageQueue.h"

namespace Storm {

namespace {

// Far more than any answer takes, and less than the storm waits for its clients.
constexpr std::uint32_t kPatienceMs = 10000;
constexpr std::uint32_t kDawdleMs = 8;

class Client : public System::RPC::RpcChannel {
public:
    Client(Board& board, Assignment const& assignment)
        : RpcChannel(Wide(assignment.channel).c_str()),
          m_Board(board),
          m_Slot(board.clients[assignment.slot]),
          m_Random(assignment.seed) {
        m_Next.client = assignment.slot;
        m_Next.life = assignment.life;
    }

    void Run() {
        std::uint32_t deadServer = 0;
        while (PassGate(deadServer)) {
            if (FindTheServer()) {
                while (PhaseOf(m_Board) == Phase::kRun && ExchangeOne()) {
                    TakeMessages();
                }
                GiveBackKept();
                // What the dead server has posted names handles of its pool.
                TakeMessages();
            }
            deadServer = m_ServerNumber;
        }
        ServePhases();
    }

private:
    // Waits for a server other than `dead`; false when the storm is over.
    bool PassGate(std::uint32_t dead) {
        while (PhaseOf(m_Board) == Phase::kRun) {
            m_ServerNumber = m_Board.gate.Get();
            if (m_ServerNumber == 0 || m_ServerNumber == dead) {
                m_Slot.isAtGate = 1;
                m_Board.gate.WaitWhile(m_ServerNumber);
                continue;
            }
            // The gate may have been closed since we looked; who closes it looks at this word afterwards.
            m_Slot.isAtGate = 0;
            if (m_Board.gate.Get() == m_ServerNumber) {
                return true;
            }
        }
        return false;
    }

    // An open or a search fails rightly only if the server has been killed.
    bool FindTheServer() {
        int const error = IsOpen() ? 0 : OpenClient();
        if (error == 0) {
            m_Slot.endpoint = LocalEndPoint();
            m_Server = FindServer(kServerTitle);
            m_LastNotification = 0;
        }
        bool const isFound = error == 0 && m_Server != 0;
        if (!isFound && !IsServerKilled()) {
            Wrong("finds no server", error);
        }
        return isFound;
    }

    // False if the server is gone.
    bool ExchangeOne() {
        switch (m_Random() % 8) {
            case 0:
            case 1:
                return SendNotification();
            case 2:
                return SendRequest(true, 0);
            default:
                return SendRequest(false, m_Random() % 300 == 0 ? kDawdleMs : 0);
        }
    }

    std::uint32_t AnySize() {
        bool const isLarge = m_Random() % 64 == 0;
        return static_cast<std::uint32_t>(m_Random() % (isLarge ? 20000 : 1500));
    }

    bool SendRequest(bool keepsAnswer, std::uint32_t dawdleMs) {
        m_Next.kind = MessageKind::kRequest;
        ++m_Next.number;
        m_Next.dawdle = dawdleMs;
        m_Next.size = AnySize();
        m_Slot.sent++;
        std::uint32_t handle = 0;
        WriteResult const written = WriteMessage(*this, m_Next, handle);
        if (written != WriteResult::kWritten) {
            written == WriteResult::kNoRoom ? static_cast<void>(m_Slot.refused++)
                                            : Wrong("lost its handle", 0);
            return true;
        }
        // Who lets the server dawdle does not wait for it.
        std::uint32_t const limit = dawdleMs != 0 ? dawdleMs / 4 : kPatienceMs;
        std::int64_t const begin = NowNs();
        std::uint32_t answer = 0;
        int const error = Request(m_Server, handle, &answer, limit);
        if (error == 0) {
            TakeAnswer(answer, keepsAnswer);
            return true;
        }
        return CountFailure(error, begin, dawdleMs != 0);
    }

    void TakeAnswer(std::uint32_t answer, bool keeps) {
        if (answer == 0) {
            m_Slot.refused++;
            return;
        }
        if (!IsRightAnswer(answer)) {
            Wrong("got a wrong answer", 0);
        } else {
            m_Slot.answered++;
        }
        if (keeps) {
            std::swap(m_Kept[m_Random() % m_Kept.size()], answer);
        }
        DisposeHandle(answer);
    }

    bool IsRightAnswer(std::uint32_t answer) {
        Message read;
        return ReadMessage(*this, answer, read) && read == AnswerTo(m_Next);
    }

    bool CountFailure(int error, std::int64_t begin, bool wasImpatient) {
        switch (error) {
            case ETIMEDOUT:
                wasImpatient ? static_cast<void>(m_Slot.givenUp++) : Wrong("waited in vain", error);
                return true;
            case EAGAIN:
                m_Slot.refused++;
                return true;
            case ESRCH:
            case ECONNRESET:
                if (!IsServerKilled()) {
                    Wrong("was told that a living server is dead", error);
                    return true;
                }
                m_Slot.givenUp++;
                m_Board.heldTimes.Add(NowNs() - std::max(begin, m_Board.serverKilledNs.load()));
                return false;
            default:
                Wrong("got an unexpected error", error);
                return true;
        }
    }

    bool SendNotification() {
        Message notification = m_Next;
        notification.kind = MessageKind::kNotification;
        notification.number = m_LastNotification + 1;
        notification.dawdle = 0;
        notification.size = AnySize() / 8;
        std::uint32_t handle = 0;
        if (WriteMessage(*this, notification, handle) != WriteResult::kWritten) {
            return true;
        }
        int const error = Notify(m_Server, handle);
        if (error == 0) {
            ++m_LastNotification;
            m_Slot.notified++;
        } else if (error != EAGAIN && !IsServerKilled()) {
            Wrong("cannot notify a living server", error);
        }
        return error == 0 || error == EAGAIN;
    }

    [[nodiscard]] bool IsServerKilled() const { return m_Board.killedServer.load() >= m_ServerNumber; }

    void Wrong(char const* what, int error) {
        m_Slot.wrong++;
        std::fprintf(stderr, "\nclient %u %s (request %u, error %i)\n", m_Next.client, what, m_Next.number,
                     error);
    }

    std::uint32_t OnRequest(std::uint32_t /*sender*/, std::uint32_t /*handle*/) override {
        Wrong("was asked something", 0);
        return 0;
    }

    void OnNotify(std::uint32_t /*sender*/, std::uint32_t handle) override {
        Message delivery;
        bool const isRight = ReadMessage(*this, handle, delivery) &&
                             delivery.kind == MessageKind::kDelivery && delivery.life == m_Next.life &&
                             delivery.client == m_Next.client;
        // A server that formatted the pool since has taken the handle away.
        if (!isRight && IsValidHandle(handle)) {
            Wrong("got a wrong delivery", 0);
        }
        m_Slot.delivered++;
    }

    void TakeMessages() {
        auto& queue = System::Platform::MessageQueue::Current();
        System::Platform::Message message;
        while (queue.Peek(message)) {
            queue.Dispatch(message);
        }
    }

    void GiveBackKept() {
        for (std::uint32_t& kept : m_Kept) {
            DisposeHandle(kept);
            kept = 0;
        }
    }

    void ServePhases() {
        m_Slot.isAtGate = 1;
        m_Slot.confirmed = static_cast<std::uint32_t>(Phase::kQuiet);
        AwaitPhase(Phase::kHold);
        for (unsigned i = 0; i < kHeldPerClient; ++i) {
            HoldOne(m_Slot.held[i]);
        }
        // A delivery that waits is a handle in flight.
        TakeMessages();
        m_Slot.confirmed = static_cast<std::uint32_t>(Phase::kHold);
        AwaitPhase(Phase::kRelease);
        for (auto const& held : m_Slot.held) {
            DisposeHandle(held.load());
        }
        TakeMessages();
        if (IsOpen()) {
            Close();
        }
    }

    void AwaitPhase(Phase phase) {
        while (PhaseOf(m_Board) < phase) {
            m_Board.phase.WaitWhile(m_Board.phase.Get());
        }
    }

    // An answer that stays with us, and one of the two reasons why handles may live on at the end.
    void HoldOne(std::atomic<std::uint32_t>& held) {
        m_ServerNumber = m_Board.gate.Get();
        if (!FindTheServer()) {
            return;
        }
        auto const isNone = [](std::uint32_t kept) {
            return kept == 0;
        };
        while (std::all_of(m_Kept.begin(), m_Kept.end(), isNone) && SendRequest(true, 0)) {
        }
        for (std::uint32_t& kept : m_Kept) {
            if (kept != 0) {
                held = kept;
                kept = 0;
            }
        }
    }

    Board& m_Board;
    ClientSlot& m_Slot;
    std::mt19937 m_Random;
    Message m_Next;
    std::uint32_t m_Server = 0;
    std::uint32_t m_ServerNumber = 0;
    std::uint32_t m_LastNotification = 0;
    std::array<std::uint32_t, 3> m_Kept{};
};

}  // namespace

int RunClient(Board& board, Assignment const& assignment) {
    ErrorWatch const watch(board);
    {
        Client client(board, assignment);
        client.Run();
    }
    board.mappingsLeft += MappingsOf(assignment.channel);
    return 0;
}

}  // namespace Storm
