#pragma once

#include "channels/nats/wire/NatsBucket.h"
#include "framework/Threadable.h"
#include "runtime/threads/Mutex.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <string>

namespace mirel {

class NatsConnection;
struct NatsChannelOptions;

/// Which partitions this process may read. Each belongs to one process at a time: to the one whose
/// name is under the partition's key in a bucket of the server whose values disappear when they are
/// not written again in time. The hosts of a service count each other by keys of the same kind, and
/// none keeps more than its share.
///
/// What a lease cannot do: a process that is stopped while it holds one does not know, when it goes
/// on, that its time is over, until it looks at the clock. It looks before it hands out a message,
/// and what it acknowledges late is in vain; but a handler that was running goes on, beside its
/// successor's.
class NatsLeases : public Threadable {
public:
    /// Starts the thread that renews. `NatsError`. The connection must outlive it.
    NatsLeases(NatsConnection& connection, const NatsChannelOptions& options);

    /// As `end`, and waits until it has been given back, or cannot be.
    ~NatsLeases() override;

    /// From now on nothing is ours. Gives everything back, without waiting for that.
    void end();

    /// The number of the tenure in which the partition is ours, without a gap in time since the
    /// tenure began; 0: it is not. What was read in one tenure must not be handed out in another:
    /// something before it may have been left to others in between.
    unsigned long tenure(unsigned partition) const;

    /// Ours, but others lack it: to be given back when nothing of it is in work.
    bool isSurplus(unsigned partition) const;
    void giveBack(unsigned partition);

    void run() override;
    MirelThreadPriority getThreadPriorityForPlatform() override;
    std::string type() override;

private:
    /// Time that goes on while the machine sleeps.
    using Time = std::chrono::nanoseconds;
    static Time now();

    struct Lease {
        std::uint64_t revision;
        Time validUntil;
        unsigned long tenure;
        bool surplus = false;
        bool givenBack = false;
    };

    void waitForRound(Lock& lock) MIREL_REQUIRES(m_mutex);
    void round();
    void renew(unsigned partition);
    void seize(unsigned partition);
    void releaseGivenBack();
    void chooseSurplus(unsigned share);

    const NatsConnection& m_connection;
    const unsigned m_partitions;
    const std::chrono::milliseconds m_lifetime;
    const std::string m_owner;    ///< this process, as the others see it
    NatsBucket m_bucket;          ///< the thread's
    std::uint64_t m_presence = 0; ///< the thread's: revision of this process's own key

    // Nothing is sent or logged under m_mutex; only the thread adds and removes leases.
    mutable Mutex m_mutex;
    std::condition_variable m_changed;
    std::map<unsigned, Lease> m_leases MIREL_GUARDED_BY(m_mutex);
    unsigned long m_tenures MIREL_GUARDED_BY(m_mutex) = 0; ///< so far
    bool m_giveBackAsked MIREL_GUARDED_BY(m_mutex) = false;
    bool m_stop MIREL_GUARDED_BY(m_mutex) = false;
};

} // namespace mirel
