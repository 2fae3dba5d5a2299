#pragma once

#include "ServiceThreadPool.h"

#include <atomic>
#include <memory>

namespace mirel {

class FlowLimit;

/// A pool whose workers in use count towards a limit. Together with the channels that share the
/// limit it bounds how many threads there are: also those that run timer events, which nobody
/// answers.
class LimitedPool : public ServiceThreadPool {
public:
    LimitedPool(int maxPoolSize, InvokeInterceptorDispatcher* dispatcher,
                std::shared_ptr<FlowLimit> limit);

    /// Shuts down, as long as workers that come back find this object whole.
    ~LimitedPool() override;

    /// As `ServiceThreadPool::shutdown`; afterwards no worker of the pool counts any more.
    void shutdown();

    using ServiceThreadPool::getThread;
    ServiceThreadIfc* getThread(MirelThreadPriority priority, bool multiThreaded) override;
    bool returnThread(ServiceThreadIfc* thread) override;

private:
    const std::shared_ptr<FlowLimit> m_limit;
    std::atomic<long> m_inUse{0}; ///< of what the limit counts
};

} // namespace mirel
