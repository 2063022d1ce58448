// The smallest client: sends a text to the echo server, prints the answer, and tells the server to end.
//
//   echo-client [CHANNEL [TEXT]]

#include <cstdio>
#include <cstring>
#include <string>

#include "corvalen/rpc/RpcChannel.h"
#include "corvalen/system/Framework.h"

namespace {

class EchoClient : public System::RPC::RpcChannel {
public:
    explicit EchoClient(char16_t const* name) : RpcChannel(name) {}
    ~EchoClient() override {
        if (IsOpen()) {
            Close();
        }
    }

private:
    std::uint32_t OnRequest(std::uint32_t, std::uint32_t) override { return 0; }
    void OnNotify(std::uint32_t, std::uint32_t) override {}
};

int Run(std::string const& channel, std::string const& text) {
    constexpr unsigned kLimitMs = 30000;
    EchoClient client(std::u16string(channel.begin(), channel.end()).c_str());
    int const opened = client.OpenClient();
    std::uint32_t const server = opened == 0 ? client.FindServer(u"echo server") : 0;
    if (server == 0) {
        std::fputs("there is no echo server: start echo-server first\n", stderr);
        return 1;
    }

    std::uint32_t const request = client.NewHandle(static_cast<std::uint32_t>(text.size()));
    if (request == 0) {
        std::fputs("the channel has no room\n", stderr);
        return 1;
    }
    std::memcpy(client.HandleData(request), text.data(), text.size());

    std::uint32_t answer = 0;
    int const error = client.Request(server, request, &answer, kLimitMs);
    if (error != 0) {
        std::fprintf(stderr, "no answer: %s\n", std::strerror(error));
        return 1;
    }
    std::printf("%.*s\n", static_cast<int>(client.HandleSize(answer)),
                static_cast<char const*>(client.HandleData(answer)));
    client.DisposeHandle(answer);
    return client.Notify(server, 0) == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    InitFramework();
    int const result = Run(argc > 1 ? argv[1] : "echo", argc > 2 ? argv[2] : "hello");
    ExitFramework();
    return result;
}
