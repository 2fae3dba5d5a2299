#pragma once

#include <pthread.h>

namespace mirel {

/// Makes OS threads that begin at the process's own nice value, whoever asks for them.
///
/// Linux gives a new thread the nice value of the one that starts it, and lets nobody go back to a
/// better one without a privilege. A worker of low priority that starts one of high priority would
/// keep it low for ever. So a thread beside all others stays at the process's nice value and starts
/// threads for those that do not run at it. There is one such thread in the process; it begins when
/// an object of this class is made by a thread that runs at the process's nice value, and ends with
/// the last object. So each thread that may start others has one for as long as it runs.
///
/// Any thread may make, use and destroy an object. A child of `fork` has none of the process's
/// threads and has to `exec`.
class ThreadStarter {
public:
    ThreadStarter();
    ~ThreadStarter();

    ThreadStarter(const ThreadStarter&) = delete;
    ThreadStarter& operator=(const ThreadStarter&) = delete;

    /// Does as `pthread_create` does, and returns what that returns. The thread has the caller's
    /// signal mask and processors, as always, but may begin under another scheduling policy.
    static int start(pthread_t& thread, pthread_attr_t& attributes, void* (*body)(void*),
                     void* argument);
};

} // namespace mirel
