#pragma once

#include <atomic>

namespace mirel {

class ServiceContext;
struct ChannelCounters;

/// Decides whether the service's loop starts again after a failure, so that a message over which it
/// ended (a legacy handler threw, the system refused a thread) costs nobody else anything.
class LoopRestarts {
public:
    LoopRestarts(const ChannelCounters& channel, ServiceContext& context)
        : m_channel(channel),
          m_context(context) {}

    /// To be called by the executor's thread. Yes, at once, when a message has been read since the
    /// last call: failures come no faster than messages then. Yes, after a pause, when none has.
    /// No, after ten such pauses, and when there is no service because it could not be made.
    bool startAgain();

    /// How often the answer was yes. Any thread.
    unsigned long count() const { return m_count; }

private:
    const ChannelCounters& m_channel;
    ServiceContext& m_context;
    std::atomic<unsigned long> m_count{0};

    // Of the executor's thread.
    unsigned long m_readBefore = 0;
    int m_inVain = 0; ///< calls in a row before which nothing was read
};

} // namespace mirel
