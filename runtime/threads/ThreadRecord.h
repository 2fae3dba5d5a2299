#pragma once

#include "runtime/threads/Mutex.h"

#include <condition_variable>
#include <pthread.h>

namespace mirel {

/// Whether nobody has detached the calling thread, so that it has to be joined.
bool callingThreadIsJoinable();

/// What the framework knows of the OS thread that runs one `Threadable`; shared by the object, its
/// copies, the starter and the OS thread, so that it outlives whichever of them goes first.
///
/// The record can be started again, which gives it a new OS thread: by anybody when the former one
/// has ended, and by the former one itself while it is ending. Whoever waits, waits for the last.
/// Starts are numbered, because the system uses thread identifiers again. One thread at a time may
/// start; any thread may wait.
class ThreadRecord {
public:
    ThreadRecord() = default;
    ThreadRecord(const ThreadRecord&) = delete;
    ThreadRecord& operator=(const ThreadRecord&) = delete;

    /// Lets the system have the OS thread back if nobody has waited for it.
    ~ThreadRecord();

    // For the starter.

    /// The number of the next start. Changes nothing yet, except that a former OS thread which has
    /// ended is joined. `MirelException` when there is one that runs, other than the calling one.
    unsigned long nextStart();

    /// Makes `thread` the record's OS thread. It has not begun its work yet.
    void started(unsigned long start, pthread_t thread);

    // For the OS thread. Without effect when there has been another start since.

    /// The OS thread is about to end.
    void ended(unsigned long start);

    /// The OS thread goes on to something else: whoever waits need not wait for its end.
    void left(unsigned long start);

    // For everybody else.

    /// Returns when the OS thread is gone; at once when there is none.
    void waitUntilGone();

private:
    enum State {
        eGone,    ///< no OS thread, or none that could be joined
        eRunning, ///< from `started` to `ended` or `left`
        eEnded,   ///< still to be joined
        eJoining, ///< by the one waiter that found it ended
    };

    void endAs(State state, unsigned long start);

    Mutex m_mutex;
    std::condition_variable m_changed;
    State m_state MIREL_GUARDED_BY(m_mutex) = eGone;
    /// Number of the last start.
    unsigned long m_started MIREL_GUARDED_BY(m_mutex) = 0;
    pthread_t m_thread MIREL_GUARDED_BY(m_mutex){};
};

} // namespace mirel
