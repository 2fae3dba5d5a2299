#include "host/FlowLimit.h"

#include <algorithm>

namespace mirel {

FlowLimit::FlowLimit(unsigned long limit) : m_limit(limit) {}

bool FlowLimit::waitForRoom() {
    std::unique_lock lock(m_mutex);
    m_room.wait(lock, [this] { return m_closed || hasRoom(); });
    return !m_closed;
}

void FlowLimit::close() {
    const std::lock_guard lock(m_mutex);
    m_closed = true;
    m_room.notify_all();
}

void FlowLimit::requestAccepted() {
    const std::lock_guard lock(m_mutex);
    ++m_unanswered;
}

void FlowLimit::requestAnswered() {
    const std::lock_guard lock(m_mutex);
    --m_unanswered;
    if (hasRoom())
        m_room.notify_all();
}

void FlowLimit::workerTaken() {
    const std::lock_guard lock(m_mutex);
    m_mostWorkers = std::max(m_mostWorkers, ++m_workers);
}

void FlowLimit::workerReturned() {
    const std::lock_guard lock(m_mutex);
    --m_workers;
    if (hasRoom())
        m_room.notify_all();
}

unsigned long FlowLimit::mostWorkers() const {
    const std::lock_guard lock(m_mutex);
    return m_mostWorkers;
}

/// Called with m_mutex held.
bool FlowLimit::hasRoom() const { return m_unanswered < m_limit && m_workers < m_limit; }

} // namespace mirel
