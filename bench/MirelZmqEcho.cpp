#include "bench/MirelEcho.h"
#include "bench/ZmqEcho.h"
#include "channels/zmq/ZmqCaller.h"
#include "channels/zmq/ZmqChannel.h"

namespace bench {

std::unique_ptr<EchoService> serveMirelZmqEcho(const std::string& url) {
    mirel::ZmqChannelOptions options;
    options.url = url;
    return serveMirelEcho(std::make_unique<mirel::ZmqChannel>(options));
}

std::unique_ptr<EchoCaller> callMirelZmqEcho(const std::string& url, int requests, int sources) {
    mirel::ZmqCallerOptions options;
    options.url = url;
    return callMirelEcho(std::make_unique<mirel::ZmqCaller>(options), requests, sources);
}

} // namespace bench
