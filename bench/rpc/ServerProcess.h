#pragma once

#include <sched.h>
#include <sys/types.h>

#include <optional>
#include <string>

#include "bench/rpc/Transport.h"

namespace Bench {

/// Where client and server run: wherever the kernel likes, each on a processor of its own, both on one.
enum class Placement { kFree, kTwoProcessors, kOneProcessor };

char const* NameOf(Placement placement);

/// Keeps the calling thread where `placement` wants the client, for as long as the object lives. Threads that
/// the client starts meanwhile inherit that.
class ClientPlace {
public:
    explicit ClientPlace(Placement placement);
    ~ClientPlace();
    ClientPlace(ClientPlace const&) = delete;
    ClientPlace& operator=(ClientPlace const&) = delete;

private:
    cpu_set_t m_Before;
};

/// This program once more, as a server of one transport; killed with the object if it still runs.
class ServerProcess {
public:
    /// Returns once clients can connect, or when the server has failed.
    ServerProcess(Transport const& transport, std::string const& key, Waiting waiting, Placement placement);
    ~ServerProcess();
    ServerProcess(ServerProcess const&) = delete;
    ServerProcess& operator=(ServerProcess const&) = delete;

    [[nodiscard]] bool IsReady() const { return m_IsReady; }
    [[nodiscard]] pid_t Pid() const { return m_Pid; }
    /// Waits for a server that ends by itself.
    void End();

private:
    pid_t m_Pid = -1;
    bool m_IsReady = false;
};

/// What a program with transports does first in its main: if it was started as a server process, it serves
/// and this returns the exit code.
std::optional<int> ServeIfAsked(int argc, char** argv);

}  // namespace Bench
