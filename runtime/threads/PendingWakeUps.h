#pragma once

#include <array>
#include <cstddef>

namespace mirel {

/// What one thread still has to do for others: wake them. A thread that is woken while its waker
/// holds a lock runs into that lock, or takes the core from the one who holds it; either way two
/// threads wait for what one could do on the way. So a thread that is inside a `CriticalSection`
/// puts off waking others until it has left the outermost one. What a woken thread comes for, the
/// unit of a semaphore, is there at once, and a thread that looks finds it.
///
/// Put off means: until the lock is released, or until the thread waits for something in the
/// framework itself (a semaphore, a channel, the end of a thread) or is about to run code that may
/// wait by means of its own (see `WakeUpsAtOnce`).
///
/// Used by its own thread only.
class PendingWakeUps {
public:
    static PendingWakeUps& ofThisThread();

    /// Wakes one of the threads that sleep on the address, now, or later if this thread holds a
    /// lock. Uses the address only, which need not be that of an object any more.
    void wake(const void* address);

    /// Whether this thread is inside a `CriticalSection`, and no `WakeUpsAtOnce` lives.
    bool holdsLock() const { return m_locks > 0; }

    void lockTaken() { ++m_locks; }
    void lockReleased() {
        if (--m_locks == 0)
            issue();
    }

    /// To be called by a thread that is going to wait.
    void issue() {
        while (m_count > 0)
            wakeOne(m_addresses[--m_count]);
    }

private:
    friend class WakeUpsAtOnce;

    static void wakeOne(const void* address);

    unsigned m_locks = 0; ///< `CriticalSection`s that the thread is inside of
    unsigned m_count = 0;
    std::array<const void*, 4> m_addresses{}; ///< the first m_count of them are pending
};

/// While it lives, its thread wakes others at once, whatever locks it holds. For calls of code that
/// is not ours under a lock: it may ask for a wake-up and then wait, by any means, for what the
/// woken thread does.
class WakeUpsAtOnce {
public:
    WakeUpsAtOnce() : m_locks(m_pending.m_locks) {
        m_pending.m_locks = 0;
        m_pending.issue();
    }
    ~WakeUpsAtOnce() { m_pending.m_locks = m_locks; }

    WakeUpsAtOnce(const WakeUpsAtOnce&) = delete;
    WakeUpsAtOnce& operator=(const WakeUpsAtOnce&) = delete;

private:
    PendingWakeUps& m_pending = PendingWakeUps::ofThisThread();
    const unsigned m_locks;
};

} // namespace mirel
