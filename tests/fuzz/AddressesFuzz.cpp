// An address that somebody typed.

#include "channels/nats/wire/NatsAddress.h"
#include "channels/zmq/ZmqChannelOptions.h"
#include "channels/zmq/ZmqEndpoint.h"
#include "framework/MirelException.h"
#include "tests/fuzz/Require.h"

#include <cerrno>
#include <cstdint>
#include <dlfcn.h>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view kIpc = "ipc://";
constexpr std::string_view kTcp = "tcp://";

} // namespace

/// In the place of ZeroMQ's: really listens on TCP only, and never makes a file.
extern "C" int zmq_bind(void* socket, const char* address) {
    if (!std::string_view(address).starts_with(kTcp)) {
        errno = EADDRINUSE;
        return -1;
    }
    static const auto bind =
        reinterpret_cast<int (*)(void*, const char*)>(dlsym(RTLD_NEXT, "zmq_bind"));
    return bind(socket, address);
}

namespace mirel {
namespace {

void tryNats(const std::string& url) {
    try {
        const NatsAddress address(url);
        require(!address.servers().empty(), "there is a server");
        for (const std::string& server : address.servers()) {
            require(server.starts_with(address.encrypted() ? "tls://" : "nats://"), "its scheme");
            require(server.find('@') == std::string::npos, "no password in a log");
        }
        require(NatsAddress::isToken(address.stream()), "a subject's token");
        require(address.parseRequest(address.requests(7)).value().partition == 7, "its subjects");
    } catch (const MirelException&) { // refused
    }
}

/// With a path below which no file can be made.
std::string harmless(std::string url) {
    if (url.starts_with(kIpc) && url.find_first_of("@*", kIpc.size()) != kIpc.size())
        url.insert(kIpc.size(), "/dev/null/");
    return url;
}

/// Without keys and without leave, nobody beyond this machine can connect.
void tryZmq(const std::string& url) {
    static zmq::context_t& context = *new zmq::context_t;
    zmq::socket_t socket(context, zmq::socket_type::router);
    socket.set(zmq::sockopt::linger, 0);
    ZmqChannelOptions options;
    options.url = harmless(url);
    try {
        const ZmqEndpoint endpoint(socket, options);
        require(endpoint.url().starts_with("tcp://127.") ||
                    endpoint.url().starts_with("tcp://[::1]:"),
                "it listens on this machine only");
    } catch (const MirelException&) { // refused
    }
}

} // namespace
} // namespace mirel

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string url(reinterpret_cast<const char*>(data), size);
    mirel::tryNats(url);
    mirel::tryZmq(url);
    return 0;
}
