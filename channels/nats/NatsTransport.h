#pragma once

#include "channels/nats/NatsDeclaration.h"

namespace mirel {

/// Opens channels and callers over NATS JetStream.
class NatsTransport : public NatsDeclaration {
public:
    bool built() const override { return true; }
    std::unique_ptr<ServiceChannel> openChannel(const ChannelSettings& settings) const override;
    std::unique_ptr<Caller> openCaller(const CallerSettings& settings) const override;
};

} // namespace mirel
