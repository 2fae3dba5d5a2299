#pragma once

#include "bench/Release.h"
#include "bench/SharedPool.h"
#include "bench/Workload.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "runtime/values/AnsweringChannel.h"

#include <atomic>
#include <chrono>
#include <cstddef>

namespace bench {

/// Requests of one source that are all held back behind one whose handler blocks, and then run.
class Backlog : public mirel::AnswerSink {
public:
    struct Cost {
        std::chrono::nanoseconds toHoldBack; ///< reading included
        std::chrono::nanoseconds toDrain;    ///< until the last handler begins
        std::size_t bytes;                   ///< taken from the heap for what is held back
    };

    explicit Backlog(std::size_t length);

    /// Once through: all held back, then all run.
    Cost run();

    void answer(mirel::Answer answer) override;

private:
    friend class BacklogChannel;
    using Clock = std::chrono::steady_clock;

    void handle();
    void firstDispatched();
    void allHeldBack();

    const std::size_t m_length;
    Workload m_workload;
    CommsChannelDataContainerMessage m_request; ///< all are alike

    Release m_release;

    // Of one run.
    std::atomic<bool> m_blocked{false}; ///< the first handler is there
    std::atomic<bool> m_open{false};    ///< and may end
    std::atomic<bool> m_done{false};    ///< all are answered
    std::size_t m_handled = 0;          ///< by handlers, of which one runs at a time
    std::size_t m_answered = 0;         ///< likewise
    Clock::time_point m_firstDispatchedAt, m_allHeldBackAt, m_openedAt, m_lastBeganAt;
    std::size_t m_bytesBefore = 0;
    std::size_t m_bytesAfter = 0;

    SharedPool m_pool{1}; ///< last, so that it ends first
};

} // namespace bench
