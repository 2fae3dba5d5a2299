#pragma once

#include "ServiceThreadPool.h"

#include <atomic>
#include <memory>

namespace mirel {

struct Tally;

/// A pool that counts how many workers are in use at once. To be shut down before it is destroyed,
/// because workers that come back use it.
class CountingPool : public ServiceThreadPool {
public:
    CountingPool(int maxPoolSize, InvokeInterceptorDispatcher* dispatcher,
                 std::shared_ptr<Tally> tally);

    ServiceThreadIfc* getThread(MirelThreadPriority priority, bool multiThreaded) override;
    bool returnThread(ServiceThreadIfc* thread) override;

private:
    const std::shared_ptr<Tally> m_tally;
    std::atomic<unsigned long> m_inUse{0};
};

} // namespace mirel
