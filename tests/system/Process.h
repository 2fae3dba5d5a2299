#pragma once

#include <array>
#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

namespace mirel {

/// A program started by a test. Ended by force when the test ends.
class Process {
public:
    struct Result {
        int status; ///< its exit status; minus the signal that ended it
        std::string output;
        std::string errors;
    };

    /// Throws `std::system_error` when the program cannot be started.
    explicit Process(const std::vector<std::string>& command, const std::string& input = "");
    ~Process();

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// True when a line of the output that begins so has come; false when the output has ended or
    /// the time is over.
    bool waitForLine(const std::string& beginning);

    void signal(int number);

    /// Waits for the end; ends the program by force when the time is over.
    Result finish();

    static Result run(const std::vector<std::string>& command, const std::string& input = "") {
        return Process(command, input).finish();
    }

private:
    struct Stream {
        int descriptor = -1;
        std::string text;
    };

    bool readMore(std::chrono::steady_clock::time_point deadline);

    pid_t m_pid = -1;
    std::array<Stream, 2> m_streams; ///< standard output and standard error
};

} // namespace mirel
