#pragma once

#include "bench/FutexWord.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "runtime/values/AnsweringChannel.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace bench {

/// The two ends that a benchmark holds of a channel: what is read from it, and what is answered.
/// Outlives the channel and everything that answers. Requests are numbered from 0, over all runs.
class Load : public mirel::AnswerSink {
public:
    explicit Load(std::vector<CommsChannelDataContainerMessage> requests)
        : m_requests(std::move(requests)) {}

    /// A channel on these requests, for one reader.
    std::unique_ptr<CommsChannelIfc> channel();

    /// Lets so many be read, the first one again after the last, and returns when all have been
    /// answered.
    void run(std::size_t count);

    /// Each request once.
    void run() { run(m_requests.size()); }

    void answer(mirel::Answer answer) override;

protected:
    /// The reading thread has come for a request, so it has dispatched all before it.
    virtual void beforeRead(std::size_t) {}

    /// Puts the request into the reading thread's message.
    virtual void read(std::size_t number, CommsChannelDataContainerMessage& msg) {
        msg = m_requests[number % m_requests.size()];
    }

private:
    friend class LoadChannel;

    const std::vector<CommsChannelDataContainerMessage> m_requests;
    std::atomic<std::size_t> m_released{0}; ///< may be read
    std::atomic<bool> m_closed{false};
    std::atomic<std::size_t> m_answered{0};
    FutexWord m_reader; ///< set when there is something to read, or no more
    FutexWord m_caller; ///< set when all that was released is answered
};

} // namespace bench
