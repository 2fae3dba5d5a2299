#include "Invocation.h"

#include "FailureTiers.h"
#include "framework/InvokeInterceptorContext.h"
#include "framework/InvokeInterceptorDispatcher.h"
#include "framework/Invoker.h"

namespace {

using InterceptionPoint = InvokeInterceptorContext::InterceptionPoint;

} // namespace

void ResponseDestroyer::operator()(InvokerResponse* response) const {
    survive("InvokerResponse", "destruction of a response", [response] { delete response; });
}

void invoke(InvokeInterceptorDispatcher* dispatcher, Invoker& invoker, Executable* executable,
            const char* data, int length, OwnedResponse& response) {
    if (!dispatcher) {
        invoker.handleMessage(executable, data, length, response.get());
        (void)response.release();
        return;
    }
    InvokeInterceptorContext before(InterceptionPoint(0), length, response.get());
    dispatcher->dispatch(&before);
    invoker.handleMessage(executable, data, length, response.get());
    (void)response.release();
    // A copy, so that what interceptors kept in the first context reaches the second call.
    InvokeInterceptorContext after(before);
    after.setInterceptionPoint(InterceptionPoint(1));
    dispatcher->dispatch(&after);
}
