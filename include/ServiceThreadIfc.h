#pragma once

#include "framework/Threadable.h"

class Executable;
class Invoker;
class InvokerResponse;
class ServiceExecCallbackIfc;

/// One service thread: runs one invoker request or one timer event at a time.
///
/// There are two kinds. A worker (`ServiceThread_MT`) has an OS thread of its own, which runs what
/// it is handed later; an inline thread (`ServiceThread_ST`) runs it on the caller's thread, inside
/// the call, and is gone when the call returns.
///
/// Calling order: whoever takes a thread from a pool may register a completion callback and then
/// makes exactly one call of `executeRequest` or `timerEvent`. After that call the object is not
/// the caller's any more and must not be touched. The one exception is the completion callback,
/// which runs on the worker's own OS thread and may hand the worker one more piece of work.
class __attribute__((visibility("default"))) ServiceThreadIfc : public Threadable {
public:
    ~ServiceThreadIfc() override;

    /// Hands over one request: `invoker->handleMessage(executable, data, length, response)`.
    /// `data` is `length` bytes followed by a NUL byte and needs to live for this call only.
    ///
    /// The response is taken over. It is left to the invoker when `handleMessage` returns normally,
    /// and deleted when `invoker` is null or when the request ends with an exception.
    ///
    /// A worker may throw `std::bad_alloc`; it has taken over nothing then and is still free.
    virtual void executeRequest(Invoker* invoker, Executable* executable, const char* data,
                                int length, InvokerResponse* response) = 0;

    /// Hands over one timer event: `executable->timerEvent(timerId)`.
    virtual void timerEvent(Executable* executable, int timerId) = 0;

    /// Ends a worker for good; nobody may use it afterwards. From another thread, returns when the
    /// worker's OS thread has ended, which is after the work that it is running; from the worker's
    /// own thread, returns at once, and the worker ends when it gets back to its loop. A second
    /// call does nothing. For the pool only. An inline thread does nothing.
    virtual void destroyThread() = 0;

    /// True when the pool keeps the thread idle between pieces of work.
    virtual bool reuseThread() = 0;

    /// The priority that the thread serves; 1 for every inline thread.
    virtual MirelThreadPriority threadPriority() = 0;

    /// Registers what a worker calls when its work is done, or nothing (null). Stays registered
    /// until the callback returns false. To be called before the work is handed over. Not owned:
    /// must outlive the worker's use of it. An inline thread ignores it.
    virtual void callBackOnCompletion(ServiceExecCallbackIfc* callback) = 0;

    /// Runs the stored work. Called by a worker's own loop.
    virtual void execute() = 0;

    /// Forgets the stored work and frees the copy of its data; never deletes the response.
    virtual void clearRequestData() = 0;
};
