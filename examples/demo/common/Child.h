#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace Demo {

/// A program that runs beside this one, with pipes at its standard input and output. Ended by force, if it
/// still runs, when the object goes.
class Child {
public:
    /// Starts `arguments[0]`; IsRunning() is false if that failed.
    explicit Child(std::vector<std::string> const& arguments);
    ~Child();
    Child(Child&& other) noexcept;
    Child& operator=(Child&& other) noexcept;

    [[nodiscard]] bool IsRunning() const { return m_Pid > 0; }
    /// What poll() can wait on for output; -1 once the output has ended.
    [[nodiscard]] int Output() const { return m_Output; }

    /// Takes in the output that is there, which poll() has announced.
    void Receive();
    /// The next whole line of what was received.
    std::optional<std::string> TakeLine();
    void WriteLine(std::string const& line) const;
    /// Ends the program with SIGKILL, as a crash would.
    void Kill();
    /// Waits for its end; the exit code, -1 if a signal ended it.
    int Wait();

private:
    void Swap(Child& other) noexcept;

    pid_t m_Pid = -1;
    int m_Input = -1;
    int m_Output = -1;
    std::string m_Received;
};

}  // namespace Demo
