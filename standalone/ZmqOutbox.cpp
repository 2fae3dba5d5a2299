#include "standalone/ZmqOutbox.h"

#include "standalone/ZmqCounters.h"

#include <utility>

namespace mirel {

ZmqOutbox::ZmqOutbox(std::shared_ptr<ZmqCounters> counters) : m_counters(std::move(counters)) {}

void ZmqOutbox::answer(Answer answer) {
    {
        const std::lock_guard lock(m_mutex);
        if (!m_closed) {
            m_answers.push_back(std::move(answer));
            if (m_answers.size() == 1)
                m_wake.set();
            return;
        }
    }
    m_counters->answersDropped.refuse("the channel is gone");
}

std::deque<Answer> ZmqOutbox::take() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_answers, {});
}

std::deque<Answer> ZmqOutbox::close() {
    const std::lock_guard lock(m_mutex);
    m_closed = true;
    return std::exchange(m_answers, {});
}

} // namespace mirel
