#pragma once

#include "framework/Semaphore.h"
#include "runtime/threads/Mutex.h"

#include <array>
#include <chrono>
#include <cstddef>

namespace mirel {

/// Keeps OS threads at rest, each asleep on a semaphore of its own, until there is something to do
/// for them, for a bounded time. Those that run at one priority are kept apart from the others: a
/// thread may not be allowed to go back to a better one. Any thread may call.
class ThreadKeeper {
public:
    static constexpr int kPriorities = 3;

    /// What the keeper knows of an OS thread. Made and destroyed by whoever owns that.
    class Kept {
    private:
        friend class ThreadKeeper;

        Semaphore m_wakeUp{Semaphore::NOT_AVAILABLE, 1, false};

        // With the keeper's lock held.
        Kept* m_older = nullptr;
        Kept* m_newer = nullptr;
        int m_priority = 0;
        bool m_atRest = false; ///< in a list of the keeper

        /// Written before the wake-up and read after it.
        bool m_dismissed = false;
    };

    /// At most `most` rest at a time, each for `time` at most. Those that rest are dismissed, and
    /// those that have begun under an older `version` do not come to rest any more.
    void setLimits(unsigned long version, std::size_t most, std::chrono::milliseconds time);

    /// Dismisses all that rest. False when there is none.
    bool dismissAll();

    // For who has something to do.

    /// A thread of that priority and version, the one that has rested for the shortest time; its
    /// stack is warm. It is the caller's to wake. Null when there is none.
    Kept* take(int priority, unsigned long version);

    // Nothing of the thread is touched after one of these.
    static void wake(Kept& kept) { kept.m_wakeUp.give(); }
    static void dismiss(Kept& kept);

    // For the OS thread.

    /// Lists the thread as one that rests. From then on it may be taken and told what to do. False
    /// when it may not rest.
    bool add(Kept& self, int priority, unsigned long version);

    /// To be called when it has been listed. False when the thread is to end.
    bool rest(Kept& self);

    /// The same for a thread that has not been listed, and is therefore certain to be woken.
    static void waitForWakeUp(Kept& self) { self.m_wakeUp.take(-1); }

private:
    void unlist(Kept& kept) MIREL_REQUIRES(m_mutex);
    bool dismissListed() MIREL_REQUIRES(m_mutex);
    bool giveUp(Kept& self);
    int time();

    Mutex m_mutex;
    std::array<Kept*, kPriorities> m_newest MIREL_GUARDED_BY(m_mutex){};
    std::size_t m_count MIREL_GUARDED_BY(m_mutex) = 0;
    unsigned long m_version MIREL_GUARDED_BY(m_mutex) = 0;
    std::size_t m_most MIREL_GUARDED_BY(m_mutex) = 0;
    int m_milliseconds MIREL_GUARDED_BY(m_mutex) = 0;
};

/// The one of the process; the thread options set its limits.
ThreadKeeper& threadKeeper();

} // namespace mirel
