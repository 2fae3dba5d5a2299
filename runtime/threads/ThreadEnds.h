#pragma once

#include "runtime/threads/Mutex.h"

#include <atomic>
#include <chrono>
#include <condition_variable>

namespace mirel {

/// Wakes starters that were refused a thread when one of ours ends or comes to rest.
class ThreadEnds {
public:
    /// Never destroyed: threads may end until the process is gone.
    static ThreadEnds& instance();

    /// One of ours has ended or rests.
    void add();

    /// A starter that has been refused one.
    class Watch {
    public:
        Watch() { ++m_ends.m_watches; }
        ~Watch() { --m_ends.m_watches; }

        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;

        unsigned long count() const;

        /// Returns when the count is not `seen` any more, or at `deadline`.
        void waitForNext(unsigned long seen, std::chrono::steady_clock::time_point deadline) const;

    private:
        ThreadEnds& m_ends = instance();
    };

private:
    Mutex m_mutex;
    std::condition_variable m_changed;
    unsigned long m_count MIREL_GUARDED_BY(m_mutex) = 0;

    /// Read without the lock: an end may go uncounted while a watch begins. Its starter asks again
    /// after a while in any case.
    std::atomic<unsigned long> m_watches{0};
};

} // namespace mirel
