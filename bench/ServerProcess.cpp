#include "bench/ServerProcess.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace bench {

namespace {

constexpr int kPatienceMs = 10'000;

} // namespace

ServerProcess::ServerProcess(std::vector<std::string> arguments) {
    // Its real name, which a profiler that follows the child needs.
    arguments.insert(arguments.begin(), std::filesystem::read_symlink("/proc/self/exe").string());
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);

    std::array<int, 2> line{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, line.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    m_line = line[0];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, line[1], STDIN_FILENO);
    const int error =
        posix_spawn(&m_process, pointers[0], &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(line[1]);
    char served = 0;
    if (error == 0 && read(m_line, &served, 1) == 1)
        return;
    end();
    throw std::runtime_error("the server process does not serve");
}

ServerProcess::~ServerProcess() { end(); }

void ServerProcess::end() {
    if (m_process > 0) {
        shutdown(m_line, SHUT_WR);
        // Its end of the line closes when it ends. One that does not must not keep us from saying
        // what went wrong.
        pollfd line{m_line, POLLIN, 0};
        if (poll(&line, 1, kPatienceMs) == 0)
            kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    close(m_line);
}

void ServerProcess::waitForEnd() {
    char byte = 1;
    if (write(STDIN_FILENO, &byte, 1) == 1)
        while (read(STDIN_FILENO, &byte, 1) < 0 && errno == EINTR) {
        }
}

} // namespace bench
