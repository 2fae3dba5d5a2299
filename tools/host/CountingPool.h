#pragma once

#include "ServiceThreadPool.h"

#include <memory>

namespace mirel {

class FlowLimit;

/// A pool that counts the workers in use. To be shut down before it is destroyed, because workers
/// that come back use it.
class CountingPool : public ServiceThreadPool {
public:
    CountingPool(int maxPoolSize, InvokeInterceptorDispatcher* dispatcher,
                 std::shared_ptr<FlowLimit> flow);

    ServiceThreadIfc* getThread(MirelThreadPriority priority, bool multiThreaded) override;
    bool returnThread(ServiceThreadIfc* thread) override;

private:
    const std::shared_ptr<FlowLimit> m_flow;
};

} // namespace mirel
