#pragma once

#include <sys/types.h>

namespace Bench {

/// Starts `program`, which is looked for on the PATH, and reads its standard output until a line contains
/// `ready`, which is told in `isReady`, or it ends. Returns the process, for the caller to wait for, or -1.
pid_t Spawn(char const* program, char const* const argv[], char const* ready, bool& isReady);

/// A program that works for client and server, ended with the object.
class Daemon {
public:
    /// Starts it and waits until it says `ready`.
    Daemon(char const* program, char const* const argv[], char const* ready);
    ~Daemon();
    Daemon(Daemon const&) = delete;
    Daemon& operator=(Daemon const&) = delete;

    [[nodiscard]] bool IsReady() const { return m_IsReady; }
    [[nodiscard]] pid_t Pid() const { return m_Pid; }

private:
    bool m_IsReady = false;
    pid_t m_Pid;
};

}  // namespace Bench
