#include "channels/nats/publish/NatsCaller.h"

#include "channels/Envelope.h"
#include "channels/RandomName.h"
#include "channels/ReceivedMessage.h"
#include "channels/nats/publish/NatsMessageIds.h"
#include "channels/nats/publish/NatsPublisher.h"
#include "channels/nats/wire/NatsConnection.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/MirelException.h"
#include "runtime/threads/PendingWakeUps.h"
#include "runtime/values/MessageRules.h"

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string_view>

namespace mirel {

namespace {

constexpr std::size_t kMostUnconfirmed = 1000;
constexpr std::size_t kConfirmedAtOnce = 64; ///< answers
constexpr std::size_t kOverhead = 200;       ///< of the server's header, which counts to its limit

[[noreturn]] void fail(const std::string& text) { throw MirelException(text, __FILE__, __LINE__); }

std::string hexadecimal(std::uint64_t number) {
    std::ostringstream text;
    text << std::hex << number;
    return text.str();
}

/// What is acknowledged one after the other is on one subject: the requests of a source, and all
/// that is no request. See NatsLedger.
std::string lineOf(CommsChannelDataContainerMessage& msg) {
    return isInvokerRequest(msg) ? hexadecimal(stableHash(msg.sourceChannel())) : "-";
}

const std::string& checked(const std::string& name) {
    if (!name.empty() && !NatsAddress::isToken(name))
        fail("a caller's name consists of letters, digits, - and _, unlike \"" + name + "\"");
    return name;
}

} // namespace

NatsCaller::NatsCaller(const NatsCallerOptions& options)
    : m_options(options),
      m_name(NatsAddress::caller(options.connection.user, checked(options.name).empty()
                                                              ? randomCallerName()
                                                              : options.name)),
      m_run(randomName()),
      m_ids(std::make_unique<const NatsMessageIds>(
          options.name.empty() ? NatsMessageIds::unrepeatable()
                               : NatsMessageIds::repeatable(options.connection))),
      m_connection(std::make_unique<NatsConnection>(options.connection)) {
    m_service = serviceAt(*m_connection, options.connection);
    natsSubscription* made = nullptr;
    const natsStatus status = natsConnection_SubscribeSync(
        &made, m_connection->get(), m_connection->address().answers(m_name).c_str());
    m_answers.reset(made);
    if (status != NATS_OK)
        fail("no answers can be received: " + std::string(natsStatus_GetText(status)));
    natsSubscription_SetPendingLimits(made, -1, -1);
    try {
        m_publisher = std::make_unique<NatsPublisher>(*m_connection, kMostUnconfirmed);
    } catch (const NatsError& failure) {
        fail(std::string("nothing can be sent: ") + failure.what());
    }
}

NatsCaller::~NatsCaller() {
    confirmTaken();
    natsSubscription_Unsubscribe(m_answers.get());
}

bool NatsCaller::connected() { return m_connection->connected(); }

CallerShare NatsCaller::share() const {
    CallerShare share;
    // An answer comes before its request has left the stream.
    share.source.requests = m_service.maxOfSource - m_service.maxOfSource / 4;
    return share;
}

bool NatsCaller::send(CommsChannelDataContainerMessage& msg, std::chrono::milliseconds patience) {
    std::string bytes = encode(msg);
    const std::size_t server = m_connection->largestMessage();
    const std::size_t most =
        std::min(m_options.maxMessageBytes, server - std::min(server, kOverhead));
    if (bytes.size() > most)
        fail(tooLong("the message", bytes.size(), most));
    checkConnection();
    const std::string source = msg.sourceChannel();
    const bool taken = m_publisher->send(
        {source,
         m_connection->address().requests(partitionOf(source, m_service.partitions), m_name, m_run,
                                          lineOf(msg)),
         idOf(msg), std::move(bytes)},
        patience);
    if (taken && isInvokerRequest(msg))
        m_order.sent(source, msg.requestId());
    return taken;
}

/// By which the server knows a message that is sent once more. Request numbers tell the requests of
/// one source apart; nothing tells other messages apart.
std::string NatsCaller::idOf(CommsChannelDataContainerMessage& msg) {
    if (!isInvokerRequest(msg))
        return m_ids->of(m_name + " " + m_run + " " + std::to_string(++m_unanswerable));
    return m_ids->of(m_name + " request " + std::to_string(msg.requestId()) + " of " +
                     msg.sourceChannel());
}

void NatsCaller::checkConnection() {
    if (m_connection->closed())
        fail("the connection to " + m_connection->address().url() + " is refused again and again");
}

std::optional<Answer> NatsCaller::receive(std::chrono::milliseconds patience) {
    using std::chrono::milliseconds;
    using Clock = std::chrono::steady_clock;
    PendingWakeUps::ofThisThread().issue();
    const auto deadline = Clock::now() + patience;
    for (;;) {
        const auto now = Clock::now();
        if (std::optional<Answer> answer = m_order.next(now))
            return answer;
        const auto until = std::min(deadline, m_order.nextChange().value_or(deadline));
        natsMsg* msg = nullptr;
        natsStatus status = natsSubscription_NextMsg(&msg, m_answers.get(), 0);
        if (status == NATS_TIMEOUT) {
            confirmTaken(); // together what came together, but before we wait
            status = natsSubscription_NextMsg(
                &msg, m_answers.get(),
                std::chrono::ceil<milliseconds>(std::max(until - now, {})).count());
        }
        const NatsMessage owned(msg);
        if (status == NATS_OK)
            take(msg);
        else
            checkConnection();
        if (status != NATS_OK && now >= deadline)
            return std::nullopt;
    }
}

void NatsCaller::confirmTaken() {
    for (const auto& [where, numbers] : m_toConfirm)
        m_connection->publish(where + "0", numbers);
    m_toConfirm.clear();
    m_unconfirmed = 0;
}

/// Whoever may publish can have sent this, or had the server send it.
void NatsCaller::take(natsMsg* msg) {
    try {
        Answer answer = decodeAnswer(bytesOf(msg));
        // Also if it is to nothing: it may be one to a former process of this name.
        if (const char* const confirmTo = natsMsg_GetReply(msg))
            confirmLater(confirmTo);
        if (!m_order.came(std::move(answer), std::chrono::steady_clock::now()))
            ++m_skipped;
    } catch (const EnvelopeError&) {
        ++m_skipped;
    }
}

/// If that is where a host wants it: nobody shall make us publish where he could not himself.
void NatsCaller::confirmLater(std::string_view confirmTo) {
    const std::size_t number = confirmTo.rfind('.') + 1;
    const std::string_view where = confirmTo.substr(0, number);
    if (!where.starts_with(m_connection->address().hosts()) ||
        !where.ends_with(NatsAddress::confirmations(m_name)))
        return;
    m_toConfirm[std::string(where)].append(confirmTo.substr(number)).append(1, ' ');
    if (++m_unconfirmed >= kConfirmedAtOnce)
        confirmTaken();
}

} // namespace mirel
