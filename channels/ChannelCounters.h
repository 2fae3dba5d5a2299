#pragma once

#include "channels/RefusalCounter.h"

#include <atomic>
#include <string>

namespace mirel {

/// What has passed through a channel; outlives it. Any thread may read.
struct ChannelCounters {
    /// `component` is that of the log; `url` names the channel there.
    ChannelCounters(const char* component, const std::string& url)
        : refused(component, "messages to " + url),
          answersDropped(component, "answers from " + url) {}

    std::atomic<unsigned long> received{0};    ///< messages that an executor may see
    std::atomic<unsigned long> answersSent{0}; ///< handed to the transport

    // Messages that an executor has read.
    std::atomic<unsigned long> requests{0};
    std::atomic<unsigned long> timerEvents{0};
    std::atomic<unsigned long> legacyMessages{0};

    // What became of these requests.
    std::atomic<unsigned long> done{0};     ///< answered by the service with data
    std::atomic<unsigned long> failed{0};   ///< answered with a failure, by the service or for it
    std::atomic<unsigned long> unserved{0}; ///< not accepted: no such interface or handler, mostly

    RefusalCounter refused;
    RefusalCounter answersDropped;
};

} // namespace mirel
