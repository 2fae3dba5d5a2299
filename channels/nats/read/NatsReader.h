#pragma once

#include "channels/nats/lease/NatsLeases.h"
#include "channels/nats/read/NatsAttempts.h"
#include "channels/nats/read/NatsPartition.h"
#include "channels/nats/wire/NatsHandles.h"
#include "framework/Threadable.h"

#include <atomic>
#include <vector>

namespace mirel {

class NatsAnswers;

/// The thread of a channel: reads the partitions that are this process's and puts what they deliver
/// into the queue, and tells the server what is still in work.
class NatsReader : public Threadable {
public:
    /// Starts the thread. `NatsError`. The other objects must outlive this one.
    NatsReader(NatsConnection& connection, const NatsChannelOptions& options, MessageQueue& queue,
               NatsLedger& ledger, ChannelCounters& counters, NatsAnswers& answers,
               const std::string& inbox);

    /// Ends the thread, when the answers are confirmed or after a bounded time, and gives the
    /// partitions back. What is not acknowledged by then is left to others.
    ~NatsReader() override;

    const NatsLeases& leases() const { return m_leases; }

    void run() override;
    MirelThreadPriority getThreadPriorityForPlatform() override;
    std::string type() override;

private:
    void subscribe();
    void follow(NatsPartition& partition, unsigned number);
    void read();
    bool receiveSome(std::int64_t patienceMs);
    void take(natsMsg* msg);
    void takeOwn(natsMsg* msg);
    void tellProgress();
    void leaveAll();

    NatsBucket m_attemptsKept;
    NatsAttempts m_attempts;
    NatsAnswers& m_answers;
    NatsReading m_reading;
    NatsLeases m_leases;
    NatsSubscription m_subscription;
    std::atomic<bool> m_stop{false};

    // The thread's.
    std::vector<NatsPartition> m_partitions;
    NatsLedger::Clock::time_point m_nextProgress{};
};

} // namespace mirel
