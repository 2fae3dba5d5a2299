#pragma once

#include "testkit/Port.h"
#include "testkit/Process.h"

#include <optional>
#include <string>

namespace mirel {

/// A NATS server on this machine. Its port and what it has stored stay its own when it is killed.
class NatsServer {
public:
    /// Starts it. Makes the folder and has everything there: the server's configuration, which ends
    /// with `more`, its log and its store. The server's name is the folder's.
    explicit NatsServer(const std::string& folder, const std::string& more = "");

    /// Returns when it listens. `std::runtime_error` when it does not come to that.
    void start();
    void kill() { m_process.reset(); }
    void pause() { m_process->signal(SIGSTOP); }
    void resume() { m_process->signal(SIGCONT); }

    // Only while it is killed: puts aside a copy of what is stored, and takes that instead of it.
    void keepStore();
    void bringBackStore();

    const std::string& name() const { return m_name; }
    int port() const { return m_port.number(); }
    std::string hostAndPort() const { return m_port.hostAndPort(); }
    std::string url(const std::string& service = "service") const;

private:
    std::string path(const std::string& file) const { return m_folder + "/" + file; }

    const std::string m_folder;
    const std::string m_name;
    const Port m_port;
    unsigned long m_starts = 0;
    std::optional<Process> m_process;
};

} // namespace mirel
