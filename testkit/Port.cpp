#include "testkit/Port.h"

#include <arpa/inet.h>
#include <cerrno>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace mirel {

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<in_port_t>(port));
    return address;
}

Port::Port() : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int yes = 1;
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
        bind(m_socket, any, size) != 0 || getsockname(m_socket, any, &size) != 0) {
        const int error = errno;
        close(m_socket);
        throw std::system_error(error, std::generic_category(), "a free port");
    }
    m_number = ntohs(address.sin_port);
}

Port::~Port() { close(m_socket); }

} // namespace mirel
