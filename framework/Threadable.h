#pragma once

#include "framework/MirelThreadPriority.h"
#include "framework/Opaque.h"

#include <string>

/// An object with a thread body. `Threader` finds an OS thread that calls `run()`. The OS thread
/// may detach itself (`pthread_detach`) before it ends; who waits for it then returns when its body
/// has ended, as there is nothing left to join.
///
/// Threads: `threadId` and `waitForThreadCompletion` may be called by any thread while the object
/// lives. The OS thread does not touch the object after `run()` has returned, so `run()` may end
/// with `delete this`.
///
/// A copy stands for the same OS thread as its original and may outlive it: who wants to wait for a
/// thread whose object deletes itself takes a copy first and waits on the copy. An OS thread that
/// is ending may start another one for its object; the copies stand for that one then.
class Threadable {
public:
    Threadable();
    Threadable(const Threadable& other);
    Threadable& operator=(const Threadable&) = delete;

    virtual ~Threadable();

    /// The body of the thread.
    virtual void run() = 0;

    /// The priority at which the framework runs the thread; read once, when the thread starts.
    virtual MirelThreadPriority getThreadPriorityForPlatform() = 0;

    /// What kind of thread this is; the OS thread is named after it.
    virtual std::string type();

    /// Identifier of the OS thread that runs this object, a value that `pthread_detach` accepts.
    /// Valid before `run()` begins; 0 while no thread has been started. When `run()` has ended, the
    /// OS thread may run another object, and the identifier then belongs to that one as well: who
    /// cancels by it must be certain that `run()` has not ended.
    unsigned long threadId() const;

    /// Identifier of the calling thread.
    static unsigned long currentThreadId();

    /// Returns when this object's OS thread has ended or has been kept for other objects; at once
    /// when none was started or when it has been waited for before. Does not wait for another
    /// object. Not to be called on that thread itself.
    void waitForThreadCompletion();

private:
    friend class Threader;

    Opaque<24> m_opaque;
};
