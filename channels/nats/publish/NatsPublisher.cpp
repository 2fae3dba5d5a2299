#include "channels/nats/publish/NatsPublisher.h"

#include "channels/nats/wire/NatsConnection.h"
#include "framework/Logging.h"
#include "framework/Threader.h"
#include "runtime/threads/PendingWakeUps.h"
#include "runtime/threads/SignalsBlocked.h"

#include <string_view>
#include <utility>

namespace mirel {

namespace {

using std::chrono::milliseconds;

constexpr std::int64_t kTickMs = 10;
constexpr milliseconds kLast{2000};

/// The server's words, or what they mean.
std::string reasonIn(std::string_view refusal) {
    if (refusal.find(":10077,") != refusal.npos)
        return "the service keeps no more unanswered requests of their source (--max-of-source of "
               "its hosts)";
    return std::string(refusal);
}

} // namespace

NatsPublisher::NatsPublisher(NatsConnection& connection, std::size_t most)
    : m_connection(connection),
      m_inbox(connection.newInbox()),
      m_refusals("NatsCaller", "messages to " + connection.address().url()),
      m_window(most, m_inbox) {
    subscribe();
    unsigned long threadId = 0;
    Threader().createThread(threadId, this, "", 0, 0);
}

NatsPublisher::~NatsPublisher() {
    if (const std::size_t unconfirmed = waitForLast(); unconfirmed > 0)
        logAppUni("NatsCaller", __FILE__, 2, __LINE__,
                  "the server has not confirmed %zu messages, which may be lost", unconfirmed);
    m_stop = true;
    waitForThreadCompletion();
    natsSubscription_Unsubscribe(m_subscription.get());
}

std::size_t NatsPublisher::waitForLast() {
    Lock lock(m_mutex);
    const auto deadline = Clock::now() + kLast;
    while (m_window.unconfirmed() > 0 && lock.waitUntil(m_confirmed, deadline)) {
    }
    return m_window.unconfirmed();
}

void NatsPublisher::subscribe() {
    natsSubscription* made = nullptr;
    const natsStatus status =
        natsConnection_SubscribeSync(&made, m_connection.get(), (m_inbox + "*").c_str());
    m_subscription.reset(made);
    if (status != NATS_OK)
        throw NatsError(0, natsStatus_GetText(status));
    natsSubscription_SetPendingLimits(made, -1, -1); // bounded by what is not confirmed
}

bool NatsPublisher::send(NatsSendWindow::Message message, milliseconds patience) {
    PendingWakeUps::ofThisThread().issue();
    Lock lock(m_mutex);
    const auto deadline = Clock::now() + patience;
    while (m_window.full() && lock.waitUntil(m_confirmed, deadline)) {
    }
    if (m_window.full())
        return false;
    const auto now = m_window.add(std::move(message), Clock::now());
    lock.unlock();
    if (now)
        transmit(*now);
    return true;
}

MirelThreadPriority NatsPublisher::getThreadPriorityForPlatform() { return ePriorityNormal; }

std::string NatsPublisher::type() { return "mirel-publish"; }

void NatsPublisher::run() {
    const SignalsBlocked signalsBlocked;
    auto nextLook = Clock::now();
    while (!m_stop && !m_connection.closed()) {
        natsMsg* msg = nullptr;
        if (natsSubscription_NextMsg(&msg, m_subscription.get(), kTickMs) == NATS_OK) {
            const NatsMessage owned(msg);
            take(msg);
        }
        if (Clock::now() >= nextLook) {
            repeatOverdue();
            nextLook = Clock::now() + milliseconds(kTickMs);
        }
    }
}

/// The server's answer: stored, known already, or not now.
void NatsPublisher::take(natsMsg* msg) {
    const std::string_view bytes = bytesOf(msg);
    const bool stored = !bytes.empty() && bytes.find("\"error\"") == bytes.npos;
    if (!stored && !bytes.empty())
        m_refusals.refuse(reasonIn(bytes) + "; they are sent again");

    Lock lock(m_mutex);
    if (!stored) {
        m_window.refused(natsMsg_GetSubject(msg), Clock::now());
        return;
    }
    const auto next = m_window.confirmed(natsMsg_GetSubject(msg), Clock::now());
    m_confirmed.notify_all();
    lock.unlock();
    if (next)
        transmit(*next);
}

void NatsPublisher::repeatOverdue() {
    if (!m_connection.connected())
        return;
    // What was on its way when the connection was lost may be lost, too.
    const unsigned long losses = m_connection.losses();
    const bool anew = std::exchange(m_losses, losses) != losses;
    Lock lock(m_mutex);
    const auto due = anew ? m_window.all(Clock::now()) : m_window.overdue(Clock::now());
    lock.unlock();
    for (const auto& transmission : due)
        transmit(transmission);
}

/// Without the lock, because a server that is stopped makes this wait. A message still never leaves
/// behind a later one of its source: `send` returns when its own has left, and what is repeated or
/// comes after a confirmation leaves by the one thread that takes confirmations. What cannot be
/// sent now is overdue in its time; without a connection that is as soon as there is one.
void NatsPublisher::transmit(const NatsSendWindow::Transmission& transmission) {
    if (!m_connection.connected())
        return;
    const NatsSendWindow::Message& message = *transmission.message;
    natsMsg* made = nullptr;
    if (natsMsg_Create(&made, message.subject.c_str(), transmission.replyTo.c_str(),
                       message.bytes.data(), static_cast<int>(message.bytes.size())) != NATS_OK)
        return;
    const NatsMessage owned(made);
    natsMsgHeader_Set(made, "Nats-Msg-Id", message.id.c_str());
    natsConnection_PublishMsg(m_connection.get(), made);
}

} // namespace mirel
