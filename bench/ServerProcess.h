#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace bench {

/// This program once more, in a process of its own that serves as long as the object lives.
class ServerProcess {
public:
    /// Starts it with the arguments, and returns when it serves. Throws when it does not.
    explicit ServerProcess(std::vector<std::string> arguments);
    ~ServerProcess();

    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    /// For the process that was started, when it serves: says so, and returns when it is to end.
    static void waitForEnd();

private:
    void end();

    int m_line = -1; ///< to its standard input, which ends when this is closed or we are gone
    pid_t m_process = -1;
};

} // namespace bench
