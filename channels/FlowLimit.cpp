#include "channels/FlowLimit.h"

#include "runtime/threads/PendingWakeUps.h"

#include <algorithm>

namespace mirel {

FlowLimit::FlowLimit(unsigned long limit, unsigned long workers)
    : m_limit(std::max(limit, 1UL)),
      m_workerLimit(workers == 0 ? m_limit : workers) {}

void FlowLimit::waitForRoom(const std::atomic<bool>& closed) {
    if (hasRoom())
        return;
    PendingWakeUps::ofThisThread().issue();
    Lock lock(m_mutex);
    while (!closed && !hasRoom())
        lock.wait(m_room);
}

void FlowLimit::wakeAll() {
    const Lock lock(m_mutex);
    m_room.notify_all();
}

void FlowLimit::requestAccepted() noexcept { ++m_unanswered; }

void FlowLimit::requestDone() { decrease(m_unanswered, m_limit); }

void FlowLimit::workerTaken() {
    const unsigned long workers = ++m_workers;
    unsigned long most = m_mostWorkers;
    while (most < workers && !m_mostWorkers.compare_exchange_weak(most, workers)) {
    }
}

void FlowLimit::workerReturned() { decrease(m_workers, m_workerLimit); }

unsigned long FlowLimit::mostWorkers() const { return m_mostWorkers; }

bool FlowLimit::hasRoom() const { return m_unanswered < m_limit && m_workers < m_workerLimit; }

void FlowLimit::decrease(std::atomic<unsigned long>& count, unsigned long limit) {
    if (count-- >= limit)
        wakeAll();
}

} // namespace mirel
