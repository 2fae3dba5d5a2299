#include "channels/LimitedPool.h"

#include "channels/FlowLimit.h"

#include <utility>

namespace mirel {

LimitedPool::LimitedPool(int maxPoolSize, InvokeInterceptorDispatcher* dispatcher,
                         std::shared_ptr<FlowLimit> limit)
    : ServiceThreadPool(maxPoolSize, dispatcher),
      m_limit(std::move(limit)) {}

ServiceThreadIfc* LimitedPool::getThread(MirelThreadPriority priority, bool multiThreaded) {
    ServiceThreadIfc* const thread = ServiceThreadPool::getThread(priority, multiThreaded);
    if (multiThreaded)
        m_limit->workerTaken();
    return thread;
}

bool LimitedPool::returnThread(ServiceThreadIfc* thread) {
    m_limit->workerReturned(); // first: once it is back, another thread may be handed it
    return ServiceThreadPool::returnThread(thread);
}

} // namespace mirel
