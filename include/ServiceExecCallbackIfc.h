#pragma once

class ServiceThreadIfc;

/// What a worker calls when it has finished a piece of work. Not owned by the worker.
class __attribute__((visibility("default"))) ServiceExecCallbackIfc {
public:
    /// Called by the worker `thread` on its own OS thread, after its work has run and has been
    /// cleared. The callee may hand the worker its next request, with one call of
    /// `thread->executeRequest`, and then returns true: the worker runs that request next and keeps
    /// this callback, or, when it has been told to stop, destroys the response and calls again.
    /// Otherwise it returns false: the worker forgets this callback, which it does not touch any
    /// more, and goes back to its pool. If it throws, the worker logs that and goes on as if it had
    /// returned false.
    virtual bool reuseThreadForDelayedMessage(ServiceThreadIfc* thread) = 0;

protected:
    ~ServiceExecCallbackIfc() = default;
};
