#pragma once

#include "framework/InvokeInterceptorDispatcher.h"

#include <functional>
#include <vector>

namespace mirel {

/// A dispatcher that shows each context to a list of interceptors: in the order in which they were
/// added before the call into service code, in the reverse order after it.
class InterceptorList : public InvokeInterceptorDispatcher {
public:
    /// May throw, which ends the dispatch: the rest of the list is not called.
    using Interceptor = std::function<void(InvokeInterceptorContext&)>;

    /// To be called before the first message is read.
    void add(Interceptor interceptor);

    void dispatch(InvokeInterceptorContext* context) override;

private:
    std::vector<Interceptor> m_interceptors;
};

} // namespace mirel
