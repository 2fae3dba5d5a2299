#pragma once

#include "tests/system/ChannelFixture.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace mirel {

using Arguments = std::vector<std::string>;

/// A program started by a test. Ended by force when the test ends, and when the test waits for it
/// and it says nothing for a minute.
class Process {
public:
    struct Result {
        int status; ///< its exit status; minus the signal that ended it
        std::string output;
        std::string errors;
    };

    /// Throws `std::system_error` when the program cannot be started.
    explicit Process(const Arguments& command, const std::string& input = "") {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        const int in = memfd_create("input", MFD_CLOEXEC); // to read from without anyone who writes
        check(pwrite(in, input.data(), input.size(), 0) == static_cast<ssize_t>(input.size()),
              "input");
        posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
        std::vector<int> ours{in};
        for (int i = 0; i < 2; ++i) {
            std::array<int, 2> ends{};
            check(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe");
            m_streams.at(static_cast<std::size_t>(i)).descriptor = ends[0];
            posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO + i);
            ours.push_back(ends[1]);
        }
        std::vector<char*> arguments;
        for (const std::string& word : command)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        errno = posix_spawn(&m_pid, arguments[0], &actions, nullptr, arguments.data(), environ);
        check(errno == 0, arguments[0]);
        m_started = m_pid;
        posix_spawn_file_actions_destroy(&actions);
        for (const int descriptor : ours)
            close(descriptor);
    }
    ~Process() {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            finish();
        }
        for (const Stream& stream : m_streams)
            close(stream.descriptor);
        if (testing::Test::HasFailure())
            std::cerr << "standard error of process " << m_started << ":\n"
                      << m_streams[1].text << '\n';
    }

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// True when standard output or standard error has brought the text, false when both have
    /// ended.
    bool waitFor(const std::string& text) {
        while (m_streams[0].text.find(text) == std::string::npos &&
               m_streams[1].text.find(text) == std::string::npos) {
            if (!readMore())
                return false;
        }
        return true;
    }

    /// Only before `finish`.
    void signal(int number) { kill(m_pid, number); }

    /// Waits for the end.
    Result finish() {
        while (readMore()) {
        }
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = -1;
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), m_streams[0].text,
                m_streams[1].text};
    }

    static Result run(const Arguments& command, const std::string& input = "") {
        return Process(command, input).finish();
    }

private:
    struct Stream {
        int descriptor = -1;
        std::string text;
    };

    static void check(bool good, const char* what) {
        if (!good)
            throw std::system_error(errno, std::generic_category(), what);
    }

    /// Reads what has come on either stream; false when both have ended.
    bool readMore() {
        if (m_streams[0].descriptor < 0 && m_streams[1].descriptor < 0)
            return false;
        std::array<pollfd, 2> items{
            {{m_streams[0].descriptor, POLLIN, 0}, {m_streams[1].descriptor, POLLIN, 0}}};
        if (poll(items.data(), items.size(), 60000) == 0)
            kill(m_pid, SIGKILL); // which ends its streams
        for (std::size_t i = 0; i < items.size(); ++i) {
            Stream& stream = m_streams[i];
            std::array<char, 4096> buffer{};
            if (items[i].revents == 0)
                continue;
            const ssize_t length = read(stream.descriptor, buffer.data(), buffer.size());
            if (length > 0) {
                stream.text.append(buffer.data(), static_cast<std::size_t>(length));
            } else {
                close(stream.descriptor);
                stream.descriptor = -1; // which poll passes over
            }
        }
        return true;
    }

    pid_t m_pid = -1; ///< until it has ended
    pid_t m_started = -1;
    std::array<Stream, 2> m_streams; ///< standard output and standard error
};

/// mirel-call as the caller of a service that each test brings.
class ProgramsFixture : public ChannelFixture {
protected:
    Process::Result call(Arguments arguments, const std::string& input = "") const {
        arguments.insert(arguments.begin(), {MIREL_CALL, "--channel", m_options.url});
        return Process::run(arguments, input);
    }
};

} // namespace mirel
