#pragma once

#include "ServiceThreadIfc.h"

#include <string>

class CaughtException;
class InvokeInterceptorDispatcher;
struct Place;

/// An inline thread: runs one request or one timer event on the thread that hands it over, and then
/// deletes itself. It has no OS thread, no queue and no lock.
///
/// What the service code throws is reported and does not reach the caller. What the reporting
/// itself throws does, and then the object is not deleted. When the service code ends the thread,
/// it is.
class __attribute__((visibility("default"))) ServiceThread_ST : public ServiceThreadIfc {
public:
    /// `dispatcher` is not owned and may be null.
    explicit ServiceThread_ST(InvokeInterceptorDispatcher* dispatcher);

    ServiceThread_ST(const ServiceThread_ST&) = delete;
    ServiceThread_ST& operator=(const ServiceThread_ST&) = delete;

    ~ServiceThread_ST() override;

    void run() override;
    MirelThreadPriority getThreadPriorityForPlatform() override;
    std::string type() override;

    /// Each deletes this object before it returns.
    void executeRequest(Invoker* invoker, Executable* executable, const char* data, int length,
                        InvokerResponse* response) override;
    void timerEvent(Executable* executable, int timerId) override;

    void destroyThread() override;
    bool reuseThread() override;
    MirelThreadPriority threadPriority() override;
    void callBackOnCompletion(ServiceExecCallbackIfc* callback) override;
    void execute() override;
    void clearRequestData() override;

    /// Appends the invoker, the service and the request or timer id to `text`.
    std::string& setDetailedExceptionData(std::string& text, Invoker* invoker,
                                          Executable* executable, const char* data, int timerId);

private:
    void publish(const CaughtException& caught, const Place& noticed, Invoker* invoker,
                 Executable* executable, const char* data, int timerId);

    InvokeInterceptorDispatcher* const m_pinterceptorDispatcher;
};
