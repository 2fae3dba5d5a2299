#pragma once

#include <string>

class Threadable;

/// Starts OS threads. Has no state of its own; any thread may use one.
class Threader {
public:
    Threader();
    virtual ~Threader();

    /// Starts an OS thread that calls `threadable->run()`, and stores the thread's identifier in
    /// `threadId` and in the object before `run()` begins. An empty `name` names the thread after
    /// `threadable->type()`. The two integers are not used. Returns 0.
    ///
    /// An object has one OS thread at a time. It may be started again when the former one has
    /// ended, or by the former one itself from the unwinding of a `pthread_exit` or a cancellation
    /// in `run()`: then whoever waits for the object, or for a copy of it, waits for the new OS
    /// thread, and the former one is to be detached by its own last code.
    ///
    /// What `run()` throws is logged and ends the OS thread. `pthread_exit` and cancellation end it
    /// as well.
    ///
    /// A system that refuses a thread is asked again for a bounded time; then `MirelException` is
    /// thrown, and neither `threadId` nor the object has changed. So it is for an object whose OS
    /// thread is still running.
    virtual int createThread(unsigned long& threadId, Threadable* threadable, std::string name, int,
                             int);
};
