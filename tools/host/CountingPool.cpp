#include "host/CountingPool.h"

#include "host/FlowLimit.h"

#include <utility>

namespace mirel {

CountingPool::CountingPool(int maxPoolSize, InvokeInterceptorDispatcher* dispatcher,
                           std::shared_ptr<FlowLimit> flow)
    : ServiceThreadPool(maxPoolSize, dispatcher),
      m_flow(std::move(flow)) {}

ServiceThreadIfc* CountingPool::getThread(MirelThreadPriority priority, bool multiThreaded) {
    ServiceThreadIfc* const thread = ServiceThreadPool::getThread(priority, multiThreaded);
    if (multiThreaded)
        m_flow->workerTaken();
    return thread;
}

bool CountingPool::returnThread(ServiceThreadIfc* thread) {
    m_flow->workerReturned(); // first: once it is back, another thread may be handed it
    return ServiceThreadPool::returnThread(thread);
}

} // namespace mirel
