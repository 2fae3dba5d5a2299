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
    std::atomic<unsigned long> answersSent{0}; ///< handed to the engine
    RefusalCounter refused;
    RefusalCounter answersDropped;
};

} // namespace mirel
