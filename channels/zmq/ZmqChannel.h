#pragma once

#include "channels/ServiceChannel.h"
#include "channels/zmq/ZmqChannelOptions.h"

#include <memory>
#include <string>

namespace mirel {

class MessageQueue;
class ZmqOutbox;
class ZmqSocketThread;

/// The channel of a service whose callers are other processes (see ZmqCaller). A thread of the
/// channel owns the socket: it checks what comes in and keeps it for the executor, and sends
/// answers whether or not the executor reads.
class ZmqChannel : public ServiceChannel {
public:
    /// Listens, and starts the channel's thread. `MirelException` with one clear text when it
    /// cannot. Restricts the process's umask for a moment while it makes an ipc socket.
    explicit ZmqChannel(const ZmqChannelOptions& options);

    /// As `close`; then sends the answers that were given so far, waiting at most about two seconds
    /// for callers that do not take them.
    ~ZmqChannel() override;

    /// With the port that the system chose if it was asked to.
    std::string url() const override;

private:
    bool readNext(CommsChannelDataContainerMessage& msg) override;

    /// Requests that were not read, and those that still arrive, are answered with a failure.
    void closeTransport() override;

    const std::shared_ptr<ZmqOutbox> m_outbox;
    const std::unique_ptr<MessageQueue> m_queue;
    const std::unique_ptr<ZmqSocketThread> m_thread; ///< uses the three above
};

} // namespace mirel
