#pragma once

#include "bench/FutexWord.h"
#include "bench/Placement.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/CommsChannelIfc.h"
#include "runtime/values/AnsweringChannel.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

namespace bench {

class Workload;

/// The two ends that a benchmark holds of a channel, which keep to a pace and note three times of
/// each request: when the channel's `readMessage` was about to return with it, when its handler
/// began, and when it was answered. Outlives the channel and everything that answers.
class TimedRequests : public mirel::AnswerSink {
public:
    using Clock = std::chrono::steady_clock;
    using Durations = std::vector<std::chrono::nanoseconds>;

    /// Adds to the workload's context an invoker that notes the time and goes on to the workload's
    /// own. All contestants answer on the thread that handles, after the handler.
    /// The threads that read and handle are bound when they first do so.
    TimedRequests(Workload& workload, int sources, Placement placement = Placement::eFree);

    /// A channel on these requests, for one reader.
    std::unique_ptr<CommsChannelIfc> channel();

    /// Closed loop: the caller waits for the answer to each request before it sends the next one, so
    /// that every thread on the way has gone to sleep meanwhile.
    void runClosed(std::size_t count);

    /// Open loop: each request is read at its distance from the beginning (which grow), or as soon
    /// as the reader comes for it. Returns when all are answered.
    void runOpen(const Durations& arrivals);

    // Of the last run, in the order of the requests.

    Durations readToHandler() const;
    Durations readToAnswer() const;

    /// From the time at which the request was to be read, so with what the reader was late. Of an
    /// open loop only.
    Durations arrivalToAnswer() const;

    void answer(mirel::Answer answer) override;

private:
    friend class TimedChannel;
    using Times = std::vector<Clock::time_point>;

    void prepareRun(std::size_t count);
    void releaseAndAwait(std::size_t count);
    bool inOpenLoop() const { return !m_arrivals.empty(); }
    Clock::time_point arrival(std::size_t index) const { return m_begin + m_arrivals[index]; }
    void read(std::size_t number, CommsChannelDataContainerMessage& msg);

    const std::vector<CommsChannelDataContainerMessage> m_requests; ///< one of each source
    const Placement m_placement;

    // Requests are numbered from the beginning, over all runs.
    std::atomic<std::size_t> m_released{0}; ///< may be read
    std::atomic<bool> m_closed{false};
    alignas(64) std::atomic<std::size_t> m_answered{0}; ///< apart from what the reader looks at
    FutexWord m_reader; ///< set when there is something to read, or no more
    FutexWord m_caller; ///< set when all that was released is answered

    // Of this run.
    std::size_t m_first = 0; ///< number of the first request
    Durations m_arrivals;    ///< since m_begin; empty in a closed loop
    Clock::time_point m_begin;

    // Each apart, so that the reader and the workers do not write to the same cache lines.
    Times m_readAt;
    Times m_begunAt;
    Times m_answeredAt;
};

} // namespace bench
