#include "channels/zmq/ZmqEndpoint.h"

#include "channels/zmq/ZmqChannelOptions.h"
#include "framework/MirelException.h"

#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace mirel {

namespace {

constexpr std::string_view kIpc = "ipc://";
constexpr std::string_view kTcp = "tcp://";
constexpr unsigned kLargestPort = 65535;

[[noreturn]] void fail(const std::string& url, const std::string& why) {
    throw MirelException("cannot listen on " + url + ": " + why, __FILE__, __LINE__);
}

bool startsWith(const std::string& text, std::string_view beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

/// Makes files that the process creates private to its user. For the whole process, so for as short
/// a time as possible.
class PrivateFiles {
public:
    PrivateFiles() : m_before(umask(S_IRWXG | S_IRWXO)) {}
    ~PrivateFiles() { umask(m_before); }

    PrivateFiles(const PrivateFiles&) = delete;
    PrivateFiles& operator=(const PrivateFiles&) = delete;

private:
    const mode_t m_before;
};

/// Whether a process listens on the path. Any other outcome of the attempt is left to bind.
bool someoneListens(const sockaddr_un& address) {
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (probe < 0)
        return false;
    const int result = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    // A listener with a full backlog says "try again".
    const bool listens = result == 0 || errno == EAGAIN;
    close(probe);
    return listens;
}

/// Of the path in `url`.
sockaddr_un addressOf(const std::string& url) {
    const std::string path = url.substr(kIpc.size());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.front() == '@' || path.front() == '*')
        fail(url, "a path of a file is needed");
    if (path.size() >= sizeof(address.sun_path))
        fail(url,
             "the path is longer than " + std::to_string(sizeof(address.sun_path) - 1) + " bytes");
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

/// ZeroMQ would take 65537 for 1.
bool isPort(const std::string& text) {
    unsigned port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    return text == "*" || (error == std::errc() && stop == end && port <= kLargestPort);
}

/// The part between "tcp://" and the port.
std::string hostOf(const std::string& url) {
    const std::size_t colon = url.rfind(':');
    if (colon < kTcp.size() || !isPort(url.substr(colon + 1)))
        fail(url, "a port of 0 to 65535 is needed, as in tcp://127.0.0.1:5555");
    return url.substr(kTcp.size(), colon - kTcp.size());
}

bool isLoopback(const std::string& host) {
    in_addr address{};
    if (inet_pton(AF_INET, host.c_str(), &address) == 1)
        return ntohl(address.s_addr) >> 24 == IN_LOOPBACKNET;
    return host == "localhost" || host == "[::1]";
}

} // namespace

ZmqEndpoint::ZmqEndpoint(zmq::socket_t& socket, const ZmqChannelOptions& options) {
    std::string url = options.url;
    if (startsWith(url, kIpc)) {
        takePath(url);
    } else if (startsWith(url, kTcp)) {
        const std::string host = hostOf(url);
        if (!isLoopback(host) && options.curveKeyFile.empty() &&
            !options.allowPlainTcpBeyondLoopback)
            fail(url, "without CURVE, only addresses of this machine (127.0.0.1, [::1]) are "
                      "allowed; give a CURVE key file (--curve-key), or allow plain TCP "
                      "(--allow-plain-tcp) if everyone who reaches the port may call");
        socket.set(zmq::sockopt::ipv6, startsWith(host, "["));
        if (host == "localhost") // ZeroMQ looks up no names when it listens
            url.replace(kTcp.size(), host.size(), "127.0.0.1");
    } else {
        fail(url, "the address must begin with ipc:// or tcp://");
    }
    try {
        bind(socket, url);
    } catch (const zmq::error_t& failure) {
        fail(options.url, failure.what());
    }
}

ZmqEndpoint::~ZmqEndpoint() {
    struct stat status {};
    if (!m_path.empty() && lstat(m_path.c_str(), &status) == 0 && status.st_dev == m_device &&
        status.st_ino == m_inode)
        unlink(m_path.c_str());
}

/// ZeroMQ removes whatever it finds at the path before it listens there.
void ZmqEndpoint::takePath(const std::string& url) {
    const sockaddr_un address = addressOf(url);
    const std::string path = address.sun_path;
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode))
        fail(url, "there is a file that is no socket");
    // Otherwise two that start together could both find that nobody listens.
    try {
        m_lock.emplace(path + ".lock");
    } catch (const std::system_error& failure) {
        fail(url, failure.what());
    }
    if (!m_lock->isOurs() || someoneListens(address))
        fail(url, "another process listens there");
    m_path = path;
}

void ZmqEndpoint::bind(zmq::socket_t& socket, const std::string& url) {
    const PrivateFiles privateFiles;
    socket.bind(url);
    m_url = socket.get(zmq::sockopt::last_endpoint);
    struct stat status {};
    if (!m_path.empty() && lstat(m_path.c_str(), &status) == 0) {
        m_device = status.st_dev;
        m_inode = status.st_ino;
    }
}

} // namespace mirel
