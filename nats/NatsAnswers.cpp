#include "nats/NatsAnswers.h"

#include "nats/NatsConnection.h"
#include "nats/NatsDelivery.h"
#include "nats/NatsLedger.h"
#include "standalone/ChannelCounters.h"
#include "standalone/Envelope.h"

#include <algorithm>
#include <utility>

namespace mirel {

namespace {

constexpr std::chrono::milliseconds kConfirmation{
    1000}; ///< after which an answer is sent once more
constexpr std::chrono::seconds kGivenUp{30};

} // namespace

NatsAnswers::NatsAnswers(std::shared_ptr<NatsConnection> connection,
                         std::shared_ptr<NatsLedger> ledger,
                         std::shared_ptr<ChannelCounters> counters, std::size_t maxAnswerBytes,
                         std::string inbox)
    : m_connection(std::move(connection)),
      m_ledger(std::move(ledger)),
      m_counters(std::move(counters)),
      m_maxAnswerBytes(maxAnswerBytes),
      m_inbox(std::move(inbox)) {}

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
    {
        const std::lock_guard lock(m_mutex);
        const auto now = Clock::now();
        const auto kept = m_unconfirmed.emplace(
            ++m_last, Unconfirmed{way->answersTo, std::move(bytes), now, now});
        send(m_last, kept.first->second);
    }
    ++m_counters->answersSent;
    // The answer first: whoever dies between the two leaves a request that is run again, and not one
    // that is never answered.
    acknowledge(answer.callbackChannel);
}

/// What cannot be sent now is repeated in its time.
void NatsAnswers::send(std::uint64_t number, const Unconfirmed& answer) {
    m_connection->publish(answer.answersTo, answer.bytes,
                          m_inbox + "answers." + std::to_string(number));
}

void NatsAnswers::acknowledge(const std::string& callbackChannel) {
    const auto way = NatsReturn::parse(callbackChannel);
    if (!way)
        return;
    m_connection->publish(way->acknowledgeTo, "+ACK");
    if (m_ledger->remove(way->streamSequence))
        m_connection->publish(m_inbox + "wake.0", "");
}

void NatsAnswers::confirmed(std::uint64_t number) {
    const std::lock_guard lock(m_mutex);
    m_unconfirmed.erase(number);
}

void NatsAnswers::repeat() {
    const std::lock_guard lock(m_mutex);
    const auto now = Clock::now();
    for (auto next = m_unconfirmed.begin(); next != m_unconfirmed.end();) {
        auto& [number, answer] = *next;
        if (now - answer.given >= kGivenUp) {
            m_counters->answersDropped.refuse("its caller does not confirm it");
            next = m_unconfirmed.erase(next);
            continue;
        }
        if (now - answer.sent >= kConfirmation) {
            answer.sent = now;
            send(number, answer);
        }
        ++next;
    }
}

bool NatsAnswers::allConfirmed() const {
    const std::lock_guard lock(m_mutex);
    return m_unconfirmed.empty();
}

} // namespace mirel
