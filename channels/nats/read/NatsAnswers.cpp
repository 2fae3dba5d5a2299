#include "channels/nats/read/NatsAnswers.h"

#include "channels/ChannelCounters.h"
#include "channels/Envelope.h"
#include "channels/ReceivedMessage.h"
#include "channels/nats/lease/NatsLeases.h"
#include "channels/nats/read/NatsLedger.h"
#include "channels/nats/read/NatsOutbox.h"
#include "channels/nats/wire/NatsConnection.h"
#include "channels/nats/wire/NatsDelivery.h"

#include <algorithm>
#include <utility>

namespace mirel {

namespace {

constexpr std::chrono::milliseconds kConfirmation{
    1000}; ///< after which an answer is sent once more; then twice as long
constexpr std::chrono::seconds kGivenUp{30};
constexpr std::size_t kMostKept = 20000;
constexpr std::size_t kMostKeptBytes = std::size_t{64} << 20;

} // namespace

NatsAnswers::NatsAnswers(std::shared_ptr<NatsConnection> connection,
                         std::shared_ptr<NatsOutbox> outbox, std::shared_ptr<NatsLedger> ledger,
                         std::shared_ptr<ChannelCounters> counters, std::size_t maxAnswerBytes,
                         std::string inbox)
    : m_connection(std::move(connection)),
      m_outbox(std::move(outbox)),
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
        answer.data = tooLong("the answer", bytes.size(), most);
        bytes = encode(answer);
    }
    keep(way->caller, std::move(bytes));
    ++m_counters->answersSent;
    // The answer first: whoever dies between the two leaves a request that is run again, and not
    // one that is never answered.
    acknowledge(*way);
    m_outbox->send();
}

bool NatsAnswers::abandon(Answer failure) {
    const auto way = NatsReturn::parse(failure.callbackChannel);
    if (!m_leavesRest || !way) {
        answer(std::move(failure));
        return true;
    }
    m_ledger->drop(way->partition, way->streamSequence);
    return false;
}

bool NatsAnswers::claim(const std::string& callbackChannel) {
    const auto way = NatsReturn::parse(callbackChannel);
    {
        const Lock lock(m_mutex);
        if (way && m_leases && m_leases->tenure(way->partition) == way->tenure)
            return true;
    }
    if (way)
        m_ledger->drop(way->partition, way->streamSequence);
    return false;
}

void NatsAnswers::setLeases(const NatsLeases* leases) {
    const Lock lock(m_mutex);
    m_leases = leases;
}

void NatsAnswers::leaveRest() { m_leavesRest = true; }

void NatsAnswers::tell(std::string caller, std::string bytes) {
    keep(std::move(caller), std::move(bytes));
    m_outbox->send();
}

/// Sends with what comes next, and keeps it until it is confirmed.
void NatsAnswers::keep(std::string caller, std::string bytes) {
    {
        const Lock lock(m_mutex);
        const auto now = Clock::now();
        m_keptBytes += bytes.size();
        const auto kept =
            m_unconfirmed.emplace(++m_last, Unconfirmed{std::move(caller), std::move(bytes), now,
                                                        now + kConfirmation, 2 * kConfirmation});
        put(m_last, kept.first->second);
        while (m_unconfirmed.size() > kMostKept || m_keptBytes > kMostKeptBytes)
            forgetFirst();
    }
    tellForgotten();
}

void NatsAnswers::forgetFirst() {
    ++m_forgotten;
    m_keptBytes -= m_unconfirmed.begin()->second.bytes.size();
    m_unconfirmed.erase(m_unconfirmed.begin());
}

void NatsAnswers::tellForgotten() {
    std::size_t forgotten = 0;
    {
        const Lock lock(m_mutex);
        forgotten = std::exchange(m_forgotten, 0);
    }
    for (; forgotten > 0; --forgotten)
        m_counters->answersDropped.refuse("its caller does not confirm it");
}

/// What cannot be sent now is repeated in its time.
void NatsAnswers::put(std::uint64_t number, const Unconfirmed& answer) {
    m_outbox->put({m_connection->address().answers(answer.caller), answer.bytes,
                   m_inbox + NatsAddress::confirmations(answer.caller) + std::to_string(number)});
}

void NatsAnswers::acknowledge(const std::string& callbackChannel) {
    if (const auto way = NatsReturn::parse(callbackChannel))
        acknowledge(*way);
}

void NatsAnswers::acknowledge(const NatsReturn& way) {
    if (m_ledger->settle(way.partition, way.streamSequence, kAcknowledged))
        m_outbox->add({m_inbox + "wake.0", "", {}}); // behind the acknowledgement
}

void NatsAnswers::confirmed(const std::string& caller, std::uint64_t number) {
    const Lock lock(m_mutex);
    const auto found = m_unconfirmed.find(number);
    if (found == m_unconfirmed.end() || found->second.caller != caller)
        return;
    m_keptBytes -= found->second.bytes.size();
    m_unconfirmed.erase(found);
}

void NatsAnswers::repeat() {
    const unsigned long losses = m_connection->losses();
    const bool connected = m_connection->connected();
    {
        const Lock lock(m_mutex);
        const auto now = Clock::now();
        while (!m_unconfirmed.empty() && now - m_unconfirmed.begin()->second.given >= kGivenUp)
            forgetFirst();
        // What was on its way when the connection was lost may be lost, too.
        const bool anew = connected && std::exchange(m_losses, losses) != losses;
        for (auto& [number, answer] : m_unconfirmed) {
            if (!connected || (now < answer.nextTime && !anew))
                continue;
            answer.nextTime = now + std::exchange(answer.patience, 2 * answer.patience);
            put(number, answer);
        }
    }
    m_outbox->send();
    tellForgotten();
}

bool NatsAnswers::flush(std::chrono::milliseconds patience) {
    return m_outbox->waitUntilSent(patience) && m_connection->flush(patience);
}

bool NatsAnswers::allConfirmed() const {
    const Lock lock(m_mutex);
    return m_unconfirmed.empty();
}

} // namespace mirel
