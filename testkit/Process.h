#pragma once

#include <array>
#include <condition_variable>
#include <csignal>
#include <functional>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

namespace mirel {

using Arguments = std::vector<std::string>;

Arguments joined(Arguments first, const Arguments& second);

/// A program that runs as our child. It is killed when the object ends, and by the system when the
/// thread that made it does, however that comes. What it writes is read at once, so it never waits
/// for us, and is shown after a failure. One thread may use an object at a time.
class Process {
public:
    struct Result {
        int status; ///< of its exit, 127 without such a program; minus the signal that ended it
        std::string output;
        std::string errors;
    };

    /// Looks at what standard output and standard error have brought so far.
    using Condition = std::function<bool(const std::string& output, const std::string& errors)>;

    /// `command` begins with the program's path; `input` is all that its standard input has. Throws
    /// `std::system_error`.
    explicit Process(const Arguments& command, const std::string& input = "");
    ~Process();

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// True when the condition holds, false when both streams have ended before. A program that
    /// says nothing for a minute is killed.
    bool waitUntil(const Condition& holds);

    /// The same: until one of the streams has brought the text.
    bool waitFor(const std::string& text);

    pid_t pid() const { return m_pid; }

    // Only before the end has been waited for, which the last two do.
    void signal(int number) { kill(m_pid, number); }
    Result stop(int number = SIGTERM);
    Result finish();

    static Result run(const Arguments& command, const std::string& input = "");

private:
    /// The reader's loop, until both streams have ended.
    void read(std::array<int, 2> streams);

    std::string m_name;
    pid_t m_pid = -1;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::array<std::string, 2> m_texts; ///< guarded by m_mutex: standard output and standard error
    bool m_ended = false;               ///< guarded by m_mutex: no more will come

    std::thread m_reader; ///< joined when the end has been waited for
};

} // namespace mirel
