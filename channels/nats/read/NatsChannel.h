#pragma once

#include "channels/nats/read/NatsChannelOptions.h"
#include "framework/CommsChannelIfc.h"

#include <memory>
#include <string>

namespace mirel {

class MessageQueue;
class NatsAnswers;
class NatsConnection;
class NatsLedger;
class NatsReader;
struct ChannelCounters;

/// The channel of a service whose requests are kept by NATS JetStream, on one server or several.
///
/// A request is acknowledged when its response is disposed of, any other message when the executor
/// has taken the next one. What is not acknowledged when this process ends, however it does, is
/// delivered to the next one that serves its partition, in its order.
class NatsChannel : public CommsChannelIfc {
public:
    /// Connects, makes what is missing on the server, and starts reading. `MirelException` with one
    /// clear text when it cannot.
    explicit NatsChannel(const NatsChannelOptions& options);

    /// As `close`; leaves to others what was not acknowledged.
    ~NatsChannel() override;

    bool readMessage(CommsChannelDataContainerMessage& msg) override;
    void close() override;

    /// To be asked for once for each response, as the response does: a request for which nobody has
    /// asked will not be answered, and is acknowledged like any other message.
    std::shared_ptr<AnswerSink> answerSink() override;

    /// To be called between the executor's shutdown and the pool's: what is not answered from then on
    /// is left to the next host, instead of failing. Any thread.
    void leaveRest();

    const std::string& url() const;
    std::shared_ptr<const ChannelCounters> counters() const;

private:
    void settleLastRead();

    const NatsChannelOptions m_options;
    const std::shared_ptr<ChannelCounters> m_counters;
    const std::shared_ptr<NatsConnection> m_connection;
    const std::shared_ptr<NatsLedger> m_ledger;
    const std::unique_ptr<MessageQueue> m_queue;
    const std::string m_inbox;
    const std::shared_ptr<NatsAnswers> m_answers;
    std::unique_ptr<NatsReader> m_reader; ///< uses all of the above

    /// The executor's thread only: what was read last and has no response yet. Its callback channel.
    std::string m_lastRead;
};

} // namespace mirel
