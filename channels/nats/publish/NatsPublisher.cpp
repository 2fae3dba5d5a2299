#include "channels/nats/publish/NatsPublisher.h"

#include "channels/nats/wire/NatsConnection.h"
#include "channels/nats/wire/NatsInbox.h"
#include "framework/Logging.h"
#include "framework/Threader.h"
#include "runtime/threads/PendingWakeUps.h"

#include <csignal>
#include <string_view>
#include <utility>

namespace mirel {

namespace {

using std::chrono::milliseconds;

constexpr std::int64_t kTickMs = 50;
constexpr milliseconds kConfirmation{2000}; ///< after which a message is sent once more
constexpr milliseconds kAfterRefusal{100};  ///< the same when it was refused
constexpr milliseconds kLast{2000};

} // namespace

NatsPublisher::NatsPublisher(NatsConnection& connection, std::size_t most)
    : m_connection(connection),
      m_most(most) {
    subscribe();
    unsigned long threadId = 0;
    Threader().createThread(threadId, this, "", 0, 0);
}

NatsPublisher::~NatsPublisher() {
    {
        std::unique_lock lock(m_mutex);
        if (!m_confirmed.wait_for(lock, kLast, [this] { return m_unconfirmed == 0; }))
            logAppUni("NatsCaller", __FILE__, 2, __LINE__,
                      "%zu messages were not confirmed, and may be lost", m_unconfirmed);
    }
    m_stop = true;
    waitForThreadCompletion();
    natsSubscription_Unsubscribe(m_subscription.get());
}

void NatsPublisher::subscribe() {
    m_inbox = newInbox();
    natsSubscription* made = nullptr;
    const natsStatus status =
        natsConnection_SubscribeSync(&made, m_connection.get(), (m_inbox + "*").c_str());
    m_subscription.reset(made);
    if (status != NATS_OK)
        throw NatsError(0, natsStatus_GetText(status));
    natsSubscription_SetPendingLimits(made, -1, -1); // bounded by what is not confirmed
}

bool NatsPublisher::send(Message message, milliseconds patience) {
    PendingWakeUps::ofThisThread().issue();
    std::unique_lock lock(m_mutex);
    if (!m_confirmed.wait_for(lock, patience, [this] { return m_unconfirmed < m_most; }))
        return false;
    ++m_unconfirmed;
    Source& source = m_sources[message.source];
    source.messages.push_back(std::move(message));
    if (source.messages.size() == 1)
        transmit(source);
    return true;
}

MirelThreadPriority NatsPublisher::getThreadPriorityForPlatform() { return ePriorityNormal; }

std::string NatsPublisher::type() { return "mirel-publish"; }

void NatsPublisher::run() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr); // signals are for the program's own threads
    auto nextLook = Clock::now();
    while (!m_stop && !m_connection.closed()) {
        natsMsg* msg = nullptr;
        if (natsSubscription_NextMsg(&msg, m_subscription.get(), kTickMs) == NATS_OK) {
            const NatsMessage owned(msg);
            confirm(msg);
        }
        if (Clock::now() >= nextLook) {
            repeatOverdue();
            nextLook = Clock::now() + milliseconds(kTickMs);
        }
    }
}

/// The engine's answer: stored, known already, or not now.
void NatsPublisher::confirm(natsMsg* msg) {
    const std::string_view bytes = bytesOf(msg);
    const bool stored = !bytes.empty() && bytes.find("\"error\"") == bytes.npos;

    const std::lock_guard lock(m_mutex);
    const auto expected = m_expected.find(natsMsg_GetSubject(msg));
    if (expected == m_expected.end())
        return; // of a message that is confirmed
    const auto found = m_sources.find(expected->second);
    Source& source = found->second;
    if (!stored) {
        source.sent = Clock::now() - kConfirmation + kAfterRefusal;
        if (!bytes.empty() && !std::exchange(m_toldRefusal, true))
            logAppUni("NatsCaller", __FILE__, 3, __LINE__,
                      "the engine does not take messages now, and is asked again: %.*s",
                      static_cast<int>(bytes.size()), bytes.data());
        return;
    }
    m_toldRefusal = false;
    for (const std::string& replyTo : source.replyTo)
        m_expected.erase(replyTo);
    source.replyTo.clear();
    source.messages.pop_front();
    --m_unconfirmed;
    m_confirmed.notify_all();
    if (source.messages.empty())
        m_sources.erase(found);
    else
        transmit(source);
}

void NatsPublisher::repeatOverdue() {
    // What was on its way when the connection was lost may be lost, too.
    const unsigned long losses = m_connection.losses();
    const bool anew = m_connection.connected() && std::exchange(m_losses, losses) != losses;
    const Clock::time_point due = Clock::now() - (anew ? milliseconds(0) : kConfirmation);
    const std::lock_guard lock(m_mutex);
    for (auto& [name, source] : m_sources)
        if (source.sent <= due)
            transmit(source);
}

/// The caller holds m_mutex. What cannot be sent now is overdue in its time.
void NatsPublisher::transmit(Source& source) {
    const Message& message = source.messages.front();
    const std::string& replyTo =
        source.replyTo.emplace_back(m_inbox + std::to_string(++m_transmissions));
    m_expected[replyTo] = message.source;
    source.sent = Clock::now();

    natsMsg* made = nullptr;
    if (natsMsg_Create(&made, message.subject.c_str(), replyTo.c_str(), message.bytes.data(),
                       static_cast<int>(message.bytes.size())) != NATS_OK)
        return;
    const NatsMessage owned(made);
    natsMsgHeader_Set(made, "Nats-Msg-Id", message.id.c_str());
    natsConnection_PublishMsg(m_connection.get(), made);
}

} // namespace mirel
