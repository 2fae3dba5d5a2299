#pragma once

#include "ServiceThreadIfc.h"

#include "framework/Semaphore.h"

#include <atomic>
#include <string>

class CaughtException;
class InvokeInterceptorDispatcher;
struct Place;
class ServiceThreadPoolIfc;

/// A worker: a service thread with an OS thread of its own, which the pool creates, starts and
/// keeps.
///
/// It runs what it is handed, reports what the service code throws, and then takes its next request
/// from its completion callback or goes back to its pool. Nothing that service code, interceptors,
/// the publisher, the logger or a response's destructor throws ends it. Service code that ends the
/// OS thread itself (`pthread_exit`, cancellation) costs that request and that OS thread: the
/// worker goes on under a new one.
///
/// The object deletes itself when its loop ends, which only `destroyThread` brings about. A worker
/// that was told to stop runs no other request than the one that it is running. It destroys the
/// response of a request that it was handed all the same, and then calls its callback as if that
/// had run, until it is handed nothing more.
class __attribute__((visibility("default"))) ServiceThread_MT : public ServiceThreadIfc {
public:
    /// Starts nothing: the pool starts the OS thread. `reuseThread`: kept idle between pieces of
    /// work, or used for one hand-out only. `dispatcher` may be null.
    ServiceThread_MT(ServiceThreadPoolIfc* pool, bool reuseThread, MirelThreadPriority priority,
                     InvokeInterceptorDispatcher* dispatcher);

    ServiceThread_MT(const ServiceThread_MT&) = delete;
    ServiceThread_MT& operator=(const ServiceThread_MT&) = delete;

    /// Runs at the end of `run()`, or in the pool when the OS thread could not be started.
    ~ServiceThread_MT() override;

    void run() override;
    MirelThreadPriority getThreadPriorityForPlatform() override;
    std::string type() override;

    void executeRequest(Invoker* invoker, Executable* executable, const char* data, int length,
                        InvokerResponse* response) override;
    void timerEvent(Executable* executable, int timerId) override;
    void destroyThread() override;
    bool reuseThread() override;
    MirelThreadPriority threadPriority() override;
    void callBackOnCompletion(ServiceExecCallbackIfc* callback) override;
    void execute() override;
    void clearRequestData() override;

    /// Appends the stored work's invoker, service and request or timer id to `text`.
    std::string& setDetailedExceptionData(std::string& text);

private:
    enum RequestType { eNoRequest = 0, eRequest = 1, eTimer = 2 };

    void runStoredWork();
    bool takeNextFromCallback();
    void returnToPool();
    void dropWork();
    void end();
    void goOnUnderNewThread();
    void publish(const CaughtException& caught, const Place& noticed);

    ServiceThreadPoolIfc* const m_pthreadPool; ///< not owned

    /// Cleared when the worker has lost its OS thread and cannot get another one: it leaves its
    /// pool then. Atomic, because the pool may ask meanwhile.
    std::atomic<bool> m_reuseThread;

    /// Set once, by `destroyThread`; read by the loop without a lock.
    std::atomic<bool> m_stopThread;

    /// Owned. Given once for each piece of work, and by `destroyThread` to wake an idle worker.
    Semaphore* const m_prequestSem;

    // The stored work. Written by whoever holds the idle worker, before it gives m_prequestSem;
    // read by the worker's OS thread after it has taken it. `execute` takes m_presponse out, so it
    // is set only while the work has not run.
    Invoker* m_pinvoker;
    Executable* m_pexecutable;
    char* m_pdata; ///< owned array: m_dataLength bytes and a NUL byte
    int m_dataLength;
    InvokerResponse* m_presponse;
    int m_timerId;
    RequestType m_requestType;

    const MirelThreadPriority m_threadPriority;
    InvokeInterceptorDispatcher* const m_pinterceptorDispatcher; ///< not owned, may be null

    /// Not owned. Written by the holder before it hands over work, and by the worker before it
    /// returns itself to the pool, never after.
    ServiceExecCallbackIfc* m_pcallback;

    /// Given by `destroyThread` as the last thing it does with this object, and taken by the loop
    /// before it deletes the object. The stop flag alone does not do: a worker that was busy sees
    /// it before `destroyThread` has given m_prequestSem.
    Semaphore m_destroyed;
};
