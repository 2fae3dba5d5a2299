#pragma once

#include "bench/Benchmarks.h"
#include "bench/FutexWord.h"
#include "channels/queue/MessageQueue.h"
#include "runtime/values/Answer.h"

#include <atomic>
#include <cstddef>
#include <limits>
#include <vector>

namespace bench {

/// A caller that keeps a number of requests on their way: who answers one sends the next. Measures
/// from sending to the answer, with the wait to be read. Outlives whoever answers.
class Window {
public:
    /// Sends these requests in turn, again and again, and numbers them anew. The queue has room for
    /// as many as are on their way.
    Window(mirel::MessageQueue& queue, std::vector<CommsChannelDataContainerMessage> requests,
           std::size_t size);

    /// Sends so many, not fewer than the window has, and returns when all have been answered.
    void run(std::size_t count) {
        start(count);
        m_caller.sleep();
    }

    /// Sends until `stop`, which returns when all have been answered.
    void start(std::size_t count = std::numeric_limits<std::size_t>::max());
    void stop() {
        m_count = 0;
        m_caller.sleep();
    }

    /// To be called for each answer, by any thread.
    void answered(const mirel::Answer& answer);

    /// What was measured since this was called last. When nothing is on its way.
    Durations takeLatencies();

private:
    /// One request on its way. Who sends it uses this before who answers it: the queue is between.
    struct alignas(64) Slot {
        Clock::time_point sentAt;
        Durations latencies;
    };

    void send(std::size_t slot);

    mirel::MessageQueue& m_queue;
    const std::vector<CommsChannelDataContainerMessage> m_requests;
    std::vector<Slot> m_slots;           ///< a request's number is its slot's
    std::atomic<std::size_t> m_next{0};  ///< over all runs
    std::atomic<std::size_t> m_sent{0};  ///< in this one; goes on counting when it is over
    std::atomic<std::size_t> m_count{0}; ///< to be sent in this one
    std::atomic<std::size_t> m_inUse{0}; ///< slots
    FutexWord m_caller;                  ///< set when none is in use any more
};

} // namespace bench
