#pragma once

#include "channels/open/Transport.h"
#include "channels/zmq/ZmqCaller.h"
#include "channels/zmq/ZmqChannelOptions.h"

namespace mirel {

/// Addresses and options of the channel between processes over ZeroMQ.
class ZmqDeclaration : public Transport {
public:
    ZmqDeclaration();

    std::vector<TransportOption> channelOptions() override;
    std::vector<TransportOption> callerOptions() override;

protected:
    ZmqChannelOptions m_channel;
    ZmqCallerOptions m_caller;

private:
    /// See ZmqSecurity.h.
    virtual void writeNewKeys(const std::string& name) const;
};

} // namespace mirel
