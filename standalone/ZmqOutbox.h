#pragma once

#include "standalone/AnswerSink.h"
#include "standalone/EventFd.h"

#include <deque>
#include <memory>
#include <mutex>

namespace mirel {

struct ZmqCounters;

/// Holds answers until the thread that owns the socket takes them, and wakes that thread.
/// Any thread may call.
class ZmqOutbox : public AnswerSink {
public:
    explicit ZmqOutbox(std::shared_ptr<ZmqCounters> counters);

    void answer(Answer answer) override;

    /// What has been put in since the last time.
    std::deque<Answer> take();

    /// The same for the last time: answers given later are dropped and counted.
    std::deque<Answer> close();

    /// Set when there is something to take; the taker clears it before it takes.
    EventFd& wake() { return m_wake; }

private:
    const std::shared_ptr<ZmqCounters> m_counters;
    EventFd m_wake;

    // Guarded by m_mutex.
    std::mutex m_mutex;
    std::deque<Answer> m_answers;
    bool m_closed = false;
};

} // namespace mirel
