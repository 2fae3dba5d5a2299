#pragma once

#include "channels/RefusalCounter.h"
#include "channels/nats/publish/NatsSendWindow.h"
#include "channels/nats/wire/NatsHandles.h"
#include "framework/Threadable.h"
#include "runtime/threads/Mutex.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <string>

namespace mirel {

class NatsConnection;

/// Brings messages into the service's stream, as NatsSendWindow says: of each source one at a time,
/// many sources side by side.
class NatsPublisher : public Threadable {
public:
    /// Starts the thread. `NatsError`. Takes at most `most` messages that are not confirmed yet.
    NatsPublisher(NatsConnection& connection, std::size_t most);

    /// Waits a bounded time for what is not confirmed.
    ~NatsPublisher() override;

    /// Waits until there is room. False when there is none for `patience`. One thread at a time.
    bool send(NatsSendWindow::Message message, std::chrono::milliseconds patience);

    void run() override;
    MirelThreadPriority getThreadPriorityForPlatform() override;
    std::string type() override;

private:
    using Clock = std::chrono::steady_clock;

    void subscribe();
    /// Waits a bounded time until everything is confirmed, and returns how much is not.
    std::size_t waitForLast();
    void take(natsMsg* msg);
    void repeatOverdue();
    void transmit(const NatsSendWindow::Transmission& transmission);

    NatsConnection& m_connection;
    const std::string m_inbox; ///< prefix of the subjects that confirmations come to
    NatsSubscription m_subscription;
    std::atomic<bool> m_stop{false};

    // The thread's.
    unsigned long m_losses = 0; ///< of the connection, that it has dealt with
    RefusalCounter m_refusals;  ///< the server's

    Mutex m_mutex; ///< nothing is sent under it
    std::condition_variable m_confirmed;
    NatsSendWindow m_window MIREL_GUARDED_BY(m_mutex);
};

} // namespace mirel
