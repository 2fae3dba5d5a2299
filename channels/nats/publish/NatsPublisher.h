#pragma once

#include "channels/nats/wire/NatsHandles.h"
#include "framework/Threadable.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace mirel {

class NatsConnection;

/// Brings messages into the service's stream: of each source one at a time, which is repeated under
/// its id until the engine has confirmed it, so that the order of the source is that of the stream;
/// many sources side by side.
class NatsPublisher : public Threadable {
public:
    struct Message {
        std::string source;
        std::string subject;
        std::string id;
        std::string bytes;
    };

    /// Starts the thread. `NatsError`. Takes at most `most` messages that are not confirmed yet.
    NatsPublisher(NatsConnection& connection, std::size_t most);

    /// Waits a bounded time for what is not confirmed.
    ~NatsPublisher() override;

    /// Waits until there is room. False when there is none for `patience`. Any thread.
    bool send(Message message, std::chrono::milliseconds patience);

    void run() override;
    MirelThreadPriority getThreadPriorityForPlatform() override;
    std::string type() override;

private:
    using Clock = std::chrono::steady_clock;

    struct Source {
        std::deque<Message> messages;     ///< the first is on its way; never empty
        std::vector<std::string> replyTo; ///< where its confirmation may come to
        Clock::time_point sent;
    };

    void subscribe();
    void confirm(natsMsg* msg);
    void repeatOverdue();
    void transmit(Source& source);

    NatsConnection& m_connection;
    const std::size_t m_most;
    std::string m_inbox; ///< prefix of the subjects that confirmations come to
    NatsSubscription m_subscription;
    std::atomic<bool> m_stop{false};
    unsigned long m_losses = 0; ///< the thread's: of the connection, that it has dealt with

    // Guarded by m_mutex.
    std::mutex m_mutex;
    std::condition_variable m_confirmed;
    std::size_t m_unconfirmed = 0;
    unsigned long m_transmissions = 0;
    bool m_toldRefusal = false;                              ///< that the engine refuses
    std::unordered_map<std::string, Source> m_sources;       ///< those that have messages
    std::unordered_map<std::string, std::string> m_expected; ///< replyTo to source
};

} // namespace mirel
