#include "channels/nats/NatsTransport.h"

#include "channels/nats/publish/NatsCaller.h"
#include "channels/nats/read/NatsChannel.h"

namespace mirel {

std::unique_ptr<ServiceChannel> NatsTransport::openChannel(const ChannelSettings& settings) const {
    NatsChannelOptions options = m_channel;
    options.connection.url = settings.url;
    options.connection.giveUp = settings.giveUp;
    options.maxMessageBytes = settings.maxMessageBytes;
    return std::make_unique<NatsChannel>(options);
}

std::unique_ptr<Caller> NatsTransport::openCaller(const CallerSettings& settings) const {
    NatsCallerOptions options = m_caller;
    options.connection.url = settings.url;
    options.connection.patience = settings.patience;
    options.maxMessageBytes = settings.maxMessageBytes;
    return std::make_unique<NatsCaller>(options);
}

} // namespace mirel
