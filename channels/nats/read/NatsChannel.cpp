#include "channels/nats/read/NatsChannel.h"

#include "channels/ChannelCounters.h"
#include "channels/RandomName.h"
#include "channels/nats/read/NatsAnswers.h"
#include "channels/nats/read/NatsLedger.h"
#include "channels/nats/read/NatsOutbox.h"
#include "channels/nats/read/NatsReader.h"
#include "channels/nats/wire/NatsConnection.h"
#include "channels/nats/wire/NatsDelivery.h"
#include "channels/queue/MessageQueue.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/MirelException.h"
#include "runtime/values/MessageRules.h"

#include <utility>

namespace mirel {

namespace {

constexpr std::size_t kMostUnacknowledged = 100000;
constexpr std::chrono::milliseconds kShortestLease{1000};
constexpr std::chrono::milliseconds kShortestAcknowledgement{1000};

const NatsChannelOptions& checked(const NatsChannelOptions& options) {
    const auto require = [](bool good, const char* text) {
        if (!good)
            throw MirelException(text, __FILE__, __LINE__);
    };
    require(options.maxUnacknowledged >= 1 && options.maxUnacknowledged <= kMostUnacknowledged,
            "1 to 100000 requests may be unacknowledged");
    require(options.acknowledgeWithin >= kShortestAcknowledgement,
            "the time for acknowledging must be a second at least");
    require(options.maxDeliveries >= 2,
            "a request must be delivered twice at least before it is given up: the first time does "
            "not tell it from the requests beside it");
    require(options.lease >= kShortestLease, "a lease must last a second at least");
    require(options.maxMessageBytes >= 1, "messages must have a byte at least");
    return options;
}

} // namespace

NatsChannel::NatsChannel(const NatsChannelOptions& options)
    : ServiceChannel("NatsChannel", options.connection.url),
      m_options(checked(options)),
      m_connection(std::make_shared<NatsConnection>(options.connection)),
      m_outbox(
          std::make_shared<NatsOutbox>([connection = m_connection](const NatsOutbox::Item& item) {
              connection->publish(item.to, item.bytes, item.replyTo);
          })),
      m_ledger(
          std::make_shared<NatsLedger>([outbox = m_outbox](const std::string& to, const char* how) {
              outbox->add({to, how, {}});
          })),
      m_queue(
          std::make_unique<MessageQueue>(options.maxUnacknowledged * options.stream.partitions)),
      m_inbox(m_connection->address().hosts() + randomName() + "."),
      m_answers(std::make_shared<NatsAnswers>(m_connection, m_outbox, m_ledger, m_counters,
                                              options.maxMessageBytes, m_inbox)) {
    answerBy(m_answers);
    provideStream(*m_connection, options.stream, options.connection);
    try {
        m_reader = std::make_unique<NatsReader>(*m_connection, m_options, *m_queue, *m_ledger,
                                                *m_counters, *m_answers, m_inbox);
        m_answers->setLeases(&m_reader->leases());
    } catch (const NatsError& failure) {
        throw MirelException("the service at " + url() + " cannot be read: " + failure.what(),
                             __FILE__, __LINE__);
    }
}

NatsChannel::~NatsChannel() {
    close();
    for (CommsChannelDataContainerMessage& msg : m_queue->takeRest())
        if (const auto way = NatsReturn::parse(msg.callbackChannel()))
            m_ledger->drop(way->partition, way->streamSequence);
    m_answers->setLeases(nullptr); // they go with the reader
}

void NatsChannel::leaveRest() { m_answers->leaveRest(); }

bool NatsChannel::readNext(CommsChannelDataContainerMessage& msg) {
    settleLastRead();
    for (;;) {
        if (!m_queue->read(msg))
            return false;
        // Otherwise it is another host's by now, or again ours but out of its turn.
        if (m_answers->claim(msg.callbackChannel()))
            break;
    }
    if (!isInvokerRequest(msg))
        m_lastRead = msg.callbackChannel();
    return true;
}

void NatsChannel::settleLastRead() {
    if (!m_lastRead.empty())
        m_answers->acknowledge(std::exchange(m_lastRead, {}));
}

void NatsChannel::closeTransport() { m_queue->close(); }

std::string NatsChannel::url() const { return m_connection->address().url(); }

} // namespace mirel
