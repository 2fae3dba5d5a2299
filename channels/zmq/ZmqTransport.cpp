#include "channels/zmq/ZmqTransport.h"

#include "channels/zmq/ZmqChannel.h"
#include "channels/zmq/ZmqSecurity.h"

namespace mirel {

std::unique_ptr<ServiceChannel> ZmqTransport::openChannel(const ChannelSettings& settings) const {
    ZmqChannelOptions options = m_channel;
    options.url = settings.url;
    options.maxMessageBytes = settings.maxMessageBytes;
    options.shares.total.requests = settings.maxUnfinished;
    options.shares.workers = settings.maxWorkers;
    return std::make_unique<ZmqChannel>(options);
}

std::unique_ptr<Caller> ZmqTransport::openCaller(const CallerSettings& settings) const {
    ZmqCallerOptions options = m_caller;
    options.url = settings.url;
    options.maxMessageBytes = settings.maxMessageBytes;
    options.patience = settings.patience;
    return std::make_unique<ZmqCaller>(options);
}

void ZmqTransport::writeNewKeys(const std::string& name) const { writeNewCurveKeys(name); }

} // namespace mirel
