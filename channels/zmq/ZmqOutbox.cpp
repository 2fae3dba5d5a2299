#include "channels/zmq/ZmqOutbox.h"

#include "channels/ChannelCounters.h"

#include <utility>

namespace mirel {

ZmqOutbox::ZmqOutbox(std::shared_ptr<ChannelCounters> counters) : m_counters(std::move(counters)) {}

void ZmqOutbox::answer(Answer answer) {
    {
        const Lock lock(m_mutex);
        if (!m_closed) {
            m_answers.push_back(std::move(answer));
            if (std::exchange(m_takerWaits, false))
                m_wake.set();
            return;
        }
    }
    m_counters->answersDropped.refuse("the channel is gone");
}

void ZmqOutbox::take(std::vector<Answer>& answers) {
    const Lock lock(m_mutex);
    m_takerWaits = false;
    m_answers.swap(answers);
}

bool ZmqOutbox::mayWait() {
    const Lock lock(m_mutex);
    m_takerWaits = m_answers.empty();
    return m_takerWaits;
}

std::vector<Answer> ZmqOutbox::close() {
    const Lock lock(m_mutex);
    m_closed = true;
    return std::exchange(m_answers, {});
}

} // namespace mirel
