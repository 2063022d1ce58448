#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace Support {

/// Generous: only a hang takes so long, also under a sanitizer on a loaded machine.
constexpr std::chrono::seconds kLimit{60};

/// Waits until `condition` holds, looking every millisecond; false after the limit.
bool WaitUntil(auto&& condition, std::chrono::milliseconds limit = kLimit);
void SleepOneLook();

/// The program tests/processes/<name>.cpp.
std::string ProcessPath(std::string const& name);

/// A spawned program (never a forked copy of the test) whose standard input and output are pipes to the test.
/// Killed and reaped at the latest in the destructor.
class ChildProcess {
public:
    /// Starts tests/processes/<name>.cpp with `arguments`; aborts the test if it can't.
    explicit ChildProcess(std::string const& name, std::vector<std::string> const& arguments = {});
    ~ChildProcess();
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&&) = delete;

    [[nodiscard]] pid_t Pid() const { return m_Pid; }
    /// The next line of its output without the line end; none when it has closed its output or the limit is
    /// over.
    std::optional<std::string> ReadLine(std::chrono::milliseconds limit = kLimit);
    /// Whether the next line of its output is `line`.
    bool Reports(std::string const& line);
    void WriteLine(std::string const& line);
    void CloseInput();
    void Signal(int signal);
    /// Ends it with SIGKILL and reaps it.
    void Kill();
    /// Waits for its end: the exit code, or minus the signal that ended it; none when the limit is over.
    std::optional<int> Wait(std::chrono::milliseconds limit = kLimit);
    [[nodiscard]] bool IsRunning();

private:
    pid_t m_Pid = -1;
    int m_Input = -1;
    int m_Output = -1;
    std::string m_Pending;
    std::optional<int> m_Status;
};

bool WaitUntil(auto&& condition, std::chrono::milliseconds limit) {
    auto const end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        SleepOneLook();
    }
    return true;
}

}  // namespace Support
