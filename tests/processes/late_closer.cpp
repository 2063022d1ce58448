// A host whose channel is a static object: its destructor sends and closes when the objects of the main
// thread are gone already. late_closer <channel>; reports "closed".

#include <cstdio>
#include <string>

#include "corvalen/rpc/RpcChannel.h"

namespace {

class Late : public System::RPC::RpcChannel {
public:
    using RpcChannel::RpcChannel;
    ~Late() override {
        for (int i = 0; i < 3; ++i) {
            static_cast<void>(Notify(LocalEndPoint(), NewHandle(1)));
        }
        Close();
        std::puts("closed");
        std::fflush(stdout);
    }
    std::uint32_t OnRequest(std::uint32_t, std::uint32_t) override { return 0; }
    void OnNotify(std::uint32_t, std::uint32_t) override {}
};

}  // namespace

int main(int argc, char** argv) {
    std::string const name = argc > 1 ? argv[1] : "";
    static Late s_Channel(std::u16string(name.begin(), name.end()).c_str());
    if (int const error = s_Channel.OpenServer(u"late"); error != 0) {
        return error;
    }
    return s_Channel.Notify(s_Channel.LocalEndPoint(), s_Channel.NewHandle(1));
}
