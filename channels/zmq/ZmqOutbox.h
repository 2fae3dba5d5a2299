#pragma once

#include "runtime/threads/EventFd.h"
#include "runtime/threads/Mutex.h"
#include "runtime/values/AnswerSink.h"

#include <memory>
#include <vector>

namespace mirel {

struct ChannelCounters;

/// Holds answers until the thread that owns the socket takes them, and wakes that thread when it
/// waits. Any thread may call what is not said to be the taker's.
class ZmqOutbox : public AnswerSink {
public:
    explicit ZmqOutbox(std::shared_ptr<ChannelCounters> counters);

    void answer(Answer answer) override;

    /// The taker's: gives what has been put in since the last time to `answers`, which is empty,
    /// and goes on with its memory.
    void take(std::vector<Answer>& answers);

    /// The taker's: whether there is nothing to take. If so, the next answer sets `wake`, which is
    /// not set otherwise: a busy taker looks again anyway, and the system call would cost as much
    /// as the rest of the answer's way.
    bool mayWait();

    /// The taker's, for the last time: what has been put in. Answers given later are dropped and
    /// counted.
    std::vector<Answer> close();

    /// What the taker waits for and clears; anybody may set it.
    EventFd& wake() { return m_wake; }

private:
    const std::shared_ptr<ChannelCounters> m_counters;
    EventFd m_wake;

    Mutex m_mutex;
    std::vector<Answer> m_answers MIREL_GUARDED_BY(m_mutex);
    bool m_takerWaits MIREL_GUARDED_BY(m_mutex) = false;
    bool m_closed MIREL_GUARDED_BY(m_mutex) = false;
};

} // namespace mirel
