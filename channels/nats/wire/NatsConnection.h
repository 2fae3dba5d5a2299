#pragma once

#include "channels/RefusalCounter.h"
#include "channels/nats/wire/NatsAddress.h"
#include "channels/nats/wire/NatsConnectionOptions.h"
#include "runtime/threads/Mutex.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <nats/nats.h>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

namespace mirel {

/// The server has refused what was asked of it, or has not answered.
class NatsError : public std::runtime_error {
public:
    NatsError(int code, const std::string& text) : std::runtime_error(text), m_code(code) {}

    /// The server's number for the reason; 0 when it has not answered.
    int code() const { return m_code; }

private:
    int m_code;
};

/// A connection that is looked for again whenever it is lost. Any thread may call.
class NatsConnection {
public:
    /// Waits for the first connection. `MirelException` with one clear text when no server is found
    /// within the patience, or when it does not let us in.
    explicit NatsConnection(const NatsConnectionOptions& options);

    /// Sends what has been published, for a bounded time, and closes.
    ~NatsConnection();

    NatsConnection(const NatsConnection&) = delete;
    NatsConnection& operator=(const NatsConnection&) = delete;

    // None of these four waits for the network.

    bool connected() const;

    /// For good, without having been told to: the NATS library gives up when a server refuses us
    /// again and again.
    bool closed() const;

    /// How often the connection has been lost so far.
    unsigned long losses() const;

    /// That the server takes, in bytes.
    std::size_t largestMessage() const;

    /// False when the NATS library takes no more, because there is no connection and its buffer is
    /// full, or because the message is too large. Waits for a server that is stopped, up to a
    /// deadline, and so do others who call meanwhile: not for threads of the executor or its
    /// workers.
    bool publish(const std::string& subject, std::string_view bytes,
                 const std::string& replyTo = std::string());

    /// One call of JetStream's own interface, `name` being what follows "$JS.API.". `NatsError`.
    nlohmann::json call(const std::string& name, const nlohmann::json& request,
                        std::chrono::milliseconds patience);

    /// The same to the service's account, if that is not ours: there it answers beside our own
    /// account, which has no JetStream, and says so.
    nlohmann::json callService(const std::string& name, std::chrono::milliseconds patience);

    /// Waits until the server has all that was published; false when that takes too long.
    bool flush(std::chrono::milliseconds patience);

    /// The beginning, up to a point, of subjects that nobody else uses. As all that the server
    /// answers to, they begin with "_INBOX.USER.", so that permissions can say whose they are.
    std::string newInbox() const;

    natsConnection* get() const { return m_connection; }
    const NatsAddress& address() const { return m_address; }

private:
    void connect(natsOptions& options, const NatsConnectionOptions& wanted);
    void waitUntilClosed();

    // Called by threads of the NATS library.
    static void onConnected(natsConnection*, void* self);
    static void onLost(natsConnection*, void* self);
    static void onClosed(natsConnection*, void* self);
    static void onError(natsConnection*, natsSubscription*, natsStatus status, void* self);

    const NatsAddress m_address;
    RefusalCounter m_errors;                ///< that the server or the library reports
    const std::string m_inboxes;            ///< beginning of all inboxes, without a point
    natsConnection* m_connection = nullptr; ///< owned; constant once made

    mutable Mutex m_mutex; ///< nothing is asked of the NATS library under it
    std::condition_variable m_changed;
    bool m_connected MIREL_GUARDED_BY(m_mutex) = false;
    bool m_closed MIREL_GUARDED_BY(m_mutex) = false;
    unsigned long m_losses MIREL_GUARDED_BY(m_mutex) = 0;
    std::size_t m_largestMessage MIREL_GUARDED_BY(m_mutex) = 0;
};

} // namespace mirel
