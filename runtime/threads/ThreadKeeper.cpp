#include "runtime/threads/ThreadKeeper.h"

namespace mirel {

void ThreadKeeper::setLimits(unsigned long version, std::size_t most,
                             std::chrono::milliseconds time) {
    const Lock lock(m_mutex);
    m_version = version;
    m_most = most;
    m_milliseconds = static_cast<int>(time.count());
    dismissListed();
}

bool ThreadKeeper::dismissAll() {
    const Lock lock(m_mutex);
    return dismissListed();
}

void ThreadKeeper::dismiss(Kept& kept) {
    kept.m_dismissed = true;
    wake(kept);
}

bool ThreadKeeper::dismissListed() {
    const bool any = m_count > 0;
    for (Kept*& newest : m_newest)
        while (Kept* const kept = newest) {
            unlist(*kept);
            dismiss(*kept);
        }
    return any;
}

ThreadKeeper::Kept* ThreadKeeper::take(int priority, unsigned long version) {
    const Lock lock(m_mutex);
    Kept* const kept =
        version == m_version ? m_newest.at(static_cast<std::size_t>(priority)) : nullptr;
    if (kept)
        unlist(*kept);
    return kept;
}

bool ThreadKeeper::add(Kept& self, int priority, unsigned long version) {
    const Lock lock(m_mutex);
    if (version != m_version || m_count >= m_most)
        return false;
    Kept*& newest = m_newest.at(static_cast<std::size_t>(priority));
    self.m_priority = priority;
    self.m_older = newest;
    self.m_newer = nullptr;
    if (newest)
        newest->m_newer = &self;
    newest = &self;
    self.m_atRest = true;
    ++m_count;
    return true;
}

void ThreadKeeper::unlist(Kept& kept) {
    if (kept.m_newer)
        kept.m_newer->m_older = kept.m_older;
    else
        m_newest.at(static_cast<std::size_t>(kept.m_priority)) = kept.m_older;
    if (kept.m_older)
        kept.m_older->m_newer = kept.m_newer;
    kept.m_atRest = false;
    --m_count;
}

bool ThreadKeeper::rest(Kept& self) {
    if (!self.m_wakeUp.take(time())) {
        if (giveUp(self))
            return false;
        // Somebody has taken it off the list, and wakes it.
        self.m_wakeUp.take(-1);
    }
    return !self.m_dismissed;
}

/// Takes the thread off the list, unless somebody else has.
bool ThreadKeeper::giveUp(Kept& self) {
    const Lock lock(m_mutex);
    const bool atRest = self.m_atRest;
    if (atRest)
        unlist(self);
    return atRest;
}

int ThreadKeeper::time() {
    const Lock lock(m_mutex);
    return m_milliseconds;
}

} // namespace mirel
