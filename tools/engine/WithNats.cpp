#include "engine/Engine.h"

#include "channels/nats/publish/NatsCaller.h"
#include "channels/nats/read/NatsChannel.h"

namespace mirel {

std::unique_ptr<ServiceChannel> openNatsChannel(const NatsChannelOptions& options) {
    return std::make_unique<NatsChannel>(options);
}

std::unique_ptr<Caller> newNatsCaller(const NatsCallerOptions& options) {
    return std::make_unique<NatsCaller>(options);
}

} // namespace mirel
