#pragma once

#include <string>

class Threadable;

/// Starts objects on OS threads. Has no state of its own; any thread may use one.
class Threader {
public:
    Threader();
    virtual ~Threader();

    /// Has an OS thread call `threadable->run()`, and stores the thread's identifier in
    /// `threadId` and in the object before `run()` begins. An empty `name` names the thread after
    /// `threadable->type()`. The two integers are not used. Returns 0.
    ///
    /// An object has one OS thread at a time. It may be started again when the former one has
    /// ended, or by the former one itself from the unwinding of a `pthread_exit` or a cancellation
    /// in `run()`: then whoever waits for the object, or for a copy of it, waits for the new OS
    /// thread, and the former one is to be detached by its own last code.
    ///
    /// What `run()` throws is logged. The OS thread may then be kept, and run another object later;
    /// that one finds the name, scheduling, signal mask, processors, cancellation state and
    /// floating-point environment of a new one. What `run()` leaves in `thread_local` objects and
    /// in keys of `pthread_setspecific` stays as it is, and is destroyed when the OS thread ends;
    /// not at all when the process ends first. A child of `fork` has none of the threads and has to
    /// `exec`. Called inside a `CriticalSection`, `run()` may not begin before its end.
    /// `pthread_exit` and cancellation in `run()` end it.
    ///
    /// A system that refuses a thread is asked again for a bounded time; then `MirelException` is
    /// thrown, and neither `threadId` nor the object has changed. So it is for an object whose OS
    /// thread is still running.
    virtual int createThread(unsigned long& threadId, Threadable* threadable, std::string name, int,
                             int);
};
