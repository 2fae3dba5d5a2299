#pragma once

#include "ServiceThreadPool.h"

#include <memory>

namespace mirel {

class FlowLimit;

/// A pool whose workers in use count towards a limit. Together with the channels that share the
/// limit it bounds how many threads there are: also those that run timer events, which nobody
/// answers. To be shut down before it is destroyed, because workers that come back use it.
class LimitedPool : public ServiceThreadPool {
public:
    LimitedPool(int maxPoolSize, InvokeInterceptorDispatcher* dispatcher,
                std::shared_ptr<FlowLimit> limit);

    ServiceThreadIfc* getThread(MirelThreadPriority priority, bool multiThreaded) override;
    bool returnThread(ServiceThreadIfc* thread) override;

private:
    const std::shared_ptr<FlowLimit> m_limit;
};

} // namespace mirel
