#include "channels/nats/read/NatsPartition.h"

#include "channels/ChannelCounters.h"
#include "channels/Envelope.h"
#include "channels/ReceivedMessage.h"
#include "channels/nats/read/NatsAnswers.h"
#include "channels/nats/read/NatsAttempts.h"
#include "channels/nats/read/NatsDeadLetter.h"
#include "channels/nats/wire/NatsConnection.h"
#include "channels/nats/wire/NatsDelivery.h"
#include "channels/nats/wire/NatsHandles.h"
#include "channels/nats/wire/NatsStream.h"
#include "channels/queue/MessageQueue.h"
#include "framework/Logging.h"
#include "runtime/values/Answer.h"
#include "runtime/values/MessageRules.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace mirel {

namespace {

constexpr int kHeartbeatsMissed = 3;
constexpr std::chrono::milliseconds kFlush{1000};

// What the server says about a pull; anything else ends it for good.
constexpr std::string_view kHeartbeatStatus = "100";
constexpr std::string_view kTimeOut = "408";

// How a message is acknowledged that nobody can do anything with.
constexpr const char* kHopeless = "+TERM";

/// Empty: it has none.
std::string headerOf(natsMsg* msg, const char* name) {
    const char* value = nullptr;
    return natsMsgHeader_Get(msg, name, &value) == NATS_OK && value ? value : "";
}

} // namespace

NatsPartition::NatsPartition(const NatsReading& reading, unsigned number)
    : m_reading(reading),
      m_number(number),
      m_consumer(reading.connection, reading.options, number) {}

void NatsPartition::open(unsigned long tenure) {
    m_tenure = tenure;
    m_state = State::eOpening;
}

void NatsPartition::close() {
    m_tenure = 0;
    m_state = State::eClosed;
    forgetWaiting();
}

bool NatsPartition::isIdle() const {
    return m_reading.ledger.unsettled(m_number) == m_waiting.size();
}

void NatsPartition::tick(unsigned long connectionLosses, bool allRead) {
    if (m_state == State::eOpen && connectionLosses != m_connectionLosses)
        disturbed("the connection was lost");
    if (m_state == State::eOpen && allRead &&
        Clock::now() - m_lastHeard > kHeartbeatsMissed * kHeartbeat)
        disturbed("nothing is heard from the server");
    if (m_state == State::eOpen && m_expected == 0)
        pull();
    if (m_state == State::eOpen)
        handOut();
}

bool NatsPartition::wantsToOpen() const {
    return m_state == State::eOpening && isIdle() && m_reading.connection.connected();
}

void NatsPartition::tryToOpen(unsigned long connectionLosses) {
    m_connectionLosses = connectionLosses;
    try {
        if (!m_reading.answers.flush(kFlush)) // the last acknowledgements
            return;
        lookAtStream();
        if (const std::uint64_t dropped = m_reading.ledger.takeFirstDropped(m_number))
            m_handedOut.takeBack(dropped);
        m_consumer.renew();
        m_nextDelivery = 1;
        m_expected = 0;
        m_lastHeard = Clock::now();
        m_state = State::eOpen;
        m_toldFailure = false;
        if (loggingOnAppUni("NatsChannel", 4)) {
            const std::uint64_t doubt = m_consumer.inDoubt();
            logAppUni("NatsChannel", __FILE__, 4, __LINE__, "partition %u is read%s", m_number,
                      doubt == 0 ? ""
                                 : (", one at a time up to message " + std::to_string(doubt) +
                                    ": a host has died with these")
                                       .c_str());
        }
    } catch (const std::exception& failure) { // its answers may be unreadable, too
        tellFailure("the server cannot be asked for requests now, and is asked again",
                    failure.what());
    }
}

void NatsPartition::tellFailure(const char* what, const char* why) {
    if (!std::exchange(m_toldFailure, true))
        logAppUni("NatsChannel", __FILE__, 3, __LINE__, "partition %u: %s: %s", m_number, what,
                  why);
}

/// What is known about messages is known by their number in this stream, and worth nothing in
/// another one that was made in its place.
void NatsPartition::lookAtStream() {
    std::string created = createdAt(m_reading.connection);
    if (!m_streamCreated.empty() && created != m_streamCreated) {
        logAppUni("NatsChannel", __FILE__, 2, __LINE__,
                  "partition %u: the service's stream was made anew, and what it held is gone",
                  m_number);
        m_handedOut.clear();
        m_consumer.forgetDoubt();
    }
    m_streamCreated = std::move(created);
}

void NatsPartition::pull() {
    m_expected = m_reading.options.maxUnacknowledged;
    m_consumer.pull(m_expected,
                    m_reading.inbox + std::to_string(m_number) + "." + std::to_string(++m_pull));
}

void NatsPartition::disturbed(const std::string& why) {
    logAppUni("NatsChannel", __FILE__, 3, __LINE__,
              "partition %u is read again from the first request that is not acknowledged: %s",
              m_number, why.c_str());
    m_state = State::eOpening;
    forgetWaiting();
}

void NatsPartition::forgetWaiting() {
    for (const Waiting& waiting : m_waiting)
        m_reading.ledger.forget(m_number, waiting.sequence);
    m_waiting.clear();
}

void NatsPartition::take(natsMsg* msg, const NatsDelivery& delivery, const std::string& caller) {
    if (m_state != State::eOpen || delivery.consumer != m_consumer.name())
        return; // from before; it is delivered again
    m_lastHeard = Clock::now();
    if (delivery.consumerSequence != m_nextDelivery || delivery.times != 1) {
        disturbed(delivery.times != 1 ? "a message was repeated" : "a message is missing");
        return;
    }
    ++m_nextDelivery;
    m_expected -= std::min<std::size_t>(m_expected, 1);
    const std::string acknowledgeTo = natsMsg_GetReply(msg);
    if (m_handedOut.contains(delivery.streamSequence, delivery.stored)) {
        logSkipped(delivery.streamSequence, "was handed out before");
        m_reading.connection.publish(acknowledgeTo, kAcknowledged); // the first time, that got lost
        return;
    }
    Waiting waiting{{delivery.streamSequence, delivery.stored, natsMsg_GetSubject(msg), {}}, {}};
    m_reading.ledger.add(m_number, std::hash<std::string>()(waiting.from), waiting.sequence,
                         acknowledgeTo);
    auto decoded = decodeReceived(
        bytesOf(msg), NatsReturn{caller, m_number, m_tenure, waiting.sequence}.text(),
        m_reading.options.maxMessageBytes, m_reading.counters.refused,
        [&](const Answer& failure) { m_reading.answers.tell(caller, encode(failure)); });
    if (!decoded) {
        m_reading.ledger.settle(m_number, waiting.sequence, kHopeless);
        return;
    }
    waiting.msg = std::move(decoded->msg);
    waiting.id = headerOf(msg, "Nats-Msg-Id");
    waiting.from += ' ' + waiting.msg.sourceChannel();
    m_waiting.push_back(std::move(waiting));
}

/// Messages that are acknowledged because they have run.
void NatsPartition::logSkipped(std::uint64_t sequence, const char* why) const {
    if (loggingOnAppUni("NatsChannel", 4))
        logAppUni("NatsChannel", __FILE__, 4, __LINE__,
                  "partition %u: message %llu does not run again: it %s", m_number,
                  static_cast<unsigned long long>(sequence), why);
}

void NatsPartition::takeStatus(natsMsg* msg, unsigned long pull) {
    if (m_state != State::eOpen || pull != m_pull)
        return;
    const std::string code = headerOf(msg, "Status");
    if (code.empty())
        return; // not said about the pull: somebody had the server answer him here
    m_lastHeard = Clock::now();
    if (code == kTimeOut)
        m_expected = 0;
    else if (code != kHeartbeatStatus)
        disturbed("the server says " + std::string(code) + " " + headerOf(msg, "Description"));
}

void NatsPartition::handOut() {
    try {
        while (!m_waiting.empty() && dealWithFirst())
            m_waiting.pop_front();
        m_toldFailure = false;
    } catch (const NatsError& failure) {
        tellFailure(
            "a request that may have killed a host waits, because the server cannot note that now",
            failure.what());
    }
    if (!m_ready.empty())
        m_reading.queue.sendWhatFits(m_ready);
    m_ready.clear(); // not empty only if the queue is closed: then others will read it
}

/// False when it has to wait. Messages in doubt run one at a time, so that it is known of which one
/// a host dies.
bool NatsPartition::dealWithFirst() {
    Waiting& first = m_waiting.front();
    if (m_handedOut.isCopy(first)) {
        logSkipped(first.sequence, "was stored twice");
        m_reading.ledger.settle(m_number, first.sequence, kAcknowledged);
        return true;
    }
    if (first.sequence <= m_consumer.inDoubt()) {
        m_reading.ledger.wakeReader(m_number); // asked for first, or it may become idle in between
        // And the server must know: one that was run and is not acknowledged when its host dies
        // would be run before this one, and be counted in its place.
        if (!isIdle() || !m_reading.answers.flush(kFlush))
            return false;
        if (!m_reading.attempts.begin(m_number, first.name(), m_reading.options.maxDeliveries)) {
            giveUp(first);
            return true;
        }
    }
    m_handedOut.add(first);
    ++m_reading.counters.received;
    m_ready.push_back(std::move(first.msg));
    return true;
}

void NatsPartition::giveUp(Waiting& waiting) {
    CommsChannelDataContainerMessage& msg = waiting.msg;
    const std::string text = "given up: its host died " +
                             std::to_string(m_reading.options.maxDeliveries) +
                             " times while the request was in work";
    logAppUni("NatsChannel", __FILE__, 2, __LINE__,
              "message %llu of source '%s', request %ld, was %s",
              static_cast<unsigned long long>(waiting.sequence), msg.sourceChannel().c_str(),
              msg.requestId(), text.c_str());
    storeDeadLetter(m_reading.connection, encode(msg), text, waiting.name());
    if (isInvokerRequest(msg))
        m_reading.answers.tell(NatsReturn::parse(msg.callbackChannel()).value().caller,
                               encode(Answer{false, msg.requestId(), msg.sourceChannel(), "",
                                             "the request was " + text}));
    m_handedOut.add(waiting);
    m_reading.ledger.settle(m_number, waiting.sequence, kHopeless);
}

} // namespace mirel
