#pragma once

#include "runtime/threads/Mutex.h"
#include "runtime/threads/PendingWakeUps.h"

#include <condition_variable>

namespace mirel {

/// Counts the threads that are inside a foreign function, so that whoever takes the function away
/// can wait for them, without a lock being held during the calls. Any thread.
class CallGate {
public:
    /// Each true is followed by `leave`. False once the gate is closed.
    bool enter() {
        const Lock lock(m_mutex);
        if (m_closed)
            return false;
        ++m_inside;
        return true;
    }

    void leave() {
        const Lock lock(m_mutex);
        if (--m_inside == 0)
            m_empty.notify_all();
    }

    /// Lets nobody in any more, and returns when nobody is inside.
    void close() {
        PendingWakeUps::ofThisThread().issue();
        Lock lock(m_mutex);
        m_closed = true;
        while (m_inside > 0)
            lock.wait(m_empty);
    }

private:
    Mutex m_mutex;
    std::condition_variable m_empty;
    unsigned long m_inside MIREL_GUARDED_BY(m_mutex) = 0;
    bool m_closed MIREL_GUARDED_BY(m_mutex) = false;
};

/// One attempt to pass a gate, for the length of a scope.
class CallPass {
public:
    explicit CallPass(CallGate& gate) : m_gate(gate), m_entered(gate.enter()) {}
    ~CallPass() {
        if (m_entered)
            m_gate.leave();
    }

    CallPass(const CallPass&) = delete;
    CallPass& operator=(const CallPass&) = delete;

    explicit operator bool() const { return m_entered; }

private:
    CallGate& m_gate;
    const bool m_entered;
};

} // namespace mirel
