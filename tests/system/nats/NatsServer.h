#pragma once

#include "tests/system/Programs.h"

#include <arpa/inet.h>
#include <fstream>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>

namespace mirel {

/// Of this machine; port 0: any.
inline sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<in_port_t>(port));
    return address;
}

/// A port of this machine that nobody uses now.
inline int freePort() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    const bool good = bind(listener, any, size) == 0 && getsockname(listener, any, &size) == 0;
    close(listener);
    if (!good)
        throw std::system_error(errno, std::generic_category(), "a free port");
    return ntohs(address.sin_port);
}

/// A NATS server with a store of its own, which stays when it is killed.
class NatsServer {
public:
    /// `more` is added to its configuration.
    explicit NatsServer(const std::string& more = "", const std::string& name = "n1")
        : m_name(name) {
        std::ofstream(m_folder.path("conf"))
            << "server_name: " << name << "\nlisten: \"127.0.0.1:" << m_port
            << "\"\njetstream { store_dir: \"" << m_folder.path("store") << "\" }\n"
            << more;
        start();
    }

    void start() {
        m_process.emplace(
            Arguments{MIREL_NATS_SERVER, "-c", m_folder.path("conf"), "-l", m_folder.path("log")});
    }
    void kill() { m_process.reset(); }

    /// What the server has stored, for a server that does not run.
    void keepStore() {
        fs::remove_all(m_folder.path("kept"));
        fs::copy(m_folder.path("store"), m_folder.path("kept"), fs::copy_options::recursive);
    }
    void bringBackStore() {
        fs::remove_all(m_folder.path("store"));
        fs::rename(m_folder.path("kept"), m_folder.path("store"));
    }

    void pause() { m_process->signal(SIGSTOP); }
    void resume() { m_process->signal(SIGCONT); }

    const std::string& name() const { return m_name; }
    int port() const { return m_port; }
    std::string hostAndPort() const { return "127.0.0.1:" + std::to_string(m_port); }
    std::string url() const { return "nats://" + hostAndPort() + "/service"; }

private:
    const std::string m_name;
    const TemporaryFolder m_folder;
    const int m_port = freePort();
    std::optional<Process> m_process;
};

} // namespace mirel
