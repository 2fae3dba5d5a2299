#pragma once

#include "channels/zmq/ZmqDeclaration.h"

namespace mirel {

/// Opens channels and callers over ZeroMQ.
class ZmqTransport : public ZmqDeclaration {
public:
    bool built() const override { return true; }
    std::unique_ptr<ServiceChannel> openChannel(const ChannelSettings& settings) const override;
    std::unique_ptr<Caller> openCaller(const CallerSettings& settings) const override;

private:
    void writeNewKeys(const std::string& name) const override;
};

} // namespace mirel
