#include "testkit/Process.h"

#include "testkit/failed.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <iostream>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace mirel {

namespace {

constexpr std::chrono::minutes kSilence{1}; ///< after that, a program hangs

int check(int result, const char* what) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

/// A file to read from that nobody else can write.
int newFile(const std::string& content) {
    const int file = check(memfd_create("input", MFD_CLOEXEC), "memfd_create");
    if (pwrite(file, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size()))
        throw std::system_error(errno, std::generic_category(), "pwrite");
    return file;
}

} // namespace

Arguments joined(Arguments first, const Arguments& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Process::Process(const Arguments& command, const std::string& input) : m_name(command.at(0)) {
    std::vector<char*> arguments;
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const int in = newFile(input);
    std::array<int, 2> out{}, errors{};
    check(pipe2(out.data(), O_CLOEXEC), "pipe");
    check(pipe2(errors.data(), O_CLOEXEC), "pipe");

    const pid_t parent = getpid();
    m_pid = check(fork(), "fork");
    if (m_pid == 0) {
        // Other threads may have held any lock when we forked: only system calls from here on.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() == parent) { // or it has died before we asked for the signal
            dup2(in, STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            dup2(errors[1], STDERR_FILENO);
            execv(arguments[0], arguments.data());
        }
        _exit(127);
    }
    for (const int descriptor : {in, out[1], errors[1]})
        close(descriptor);
    m_reader = std::thread(&Process::read, this, std::array{out[0], errors[0]});
}

Process::~Process() {
    if (m_reader.joinable())
        stop(SIGKILL);
    if (!failed())
        return;
    constexpr std::array kStreams{"output", "error"};
    for (std::size_t i = 0; i < kStreams.size(); ++i)
        if (!m_texts.at(i).empty())
            std::cerr << "standard " << kStreams.at(i) << " of " << m_name << ", process " << m_pid
                      << ":\n"
                      << m_texts.at(i) << '\n';
}

bool Process::waitUntil(const Condition& holds) {
    std::unique_lock lock(m_mutex);
    while (!holds(m_texts[0], m_texts[1])) {
        if (m_ended)
            return false;
        const auto moved = [this, before = m_texts[0].size() + m_texts[1].size()] {
            return m_ended || m_texts[0].size() + m_texts[1].size() != before;
        };
        if (!m_changed.wait_for(lock, kSilence, moved))
            kill(m_pid, SIGKILL); // which ends its streams
    }
    return true;
}

bool Process::waitFor(const std::string& text) {
    return waitUntil([&text](const std::string& output, const std::string& errors) {
        return output.find(text) != std::string::npos || errors.find(text) != std::string::npos;
    });
}

Process::Result Process::finish() {
    waitUntil([](const std::string&, const std::string&) { return false; });
    m_reader.join();
    int status = 0;
    waitpid(m_pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), m_texts[0], m_texts[1]};
}

Process::Result Process::stop(int number) {
    signal(number);
    return finish();
}

Process::Result Process::run(const Arguments& command, const std::string& input) {
    return Process(command, input).finish();
}

void Process::read(std::array<int, 2> streams) {
    std::array<pollfd, 2> items{{{streams[0], POLLIN, 0}, {streams[1], POLLIN, 0}}};
    while (items[0].fd >= 0 || items[1].fd >= 0) {
        poll(items.data(), items.size(), -1);
        for (std::size_t i = 0; i < items.size(); ++i) {
            std::array<char, 4096> buffer{};
            if (items[i].revents == 0)
                continue;
            const ssize_t length = ::read(items[i].fd, buffer.data(), buffer.size());
            if (length > 0) {
                const std::lock_guard lock(m_mutex);
                m_texts.at(i).append(buffer.data(), static_cast<std::size_t>(length));
                m_changed.notify_all();
            } else {
                close(items[i].fd);
                items[i].fd = -1; // which poll passes over
            }
        }
    }
    const std::lock_guard lock(m_mutex);
    m_ended = true;
    m_changed.notify_all();
}

} // namespace mirel
