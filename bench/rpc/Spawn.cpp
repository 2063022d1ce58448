#include "bench/rpc/Spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace Bench {

namespace {

bool ReadUntil(int file, char const* ready) {
    std::FILE* const lines = ::fdopen(file, "r");
    if (lines == nullptr) {
        ::close(file);
        return false;
    }
    bool isFound = false;
    char line[512];
    while (!isFound && std::fgets(line, sizeof line, lines) != nullptr) {
        isFound = std::strstr(line, ready) != nullptr;
    }
    std::fclose(lines);
    return isFound;
}

}  // namespace

pid_t Spawn(char const* program, char const* const argv[], char const* ready, bool& isReady) {
    isReady = false;
    int output[2];
    if (::pipe2(output, O_CLOEXEC) != 0) {
        return -1;
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    pid_t process = -1;
    int const error = ::posix_spawnp(&process, program, &actions, nullptr, const_cast<char**>(argv), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(output[1]);
    if (error != 0) {
        std::fprintf(stderr, "start %s: %s\n", program, std::strerror(error));
        ::close(output[0]);
        return -1;
    }
    isReady = ReadUntil(output[0], ready);
    return process;
}

Daemon::Daemon(char const* program, char const* const argv[], char const* ready)
    : m_Pid(Spawn(program, argv, ready, m_IsReady)) {}

Daemon::~Daemon() {
    if (m_Pid > 0) {
        ::kill(m_Pid, SIGTERM);
        int status = 0;
        ::waitpid(m_Pid, &status, 0);
    }
}

}  // namespace Bench
