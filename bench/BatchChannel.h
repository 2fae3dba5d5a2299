#pragma once

#include "bench/Release.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/CommsChannelIfc.h"
#include "runtime/values/AnsweringChannel.h"

#include <atomic>
#include <memory>
#include <vector>

namespace bench {

/// The two ends that a benchmark holds of a channel: what is read from it, and what is answered.
/// Outlives the channel and everything that answers.
class Batches : public mirel::AnswerSink {
public:
    explicit Batches(std::vector<CommsChannelDataContainerMessage> requests)
        : m_requests(std::move(requests)) {}

    /// Lets all requests be read once more, and returns when all have been answered.
    void run();

    /// A channel on these requests, for one reader.
    std::unique_ptr<mirel::AnsweringChannel> channel();

    void answer(mirel::Answer answer) override;

private:
    friend class BatchChannel;

    const std::vector<CommsChannelDataContainerMessage> m_requests;
    Release m_release;
    std::atomic<std::size_t> m_answered{0}; ///< of this run
    std::atomic<bool> m_done{false};        ///< all of this run are answered
};

} // namespace bench
