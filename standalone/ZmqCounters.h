#pragma once

#include "standalone/RefusalCounter.h"

#include <atomic>
#include <string>

namespace mirel {

/// What has passed through a channel; outlives it. Any thread may read.
struct ZmqCounters {
    explicit ZmqCounters(const std::string& url)
        : refused("ZmqChannel", "messages to " + url),
          answersDropped("ZmqChannel", "answers from " + url) {}

    std::atomic<unsigned long> received{0};    ///< messages that an executor may see
    std::atomic<unsigned long> answersSent{0}; ///< handed to ZeroMQ
    RefusalCounter refused;
    RefusalCounter answersDropped;
};

} // namespace mirel
