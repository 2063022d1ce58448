// The message centre of the demo: takes text messages as requests, answers each with a receipt, and notifies
// its sender of the delivery. It says "ready" on its standard output, works until "stop" comes on its
// standard input, and closes with a line of counts.
//
//   message-centre CHANNEL LOG-NAME

#include <atomic>
#include <cstdio>
#include <iostream>
#include <memory>
#include <set>
#include <string>

#include "common/Message.h"
#include "common/Outgoing.h"
#include "corvalen/diagnostics/ComponentLog.h"
#include "corvalen/diagnostics/Log.h"
#include "corvalen/platform/MessageQueue.h"
#include "corvalen/rpc/MemoryPool.h"
#include "corvalen/rpc/RpcChannel.h"
#include "corvalen/system/Framework.h"
#include "corvalen/threading/ComThread.h"

namespace {

using System::Diagnostics::FLog;
using System::Platform::Message;
using System::Platform::MessageQueue;

void Say(unsigned severity, std::string const& text) {
    constexpr std::uint64_t kCentreComponent = 1U << 1;
    FLog::Put(severity, kCentreComponent, "CENTRE", "demo", text.c_str());
}

struct Counts {
    unsigned requests = 0;
    unsigned notified = 0;
    unsigned unreachable = 0;
    unsigned left = 0;
    unsigned purged = 0;
    unsigned after = 0;
};

class MessageCentre : public System::RPC::RpcChannel {
public:
    explicit MessageCentre(char16_t const* name) : RpcChannel(name) {}
    ~MessageCentre() override {
        if (IsOpen()) {
            Close();
        }
    }

    /// What has been done so far.
    [[nodiscard]] Counts const& Done() const { return m_Counts; }

    /// Removes what nobody will dispose of any more. For the time when all clients have gone.
    void CleanUp() {
        Lock();
        m_Counts.left = CountHandles();
        for (std::uint32_t const sender : m_Senders) {
            PurgeAfter(sender);
        }
        m_Counts.purged +=
            PurgeHandles(0, LocalEndPoint());   // requests whose sender died before they were served
        m_Counts.purged += PurgeHandles(1, 0);  // what a client had not sent yet when it died
        m_Counts.after = CountHandles();
        Unlock();
    }

private:
    std::uint32_t OnRequest(std::uint32_t sender, std::uint32_t handle) override {
        auto const message = Demo::Unpack<Demo::TextMessage>(*this, handle);
        Demo::Outgoing const outgoing = Demo::ToOutgoing(message.text);
        Demo::Receipt const receipt{message.number, Demo::CountCharacters(message.text),
                                    Demo::Checksum(message.text), outgoing.form, outgoing.hex};
        CountRequest(sender);
        NotifyOfDelivery(sender, message.number);
        return Demo::Pack(*this, receipt);
    }

    void OnNotify(std::uint32_t, std::uint32_t) override {}

    void CountRequest(std::uint32_t sender) {
        constexpr unsigned kLineEach = 100000;
        m_Senders.insert(sender);
        if (++m_Counts.requests % kLineEach == 0) {
            Say(2, std::to_string(m_Counts.requests) + " messages taken");
        }
    }

    void NotifyOfDelivery(std::uint32_t sender, std::uint32_t number) {
        if (Notify(sender, Demo::Pack(*this, Demo::Delivery{number})) == 0) {
            ++m_Counts.notified;
        } else {
            ++m_Counts.unreachable;
        }
    }

    // A client that came to an orderly end has left nothing; one that was killed, what was on its way to it.
    void PurgeAfter(std::uint32_t sender) {
        std::uint32_t const purged = IsRefValid(sender) ? 0 : PurgeHandles(0, sender);
        m_Counts.purged += purged;
        if (purged > 0) {
            Say(1, "a client has died and left " + std::to_string(purged) + " handles behind");
        }
    }

    unsigned CountHandles() {
        unsigned count = 0;
        m_MemPool->DoForEach([](System::RPC::MemoryPool*, std::uint32_t,
                                void* context) { ++*static_cast<unsigned*>(context); },
                             &count);
        return count;
    }

    Counts m_Counts;
    std::set<std::uint32_t> m_Senders;
};

/// Runs the centre on a thread of its own, which is the one that its messages come to.
class CentreWork : public System::Threading::IRunnable {
public:
    explicit CentreWork(std::u16string name) : m_Name(std::move(name)) {}

    void Run() override {
        MessageCentre centre(m_Name.c_str());
        int const error = centre.OpenServer(Demo::kCentreTitle);
        if (error != 0) {
            Say(0, "cannot open the channel: error " + std::to_string(error));
            std::puts("failed");
            return;
        }
        Say(2, "open for messages");
        std::puts("ready");
        while (!m_MustEnd) {
            ServeForAWhile();
        }
        centre.CleanUp();
        centre.Close();
        m_Counts = centre.Done();
        Say(2, "closed after " + std::to_string(m_Counts.requests) + " messages");
    }
    void Abort() override { m_MustEnd = true; }

    [[nodiscard]] Counts const& Done() const { return m_Counts; }

private:
    static void ServeForAWhile() {
        constexpr int kLookAgainMs = 100;  // how soon a call of Abort is noticed
        MessageQueue& queue = MessageQueue::Current();
        if (queue.Wait(kLookAgainMs)) {
            Message message;
            while (queue.Peek(message)) {
                queue.Dispatch(message);
            }
        }
    }

    std::u16string m_Name;
    std::atomic<bool> m_MustEnd = false;
    Counts m_Counts;
};

void Serve(std::string const& channel, std::string const& logName) {
    auto const length = static_cast<unsigned>(logName.size());
    System::Diagnostics::FRteCompLog const rteLog(logName.c_str(), length);
    System::Diagnostics::FCorvalenLog const corvalenLog(logName.c_str(), length);
    FLog::RegisterProc(FLog::PrintProc, stderr);

    CentreWork work(std::u16string(channel.begin(), channel.end()));
    System::Threading::CComThread thread(&work);
    thread.SetName("Centre");
    thread.Start();
    std::string line;
    while (std::getline(std::cin, line) && line != "stop") {
    }
    thread.Abort();

    Counts const& done = work.Done();
    std::printf("done %u %u %u %u %u %u\n", done.requests, done.notified, done.unreachable, done.left,
                done.purged, done.after);
    FLog::UnregisterProc(FLog::PrintProc, stderr);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: message-centre CHANNEL LOG-NAME\n", stderr);
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    InitFramework();
    Serve(argv[1], argv[2]);
    ExitFramework();
    return 0;
}
