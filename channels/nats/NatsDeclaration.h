#pragma once

#include "channels/nats/publish/NatsCallerOptions.h"
#include "channels/nats/read/NatsChannelOptions.h"
#include "channels/open/Transport.h"

namespace mirel {

/// Addresses and options of the channel over NATS JetStream.
class NatsDeclaration : public Transport {
public:
    NatsDeclaration();

    std::vector<TransportOption> channelOptions() override;
    std::vector<TransportOption> callerOptions() override;
    std::string callerName() const override { return m_caller.name; }

protected:
    NatsChannelOptions m_channel;
    NatsCallerOptions m_caller;
};

} // namespace mirel
