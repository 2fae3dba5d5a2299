#pragma once

#include "framework/InvokerResponse.h"

#include <memory>

class Executable;
class InvokeInterceptorDispatcher;
class Invoker;

/// Destroys a response whose request will not run. Never throws: what the response's destructor
/// throws is logged.
struct ResponseDestroyer {
    void operator()(InvokerResponse* response) const;
};

/// A response on its way to the thread that runs its request. Until it is released, its caller gets
/// an answer (a failure) by its destruction.
using OwnedResponse = std::unique_ptr<InvokerResponse, ResponseDestroyer>;

/// Runs one request, between two calls of the interceptors when there is a dispatcher.
///
/// `response` is released as soon as `handleMessage` has returned normally: from then on it is the
/// invoker's, which may have deleted it, also when the second call of the interceptors throws.
void invoke(InvokeInterceptorDispatcher* dispatcher, Invoker& invoker, Executable* executable,
            const char* data, int length, OwnedResponse& response);
