#pragma once

#include "framework/InterceptionContext.h"
#include "framework/Opaque.h"

#include <any>

class CommsChannelDataContainerMessage;
class InvokerResponse;

/// What interceptors see of one call into service code: once before it, once after it has returned
/// normally. Lives on the stack of the thread that makes the call; the context shown after the call
/// is a copy of the one shown before it.
class InvokeInterceptorContext : public InterceptionContext {
public:
    enum InterceptionPoint {
        eBeforeInvocation = 0,
        eAfterInvocation = 1,
    };

    /// For a legacy message.
    InvokeInterceptorContext(InterceptionPoint point, CommsChannelDataContainerMessage& msg);

    /// For an invoker request with `dataLength` bytes of data.
    InvokeInterceptorContext(InterceptionPoint point, int dataLength, InvokerResponse* response);

    InvokeInterceptorContext(const InvokeInterceptorContext&);
    InvokeInterceptorContext& operator=(const InvokeInterceptorContext&);
    ~InvokeInterceptorContext() override;

    void setInterceptionPoint(InterceptionPoint point);

    // The library does not use these. They are for the interceptors.

    InterceptionPoint interceptionPoint() const;

    /// The legacy message; null for a request.
    CommsChannelDataContainerMessage* message() const;

    /// The request's length in bytes; 0 for a legacy message.
    int dataLength() const;

    /// The request's response; null for a legacy message. After the invocation it tells requests
    /// apart but must not be used: the service may have answered and disposed of it.
    InvokerResponse* response() const;

    /// A place where one interceptor keeps something from before the call to after it, such as a
    /// start time. `owner` is any address that is the interceptor's own. Empty at first.
    std::any& note(const void* owner);

private:
    Opaque<64> m_opaque;
};
