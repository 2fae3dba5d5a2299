#include "ServiceThread_ST.h"

#include "FailureTiers.h"
#include "Invocation.h"
#include "Trace.h"
#include "framework/ExceptionPublisher.h"
#include "framework/Executable.h"
#include "framework/ProcessTypeString.h"

#include <iostream>

namespace {

constexpr const char* kComponent = "ServiceThread_ST";

/// Runs the work of a thread object in tiers, as `runInTiers`. Service code that ends the OS thread
/// takes the object with it: nobody else would.
template <typename Work, typename Handler>
void runOn(ServiceThread_ST* thread, Work work, Handler handler) {
    try {
        runInTiers(work, handler);
    } catch (abi::__forced_unwind&) {
        delete thread;
        throw;
    }
}

} // namespace

ServiceThread_ST::ServiceThread_ST(InvokeInterceptorDispatcher* dispatcher)
    : m_pinterceptorDispatcher(dispatcher) {}

ServiceThread_ST::~ServiceThread_ST() = default;

void ServiceThread_ST::executeRequest(Invoker* invoker, Executable* executable, const char* data,
                                      int length, InvokerResponse* response) {
    const void* const self = this;
    OwnedResponse owned(response);
    if (!invoker) {
        LOG_ERROR(
            "executeRequest() - invoker is not set, no request to execute, ServiceThread_ST = %p",
            self);
        delete owned.release();
    } else {
        runOn(
            this,
            [&] {
                TRACE(5, "executeRequest(this=%p) - calling handleMessage", self);
                invoke(m_pinterceptorDispatcher, *invoker, executable, data, length, owned);
            },
            [&](const CaughtException& caught) {
                TRACE(5, "executeRequest(this=%p) - %s caught!", self, caught.kind());
                delete owned.release();
                TRACE(5, "executeRequest(this=%p) - deleted m_presponse", self);
                if (caught.cause())
                    TRACE(5, "executeRequest(this=%p) - calling publish exception", self);
                publish(caught, Place::here(), invoker, executable, data, 0);
            });
    }
    // The caller gave the object up with this call, and nobody else knows of it.
    delete this;
}

void ServiceThread_ST::timerEvent(Executable* executable, int timerId) {
    const void* const self = this;
    if (!executable) {
        std::cout << "ServiceThread_ST::timerEvent() svc is not set, ServiceThread_ST = " << self
                  << std::endl;
    } else {
        runOn(
            this,
            [&] {
                TRACE(5, "timerEvent(this=%p) - calling timerEvent", self);
                executable->timerEvent(timerId);
            },
            [&](const CaughtException& caught) {
                TRACE(5, "timerEvent(this=%p) - %s caught!", self, caught.kind());
                if (caught.cause())
                    TRACE(5, "timerEvent(this=%p) - calling publish exception", self);
                publish(caught, Place::here(), nullptr, executable, nullptr, timerId);
            });
    }
    // As in executeRequest.
    delete this;
}

void ServiceThread_ST::publish(const CaughtException& caught, const Place& noticed,
                               Invoker* invoker, Executable* executable, const char* data,
                               int timerId) {
    std::string text = caught.reportPrefix(kComponent);
    setDetailedExceptionData(text, invoker, executable, data, timerId);
    MirelException report = caught.report(text, noticed);
    TRACE(5, "execute(this=%p) - calling publish exception", static_cast<const void*>(this));
    ExceptionPublisher::instance()->publishException(report);
}

std::string& ServiceThread_ST::setDetailedExceptionData(std::string& text, Invoker* invoker,
                                                        Executable* executable, const char* data,
                                                        int timerId) {
    return appendWorkDetails(text, invoker, executable, data, timerId);
}

MirelThreadPriority ServiceThread_ST::threadPriority() { return MirelThreadPriority(1); }
MirelThreadPriority ServiceThread_ST::getThreadPriorityForPlatform() { return threadPriority(); }
std::string ServiceThread_ST::type() { return ProcessTypeString::SERVICE_ST_THREAD; }
bool ServiceThread_ST::reuseThread() { return false; }

// An inline thread has no OS thread and stores no work.

void ServiceThread_ST::run() {}
void ServiceThread_ST::destroyThread() {}
void ServiceThread_ST::callBackOnCompletion(ServiceExecCallbackIfc*) {}
void ServiceThread_ST::execute() {}
void ServiceThread_ST::clearRequestData() {}
