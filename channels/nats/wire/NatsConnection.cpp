#include "channels/nats/wire/NatsConnection.h"

#include "channels/RandomName.h"
#include "channels/nats/wire/NatsHandles.h"
#include "channels/nats/wire/NatsOptions.h"
#include "framework/Logging.h"
#include "framework/MirelException.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace mirel {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kBetweenAttempts{100};
constexpr milliseconds kLastFlush{2000};

// A server that is killed is noticed at once; one that is cut off, by its silence.
constexpr std::int64_t kPingMs = 2000;
constexpr int kPingsUnanswered = 2;
constexpr std::int64_t kWriteMs = 2000;

constexpr int kNoJetStream = 10039; ///< the server's number for an account without JetStream

[[noreturn]] void fail(const std::string& text) { throw MirelException(text, __FILE__, __LINE__); }

/// What an answer of JetStream's interface says. `NatsError`.
nlohmann::json read(const std::string& name, natsStatus status, natsMsg* received) {
    if (status == NATS_NO_RESPONDERS)
        throw NatsError(0, "JetStream is not there: either the server runs without it, or its "
                           "cluster has no leader now");
    if (status != NATS_OK)
        throw NatsError(0, reasonOf(status));
    const auto answer = nlohmann::json::parse(bytesOf(received), nullptr, false);
    if (!answer.is_object())
        throw NatsError(0, "the server's answer to " + name + " cannot be read");
    if (const auto error = answer.find("error"); error != answer.end())
        throw NatsError(error->value("err_code", 0), error->value("description", "refused"));
    return answer;
}

/// Waits while another thread sends: not to be called under a lock.
std::size_t largestMessageOf(natsConnection* connection) {
    return static_cast<std::size_t>(
        std::max<std::int64_t>(0, natsConnection_GetMaxPayload(connection)));
}

} // namespace

NatsConnection::NatsConnection(const NatsConnectionOptions& wanted)
    : m_address(wanted.url),
      m_errors("NatsConnection", "on the connection to " + wanted.url),
      m_inboxes(wanted.user.empty() ? "_INBOX" : "_INBOX." + NatsAddress::tokenOf(wanted.user)) {
    const NatsOptions options = newNatsOptions(m_address, wanted);
    natsOptions* const made = options.get();
    natsOptions_SetCustomInboxPrefix(made, m_inboxes.c_str());
    natsOptions_SetMaxReconnect(made, -1);
    natsOptions_SetReconnectWait(made, kBetweenAttempts.count());
    natsOptions_SetPingInterval(made, kPingMs);
    natsOptions_SetMaxPingsOut(made, kPingsUnanswered);
    natsOptions_SetSendAsap(made, true); // otherwise each message waits a millisecond for others
    // A server that is stopped would otherwise hold up every thread that sends, for ever.
    natsOptions_SetWriteDeadline(made, kWriteMs);
    natsOptions_SetErrorHandler(made, &onError, this);
    natsOptions_SetReconnectedCB(made, &onConnected, this);
    natsOptions_SetDisconnectedCB(made, &onLost, this);
    natsOptions_SetClosedCB(made, &onClosed, this);
    connect(*made, wanted);
}

void NatsConnection::connect(natsOptions& options, const NatsConnectionOptions& wanted) {
    const auto deadline = std::chrono::steady_clock::now() + wanted.patience;
    for (bool told = false;; told = true) {
        const natsStatus status = natsConnection_Connect(&m_connection, &options);
        if (status == NATS_OK) {
            const std::size_t largest = largestMessageOf(m_connection);
            const Lock lock(m_mutex);
            m_connected = true;
            m_largestMessage = largest;
            return;
        }
        if (status == NATS_CONNECTION_AUTH_FAILED)
            fail("the server at " + m_address.url() + " does not let us in: " + reasonOf(status));
        if (status != NATS_NO_SERVER && status != NATS_TIMEOUT && status != NATS_IO_ERROR &&
            status != NATS_CONNECTION_CLOSED)
            fail("cannot connect to " + m_address.url() + ": " + reasonOf(status) +
                 (m_address.encrypted() && wanted.certificateFile.empty()
                      ? "; the server may ask for a certificate of yours"
                      : ""));
        if (std::chrono::steady_clock::now() >= deadline)
            fail("no NATS server answers at " + m_address.url() + " within " +
                 std::to_string(wanted.patience.count()) + " ms");
        if (wanted.giveUp())
            fail("told to stop while no NATS server answers at " + m_address.url());
        if (!told)
            logAppUni("NatsConnection", __FILE__, 3, __LINE__,
                      "no NATS server answers at %s yet; looking for one for %ld ms",
                      m_address.url().c_str(), static_cast<long>(wanted.patience.count()));
        Lock lock(m_mutex); // nothing tells when a server has come; it is asked again
        lock.waitUntil(m_changed, std::chrono::steady_clock::now() + kBetweenAttempts);
    }
}

NatsConnection::~NatsConnection() {
    natsConnection_FlushTimeout(m_connection, kLastFlush.count());
    natsConnection_Close(m_connection);
    waitUntilClosed();
    natsConnection_Destroy(m_connection);
}

/// The library calls this object until it has said that the connection is closed.
void NatsConnection::waitUntilClosed() {
    Lock lock(m_mutex);
    while (!m_closed)
        lock.wait(m_changed);
}

void NatsConnection::onConnected(natsConnection* library, void* self) {
    auto& connection = *static_cast<NatsConnection*>(self);
    const std::size_t largest = largestMessageOf(library); // it may be another server
    const Lock lock(connection.m_mutex);
    connection.m_connected = true;
    connection.m_largestMessage = largest;
}

void NatsConnection::onLost(natsConnection*, void* self) {
    auto& connection = *static_cast<NatsConnection*>(self);
    const Lock lock(connection.m_mutex);
    connection.m_connected = false;
    ++connection.m_losses;
}

void NatsConnection::onClosed(natsConnection*, void* self) {
    auto& connection = *static_cast<NatsConnection*>(self);
    // Under the lock, because the object may be gone as soon as the flag can be seen.
    const Lock lock(connection.m_mutex);
    connection.m_connected = false;
    connection.m_closed = true;
    connection.m_changed.notify_all();
}

/// In the server's own words, if it has said something: which subject is not permitted, for
/// example. They are this thread's, whereas the connection's own text is written meanwhile.
void NatsConnection::onError(natsConnection*, natsSubscription*, natsStatus status, void* self) {
    static_cast<NatsConnection*>(self)->m_errors.refuse(reasonOf(status));
}

bool NatsConnection::connected() const {
    const Lock lock(m_mutex);
    return m_connected;
}

bool NatsConnection::closed() const {
    const Lock lock(m_mutex);
    return m_closed;
}

unsigned long NatsConnection::losses() const {
    const Lock lock(m_mutex);
    return m_losses;
}

bool NatsConnection::publish(const std::string& subject, std::string_view bytes,
                             const std::string& replyTo) {
    const int size = static_cast<int>(bytes.size());
    const natsStatus status =
        replyTo.empty() ? natsConnection_Publish(m_connection, subject.c_str(), bytes.data(), size)
                        : natsConnection_PublishRequest(m_connection, subject.c_str(),
                                                        replyTo.c_str(), bytes.data(), size);
    return status == NATS_OK;
}

nlohmann::json NatsConnection::call(const std::string& name, const nlohmann::json& request,
                                    milliseconds patience) {
    const std::string bytes = request.is_null() ? std::string() : request.dump();
    natsMsg* received = nullptr;
    const natsStatus status =
        natsConnection_Request(&received, m_connection, ("$JS.API." + name).c_str(), bytes.data(),
                               static_cast<int>(bytes.size()), patience.count());
    const NatsMessage reply(received);
    return read(name, status, received);
}

nlohmann::json NatsConnection::callService(const std::string& name, milliseconds patience) {
    const std::string inbox = newInbox() + "1";
    natsSubscription* made = nullptr;
    natsStatus status = natsConnection_SubscribeSync(&made, m_connection, inbox.c_str());
    const NatsSubscription subscription(made);
    if (status == NATS_OK)
        status = natsConnection_PublishRequest(m_connection, ("$JS.API." + name).c_str(),
                                               inbox.c_str(), nullptr, 0);
    if (status != NATS_OK)
        throw NatsError(0, reasonOf(status));
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (;;) {
        natsMsg* received = nullptr;
        const auto left = std::chrono::ceil<milliseconds>(
            std::max(deadline - std::chrono::steady_clock::now(), {}));
        status = natsSubscription_NextMsg(&received, made, left.count());
        const NatsMessage reply(received);
        try {
            return read(name, status, received);
        } catch (const NatsError& failure) {
            if (failure.code() != kNoJetStream)
                throw;
        }
    }
}

std::string NatsConnection::newInbox() const { return m_inboxes + "." + randomName() + "."; }

bool NatsConnection::flush(milliseconds patience) {
    return natsConnection_FlushTimeout(m_connection, patience.count()) == NATS_OK;
}

std::size_t NatsConnection::largestMessage() const {
    const Lock lock(m_mutex);
    return m_largestMessage;
}

} // namespace mirel
