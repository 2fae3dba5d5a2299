#pragma once

class InvokeInterceptorContext;

/// Shows contexts to interceptors. Called by every thread that runs service code, several at once.
class InvokeInterceptorDispatcher {
public:
    /// Shows `context`, which the interceptors may change. May throw: before the call into service
    /// code that refuses the call; after it, it is reported like a failure of the service code.
    virtual void dispatch(InvokeInterceptorContext* context) = 0;

    virtual ~InvokeInterceptorDispatcher() = default;
};
