#include "runtime/threads/ThreadEnds.h"

namespace mirel {

ThreadEnds& ThreadEnds::instance() {
    static ThreadEnds& ends = *new ThreadEnds;
    return ends;
}

void ThreadEnds::add() {
    if (m_watches == 0)
        return;
    const Lock lock(m_mutex);
    ++m_count;
    m_changed.notify_all();
}

unsigned long ThreadEnds::Watch::count() const {
    const Lock lock(m_ends.m_mutex);
    return m_ends.m_count;
}

void ThreadEnds::Watch::waitForNext(unsigned long seen,
                                    std::chrono::steady_clock::time_point deadline) const {
    Lock lock(m_ends.m_mutex);
    while (m_ends.m_count == seen && lock.waitUntil(m_ends.m_changed, deadline)) {
    }
}

} // namespace mirel
