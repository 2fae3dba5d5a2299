#include "tests/system/Process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace mirel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{60};

void check(int error, const char* what) {
    if (error != 0)
        throw std::system_error(error, std::generic_category(), what);
}

/// A descriptor to read `text` from, without anyone who writes it.
int inputOf(const std::string& text) {
    const int descriptor = memfd_create("input", MFD_CLOEXEC);
    if (descriptor < 0 ||
        write(descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        lseek(descriptor, 0, SEEK_SET) != 0)
        check(errno, "input");
    return descriptor;
}

} // namespace

Process::Process(const std::vector<std::string>& command, const std::string& input) {
    std::array<std::array<int, 2>, 2> pipes{};
    posix_spawn_file_actions_t actions;
    check(posix_spawn_file_actions_init(&actions), "spawn");
    const int in = inputOf(input);
    posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
    for (std::size_t i = 0; i < pipes.size(); ++i) {
        check(pipe2(pipes[i].data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe");
        m_streams[i].descriptor = pipes[i][0];
        posix_spawn_file_actions_adddup2(&actions, pipes[i][1],
                                         STDOUT_FILENO + static_cast<int>(i));
    }
    std::vector<char*> arguments;
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const int error =
        posix_spawn(&m_pid, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in);
    for (const auto& pipe : pipes)
        close(pipe[1]);
    check(error, arguments[0]);
}

Process::~Process() {
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    for (const Stream& stream : m_streams)
        close(stream.descriptor);
}

bool Process::waitForLine(const std::string& beginning) {
    const auto deadline = Clock::now() + kPatience;
    const std::string pattern = "\n" + beginning;
    do {
        const std::string text = "\n" + m_streams[0].text;
        const std::size_t line = text.find(pattern);
        if (line != std::string::npos && text.find('\n', line + 1) != std::string::npos)
            return true;
    } while (readMore(deadline));
    return false;
}

void Process::signal(int number) { kill(m_pid, number); }

Process::Result Process::finish() {
    const auto deadline = Clock::now() + kPatience;
    while (readMore(deadline)) {
    }
    if (Clock::now() >= deadline)
        kill(m_pid, SIGKILL);
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_pid = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), m_streams[0].text,
            m_streams[1].text};
}

/// Reads what has come on either stream; false when both have ended or the time is over.
bool Process::readMore(Clock::time_point deadline) {
    std::array<pollfd, 2> items{};
    for (std::size_t i = 0; i < items.size(); ++i)
        items[i] = {m_streams[i].descriptor, POLLIN, 0};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0 || poll(items.data(), items.size(), static_cast<int>(left.count())) <= 0)
        return false;
    bool open = false;
    for (std::size_t i = 0; i < items.size(); ++i) {
        std::array<char, 4096> buffer{};
        if (items[i].revents == 0) {
            open = open || items[i].fd >= 0;
            continue;
        }
        const ssize_t length = read(items[i].fd, buffer.data(), buffer.size());
        if (length > 0) {
            m_streams[i].text.append(buffer.data(), static_cast<std::size_t>(length));
            open = true;
        } else {
            close(m_streams[i].descriptor);
            m_streams[i].descriptor = -1; // which poll passes over
        }
    }
    return open;
}

} // namespace mirel
