#include "channels/nats/read/NatsReader.h"

#include "channels/nats/read/NatsAnswers.h"
#include "channels/nats/wire/NatsConnection.h"
#include "channels/nats/wire/NatsDelivery.h"
#include "channels/queue/MessageQueue.h"
#include "framework/Logging.h"
#include "framework/Threader.h"
#include "runtime/threads/SignalsBlocked.h"

#include <charconv>
#include <cxxabi.h>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace mirel {

namespace {

constexpr std::int64_t kTickMs = 100;
constexpr std::chrono::seconds kLinger{1};      ///< for the last answers to be confirmed
constexpr std::chrono::milliseconds kRound{20}; ///< after which the partitions are looked after
constexpr const char* kInProgress = "+WPI";

/// The number that ends at the end of the text or before the next point; both are cut off.
unsigned long cutNumber(std::string_view& text) {
    unsigned long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    if (!text.empty())
        text.remove_prefix(1);
    return number;
}

} // namespace

NatsReader::NatsReader(NatsConnection& connection, const NatsChannelOptions& options,
                       MessageQueue& queue, NatsLedger& ledger, ChannelCounters& counters,
                       NatsAnswers& answers, const std::string& inbox)
    : m_attemptsKept(connection, connection.address().attempts(), std::chrono::milliseconds(0),
                     options.stream.replicas),
      m_attempts({[this](const std::string& key) {
                      const auto value = m_attemptsKept.get(key);
                      return value ? value->text : std::string();
                  },
                  [this](const std::string& key, const std::string& text) {
                      m_attemptsKept.put(key, text);
                  }}),
      m_answers(answers),
      m_reading{connection, options, queue, ledger, counters, m_attempts, answers, inbox},
      m_leases(connection, options) {
    for (unsigned number = 0; number < options.stream.partitions; ++number)
        m_partitions.emplace_back(m_reading, number);
    subscribe();
    unsigned long threadId = 0;
    Threader().createThread(threadId, this, "", 0, 0);
}

NatsReader::~NatsReader() {
    m_stop = true;
    waitForThreadCompletion(); // one tick at most, unless the server is asked just now
    natsSubscription_Unsubscribe(m_subscription.get());
}

void NatsReader::subscribe() {
    natsSubscription* made = nullptr;
    const natsStatus status = natsConnection_SubscribeSync(&made, m_reading.connection.get(),
                                                           (m_reading.inbox + ">").c_str());
    m_subscription.reset(made);
    if (status != NATS_OK)
        throw NatsError(0, natsStatus_GetText(status));
    // What the server delivers is bounded by what is not acknowledged; the library must drop none.
    natsSubscription_SetPendingLimits(made, -1, -1);
}

MirelThreadPriority NatsReader::getThreadPriorityForPlatform() {
    return ePriorityHigh; // what is in work is reported from here
}

std::string NatsReader::type() { return "mirel-nats"; }

void NatsReader::run() {
    const SignalsBlocked signalsBlocked;
    std::optional<std::string> failure;
    try {
        read();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (const std::exception& thrown) {
        failure = thrown.what();
    } catch (...) { // by a log sink, perhaps
        failure = "an exception of unknown type";
    }
    m_reading.queue.close(); // ends the executor's loop if it has not ended
    if (!failure)
        return;
    // Nobody reads the partitions here any more, so that others must. As when a lease runs out,
    // what has not been started is left to them, and what is running runs there once more.
    m_leases.end();
    logAppUni("NatsChannel", __FILE__, 2, __LINE__, "the channel ends: %s", failure->c_str());
}

void NatsReader::read() {
    bool allRead = false;
    while (!m_stop) {
        if (m_reading.connection.closed())
            throw std::runtime_error("the connection is refused again and again");
        bool opened = false; // one in a round, because the others must be read meanwhile
        for (unsigned number = 0; number < m_partitions.size() && !m_stop; ++number) {
            follow(m_partitions[number], number);
            if (!opened && m_partitions[number].wantsToOpen()) {
                m_partitions[number].tryToOpen(m_reading.connection.losses());
                opened = true;
            }
            m_partitions[number].tick(m_reading.connection.losses(), allRead);
        }
        tellProgress();
        m_answers.repeat();
        allRead = receiveSome(opened ? 0 : kTickMs);
    }
    leaveAll();
    const auto deadline = NatsLedger::Clock::now() + kLinger;
    while (!m_answers.allConfirmed() && NatsLedger::Clock::now() < deadline)
        receiveSome(kTickMs);
}

void NatsReader::follow(NatsPartition& partition, unsigned number) {
    const unsigned long tenure = m_leases.tenure(number);
    const bool surplus = m_leases.isSurplus(number);
    if (partition.tenure() != 0 && (partition.tenure() != tenure || surplus)) {
        logAppUni("NatsChannel", __FILE__, 3, __LINE__,
                  "partition %u is not served here any more: %s", number,
                  surplus ? "another host has too few partitions" : "its lease ran out");
        partition.close();
    }
    if (tenure != 0 && surplus && partition.isIdle()) {
        if (!m_answers.flush(std::chrono::milliseconds(kTickMs)))
            return; // the next host would run again what is not acknowledged
        static_cast<void>(partition.leave());
        m_leases.giveBack(number);
    } else if (tenure != 0 && !surplus && partition.tenure() == 0) {
        partition.open(tenure);
    }
}

/// Whether it has read all that was delivered.
bool NatsReader::receiveSome(std::int64_t patienceMs) {
    const auto end = NatsLedger::Clock::now() + kRound;
    do {
        natsMsg* msg = nullptr;
        if (natsSubscription_NextMsg(&msg, m_subscription.get(), patienceMs) != NATS_OK)
            return true;
        const NatsMessage owned(msg);
        take(msg);
        patienceMs = 0;
    } while (NatsLedger::Clock::now() < end);
    return false;
}

void NatsReader::take(natsMsg* msg) {
    const char* const reply = natsMsg_GetReply(msg);
    if (const auto delivery = NatsDelivery::parse(reply ? reply : "")) {
        const auto request = m_reading.connection.address().parseRequest(natsMsg_GetSubject(msg));
        if (request && request->partition < m_partitions.size())
            m_partitions[request->partition].take(msg, *delivery, request->caller);
        return;
    }
    takeOwn(msg);
}

/// INBOX.PARTITION.PULL, INBOX.taken.CALLER.0 with numbers in its body, or INBOX.wake.0
void NatsReader::takeOwn(natsMsg* msg) {
    std::string_view subject = natsMsg_GetSubject(msg);
    subject.remove_prefix(std::min(subject.size(), m_reading.inbox.size()));
    if (subject.starts_with("wake."))
        return;
    if (const auto caller = NatsAddress::callerOfConfirmations(subject)) {
        for (const std::uint64_t number : readConfirmations(bytesOf(msg)))
            m_answers.confirmed(*caller, number);
        return;
    }
    const unsigned long number = cutNumber(subject);
    if (number < m_partitions.size())
        m_partitions[number].takeStatus(msg, cutNumber(subject));
}

void NatsReader::tellProgress() {
    const auto now = NatsLedger::Clock::now();
    if (now < m_nextProgress)
        return;
    const auto half = m_reading.options.acknowledgeWithin / 2;
    m_nextProgress = now + half / 4;
    for (const std::string& acknowledgeTo : m_reading.ledger.silentFor(half))
        m_reading.connection.publish(acknowledgeTo, kInProgress);
}

void NatsReader::leaveAll() {
    if (!m_reading.connection.connected())
        return; // the successor does the rest
    for (unsigned number = 0; number < m_partitions.size(); ++number) {
        NatsPartition& partition = m_partitions[number];
        if (partition.tenure() == 0)
            continue;
        partition.close();
        if (partition.isIdle() &&
            !(m_answers.flush(std::chrono::milliseconds(kTickMs)) && partition.leave()))
            return;
    }
}

} // namespace mirel
