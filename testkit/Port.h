#pragma once

#include <netinet/in.h>
#include <string>

namespace mirel {

/// Of this machine; port 0: any.
sockaddr_in loopback(int port);

/// A TCP port of this machine's loopback interface that is ours as long as the object lives: a
/// bound socket that does not listen holds it. The system gives it to nobody who asks for any port,
/// and refuses whoever connects, until a server listens that was told to use it. Like most servers,
/// that one must set SO_REUSEADDR.
class Port {
public:
    /// Throws `std::system_error` when there is none.
    Port();
    ~Port();

    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    int number() const { return m_number; }
    std::string hostAndPort() const { return "127.0.0.1:" + std::to_string(m_number); }

private:
    const int m_socket;
    int m_number = 0;
};

} // namespace mirel
