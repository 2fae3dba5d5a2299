#include "runtime/threads/ThreadRecord.h"

#include "framework/MirelException.h"
#include "runtime/threads/CancellationOff.h"
#include "runtime/threads/PendingWakeUps.h"

namespace mirel {

bool callingThreadIsJoinable() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return true;
    int detachState = PTHREAD_CREATE_JOINABLE;
    pthread_attr_getdetachstate(&attributes, &detachState);
    pthread_attr_destroy(&attributes);
    return detachState == PTHREAD_CREATE_JOINABLE;
}

namespace {

/// Joins a thread that is at its end. Not to be interrupted: nobody else would do it.
void join(pthread_t thread) {
    const CancellationOff cancellationOff;
    pthread_join(thread, nullptr);
}

} // namespace

ThreadRecord::~ThreadRecord() {
    // Never eRunning here: the OS thread has a share in the record.
    if (m_state == eEnded)
        pthread_detach(m_thread);
}

unsigned long ThreadRecord::nextStart() {
    {
        const Lock lock(m_mutex);
        if (m_state == eRunning) {
            if (!pthread_equal(m_thread, pthread_self()))
                throw MirelException("the object has a thread that is still running", __FILE__,
                                     __LINE__);
            return m_started + 1;
        }
    }
    waitUntilGone();
    const Lock lock(m_mutex);
    return m_started + 1;
}

void ThreadRecord::started(unsigned long start, pthread_t thread) {
    const Lock lock(m_mutex);
    m_state = eRunning;
    m_started = start;
    m_thread = thread;
}

void ThreadRecord::ended(unsigned long start) {
    endAs(callingThreadIsJoinable() ? eEnded : eGone, start);
}

void ThreadRecord::left(unsigned long start) { endAs(eGone, start); }

void ThreadRecord::endAs(State state, unsigned long start) {
    const Lock lock(m_mutex);
    if (m_started != start)
        return;
    m_state = state;
    m_changed.notify_all();
}

void ThreadRecord::waitUntilGone() {
    PendingWakeUps::ofThisThread().issue();
    Lock lock(m_mutex);
    while (m_state != eEnded && m_state != eGone)
        lock.wait(m_changed);
    if (m_state == eGone)
        return;
    // This waiter is the one that joins; the others find eJoining, and then eGone.
    m_state = eJoining;
    const pthread_t thread = m_thread;
    lock.unlock();
    join(thread);
    lock.lock();
    m_state = eGone;
    m_changed.notify_all();
}

} // namespace mirel
