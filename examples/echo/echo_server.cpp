// The smallest server: answers each request with the same bytes, and ends at the first notification.
//
//   echo-server [CHANNEL]

#include <cstdio>
#include <cstring>
#include <string>

#include "corvalen/platform/MessageQueue.h"
#include "corvalen/rpc/RpcChannel.h"
#include "corvalen/system/Framework.h"

namespace {

class EchoServer : public System::RPC::RpcChannel {
public:
    explicit EchoServer(char16_t const* name) : RpcChannel(name) {}
    ~EchoServer() override {
        if (IsOpen()) {
            Close();
        }
    }

    /// Serves on the calling thread until a notification comes.
    void Serve() {
        auto& queue = System::Platform::MessageQueue::Current();
        while (!m_IsToldToEnd) {
            System::Platform::Message message;
            if (queue.Wait() && queue.Peek(message)) {
                queue.Dispatch(message);
            }
        }
    }

private:
    // The request is ours to read until we return; whoever asked disposes of the answer.
    std::uint32_t OnRequest(std::uint32_t /*sender*/, std::uint32_t handle) override {
        std::uint32_t const size = HandleSize(handle);
        std::uint32_t const answer = NewHandle(size);
        if (answer != 0 && size > 0) {
            std::memcpy(HandleData(answer), HandleData(handle), size);
        }
        return answer;
    }

    void OnNotify(std::uint32_t /*sender*/, std::uint32_t /*handle*/) override { m_IsToldToEnd = true; }

    bool m_IsToldToEnd = false;
};

int Run(std::string const& channel) {
    EchoServer server(std::u16string(channel.begin(), channel.end()).c_str());
    int const error = server.OpenServer(u"echo server");
    if (error != 0) {
        std::fprintf(stderr, "cannot open the channel %s: %s\n", channel.c_str(), std::strerror(error));
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    server.Serve();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    InitFramework();
    int const result = Run(argc > 1 ? argv[1] : "echo");
    ExitFramework();
    return result;
}
