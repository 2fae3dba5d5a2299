#include "engine/Engine.h"

#include "channels/nats/publish/NatsCaller.h"
#include "channels/nats/read/NatsChannel.h"

namespace mirel {

ServedChannel openNatsChannel(const NatsChannelOptions& options) {
    auto channel = std::make_unique<NatsChannel>(options);
    std::string url = channel->url();
    auto counters = channel->counters();
    NatsChannel* const served = channel.get();
    return {std::move(channel), std::move(url), std::move(counters),
            [served] { served->leaveRest(); }};
}

std::unique_ptr<Caller> newNatsCaller(const NatsCallerOptions& options) {
    return std::make_unique<NatsCaller>(options);
}

} // namespace mirel
