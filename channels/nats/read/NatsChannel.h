#pragma once

#include "channels/ServiceChannel.h"
#include "channels/nats/read/NatsChannelOptions.h"

#include <memory>
#include <string>

namespace mirel {

class MessageQueue;
class NatsAnswers;
class NatsConnection;
class NatsLedger;
class NatsOutbox;
class NatsReader;

/// The channel of a service whose requests are kept by NATS JetStream, on one server or several.
///
/// A request is acknowledged when its response is disposed of, any other message when the executor
/// has taken the next one. What is not acknowledged when this process ends, however it does, is
/// delivered to the next one that serves its partition, in its order.
class NatsChannel : public ServiceChannel {
public:
    /// Connects, makes what is missing on the server, and starts reading. `MirelException` with one
    /// clear text when it cannot.
    explicit NatsChannel(const NatsChannelOptions& options);

    /// As `close`; leaves to others what was not acknowledged.
    ~NatsChannel() override;

    void leaveRest() override;
    std::string url() const override;

private:
    bool readNext(CommsChannelDataContainerMessage& msg) override;
    void closeTransport() override;
    void settleLastRead();

    const NatsChannelOptions m_options;
    const std::shared_ptr<NatsConnection> m_connection;
    const std::shared_ptr<NatsOutbox> m_outbox;
    const std::shared_ptr<NatsLedger> m_ledger;
    const std::unique_ptr<MessageQueue> m_queue;
    const std::string m_inbox;
    const std::shared_ptr<NatsAnswers> m_answers;
    std::unique_ptr<NatsReader> m_reader; ///< uses all of the above

    /// The executor's thread only: the callback channel of what was read last, unless it was a
    /// request, which is acknowledged with its answer.
    std::string m_lastRead;
};

} // namespace mirel
