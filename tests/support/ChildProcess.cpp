#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

namespace Support {

namespace {

[[noreturn]] void Fail(char const* what) {
    std::perror(what);
    std::abort();
}

}  // namespace

void SleepOneLook() {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

std::string ProcessPath(std::string const& name) {
    return std::string(CORVALEN_TEST_PROCESSES) + "/" + name;
}

ChildProcess::ChildProcess(std::string const& name, std::vector<std::string> const& arguments) {
    int input[2];
    int output[2];
    if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0) {
        Fail("pipe2");
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    std::string const path = ProcessPath(name);
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (auto const& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    errno = ::posix_spawn(&m_Pid, path.c_str(), &actions, nullptr, argv.data(), environ);
    if (errno != 0) {
        Fail(path.c_str());
    }
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(input[0]);
    ::close(output[1]);
    m_Input = input[1];
    m_Output = output[0];
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : m_Pid(std::exchange(other.m_Pid, -1)),
      m_Input(std::exchange(other.m_Input, -1)),
      m_Output(std::exchange(other.m_Output, -1)),
      m_Pending(std::move(other.m_Pending)),
      m_Status(other.m_Status) {}

ChildProcess::~ChildProcess() {
    if (m_Pid != -1) {
        Kill();
    }
    CloseInput();
    if (m_Output >= 0) {
        ::close(m_Output);
    }
}

std::optional<std::string> ChildProcess::ReadLine(std::chrono::milliseconds limit) {
    auto const end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (auto const at = m_Pending.find('\n'); at != std::string::npos) {
            std::string line = m_Pending.substr(0, at);
            m_Pending.erase(0, at + 1);
            return line;
        }
        auto const left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd look{m_Output, POLLIN, 0};
        int const ready = ::poll(&look, 1, static_cast<int>(left.count() > 0 ? left.count() : 0));
        if (ready == 0) {
            return std::nullopt;
        }
        char bytes[4096];
        auto const got = ready > 0 ? ::read(m_Output, bytes, sizeof bytes) : -1;
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return std::nullopt;
        }
        m_Pending.append(bytes, static_cast<std::size_t>(got));
    }
}

bool ChildProcess::Reports(std::string const& line) {
    return ReadLine() == line;
}

void ChildProcess::WriteLine(std::string const& line) {
    std::string const bytes = line + "\n";
    // A child that is gone is the test's subject; SIGPIPE must not end the test for it.
    auto const old = ::signal(SIGPIPE, SIG_IGN);
    static_cast<void>(!::write(m_Input, bytes.data(), bytes.size()));
    ::signal(SIGPIPE, old);
}

void ChildProcess::CloseInput() {
    if (m_Input >= 0) {
        ::close(std::exchange(m_Input, -1));
    }
}

void ChildProcess::Signal(int signal) {
    if (!m_Status) {
        ::kill(m_Pid, signal);
        siginfo_t change{};
        // It may run on for a moment; the end that it may have come to instead stays to be waited for.
        while (signal == SIGSTOP &&
               ::waitid(P_PID, static_cast<id_t>(m_Pid), &change, WSTOPPED | WEXITED | WNOWAIT) != 0 &&
               errno == EINTR) {
        }
    }
}

void ChildProcess::Kill() {
    Signal(SIGKILL);
    Wait();
}

std::optional<int> ChildProcess::Wait(std::chrono::milliseconds limit) {
    WaitUntil([this] { return !IsRunning(); }, limit);
    return m_Status;
}

bool ChildProcess::IsRunning() {
    int status = 0;
    if (!m_Status && ::waitpid(m_Pid, &status, WNOHANG) == m_Pid) {
        m_Status = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }
    return !m_Status;
}

}  // namespace Support
