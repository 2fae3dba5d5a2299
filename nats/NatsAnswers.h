#pragma once

#include "standalone/AnswerSink.h"

#include <memory>
#include <mutex>
#include <string>

namespace mirel {

class NatsConnection;
class NatsLedger;
struct ChannelCounters;

/// Sends answers to their callers and acknowledges what they answer. Any thread.
class NatsAnswers : public AnswerSink {
public:
    NatsAnswers(std::shared_ptr<NatsConnection> connection, std::shared_ptr<NatsLedger> ledger,
                std::shared_ptr<ChannelCounters> counters, std::size_t maxAnswerBytes);

    void answer(Answer answer) override;

    /// Acknowledges a message that has no answer, by what it carries as its callback channel.
    void acknowledge(const std::string& callbackChannel);

private:
    const std::shared_ptr<NatsConnection> m_connection;
    const std::shared_ptr<NatsLedger> m_ledger;
    const std::shared_ptr<ChannelCounters> m_counters;
    const std::size_t m_maxAnswerBytes;
};

} // namespace mirel
