#include "bench/MirelEcho.h"
#include "bench/NatsEcho.h"
#include "channels/nats/publish/NatsCaller.h"
#include "channels/nats/read/NatsChannel.h"
#include "channels/nats/wire/NatsAddress.h"

namespace bench {

mirel::NatsChannelOptions natsEchoOptions(const std::string& url) {
    mirel::NatsChannelOptions options;
    options.connection.url = url;
    options.stream.replicas = static_cast<int>(mirel::NatsAddress(url).servers().size());
    return options;
}

std::unique_ptr<EchoService> serveMirelNatsEcho(const std::string& url) {
    return serveMirelEcho(std::make_unique<mirel::NatsChannel>(natsEchoOptions(url)));
}

std::unique_ptr<EchoCaller> callMirelNatsEcho(const std::string& url, int requests, int sources) {
    mirel::NatsCallerOptions options;
    options.connection = natsEchoOptions(url).connection;
    return callMirelEcho(std::make_unique<mirel::NatsCaller>(options), requests, sources);
}

} // namespace bench
