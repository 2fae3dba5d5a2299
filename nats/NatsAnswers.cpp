#include "nats/NatsAnswers.h"

#include "nats/NatsConnection.h"
#include "nats/NatsDelivery.h"
#include "nats/NatsLedger.h"
#include "standalone/ChannelCounters.h"
#include "standalone/Envelope.h"

#include <algorithm>
#include <utility>

namespace mirel {

NatsAnswers::NatsAnswers(std::shared_ptr<NatsConnection> connection,
                         std::shared_ptr<NatsLedger> ledger,
                         std::shared_ptr<ChannelCounters> counters, std::size_t maxAnswerBytes)
    : m_connection(std::move(connection)),
      m_ledger(std::move(ledger)),
      m_counters(std::move(counters)),
      m_maxAnswerBytes(maxAnswerBytes) {}

void NatsAnswers::answer(Answer answer) {
    const auto way = NatsReturn::parse(answer.callbackChannel);
    if (!way) {
        m_counters->answersDropped.refuse("it belongs to no request of this channel");
        return;
    }
    std::string bytes = encode(answer);
    const std::size_t most = std::min(m_maxAnswerBytes, m_connection->largestMessage());
    if (bytes.size() > most) {
        answer.succeeded = false;
        answer.data = "the answer has " + std::to_string(bytes.size()) + " bytes and " +
                      std::to_string(most) + " are the limit";
        bytes = encode(answer);
    }
    // The answer first: whoever dies between the two leaves a request that is run again, and not one
    // that is never answered.
    if (m_connection->publish(way->answersTo, bytes))
        ++m_counters->answersSent;
    else
        m_counters->answersDropped.refuse("there is no connection, and no room to keep it");
    acknowledge(answer.callbackChannel);
}

void NatsAnswers::acknowledge(const std::string& callbackChannel) {
    const auto way = NatsReturn::parse(callbackChannel);
    if (!way)
        return;
    m_connection->publish(way->acknowledgeTo, "+ACK");
    m_ledger->remove(way->streamSequence);
}

} // namespace mirel
