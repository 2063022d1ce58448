#include "common/Child.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Demo {

namespace {

std::vector<char*> PointersTo(std::vector<std::string> const& arguments) {
    std::vector<char*> pointers;
    for (std::string const& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

void Close(int& descriptor) {
    if (descriptor >= 0) {
        ::close(descriptor);
        descriptor = -1;
    }
}

}  // namespace

Child::Child(std::vector<std::string> const& arguments) {
    int in[2] = {-1, -1};
    int out[2] = {-1, -1};
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) {
        Close(in[0]);
        Close(in[1]);
        return;
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    std::vector<char*> const pointers = PointersTo(arguments);
    if (::posix_spawn(&m_Pid, pointers[0], &actions, nullptr, pointers.data(), environ) != 0) {
        m_Pid = -1;
    }
    ::posix_spawn_file_actions_destroy(&actions);
    Close(in[0]);
    Close(out[1]);
    m_Input = in[1];
    m_Output = out[0];
}

Child::~Child() {
    Kill();
    Close(m_Input);
    Close(m_Output);
}

Child::Child(Child&& other) noexcept {
    Swap(other);
}

Child& Child::operator=(Child&& other) noexcept {
    Child old(std::move(*this));
    Swap(other);
    return *this;
}

void Child::Swap(Child& other) noexcept {
    std::swap(m_Pid, other.m_Pid);
    std::swap(m_Input, other.m_Input);
    std::swap(m_Output, other.m_Output);
    std::swap(m_Received, other.m_Received);
}

void Child::Receive() {
    char buffer[4096];
    ssize_t const count = ::read(m_Output, buffer, sizeof buffer);
    if (count > 0) {
        m_Received.append(buffer, static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
        Close(m_Output);
    }
}

std::optional<std::string> Child::TakeLine() {
    std::size_t const end = m_Received.find('\n');
    if (end == std::string::npos) {
        return std::nullopt;
    }
    std::string line = m_Received.substr(0, end);
    m_Received.erase(0, end + 1);
    return line;
}

void Child::WriteLine(std::string const& line) const {
    std::string const bytes = line + "\n";
    // A short line into an empty pipe is written whole; one that has ended shows at Wait.
    [[maybe_unused]] ssize_t const written = ::write(m_Input, bytes.data(), bytes.size());
}

void Child::Kill() {
    if (m_Pid > 0) {
        ::kill(m_Pid, SIGKILL);
        Wait();
    }
}

int Child::Wait() {
    int status = 0;
    while (m_Pid > 0 && ::waitpid(m_Pid, &status, 0) < 0) {
        if (errno != EINTR) {
            break;
        }
    }
    m_Pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace Demo
