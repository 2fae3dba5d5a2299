#include "runtime/values/InterceptorList.h"

#include "framework/InvokeInterceptorContext.h"

#include <utility>

namespace mirel {

void InterceptorList::add(Interceptor interceptor) {
    m_interceptors.push_back(std::move(interceptor));
}

void InterceptorList::dispatch(InvokeInterceptorContext* context) {
    if (context->interceptionPoint() == InvokeInterceptorContext::eBeforeInvocation) {
        for (const Interceptor& interceptor : m_interceptors)
            interceptor(*context);
    } else {
        for (auto interceptor = m_interceptors.rbegin(); interceptor != m_interceptors.rend();
             ++interceptor)
            (*interceptor)(*context);
    }
}

} // namespace mirel
