#include "channels/LimitedPool.h"

#include "channels/FlowLimit.h"

#include <utility>

namespace mirel {

LimitedPool::LimitedPool(int maxPoolSize, InvokeInterceptorDispatcher* dispatcher,
                         std::shared_ptr<FlowLimit> limit)
    : ServiceThreadPool(maxPoolSize, dispatcher),
      m_limit(std::move(limit)) {}

LimitedPool::~LimitedPool() { shutdown(); }

void LimitedPool::shutdown() {
    ServiceThreadPool::shutdown();
    // A worker that was told to stop before it had begun its work has ended without coming back.
    for (long left = m_inUse.exchange(0); left > 0; --left)
        m_limit->workerReturned();
}

ServiceThreadIfc* LimitedPool::getThread(MirelThreadPriority priority, bool multiThreaded) {
    ServiceThreadIfc* const thread = ServiceThreadPool::getThread(priority, multiThreaded);
    if (multiThreaded) {
        ++m_inUse;
        m_limit->workerTaken();
    }
    return thread;
}

bool LimitedPool::returnThread(ServiceThreadIfc* thread) {
    --m_inUse;
    m_limit->workerReturned(); // first: once it is back, another thread may be handed it
    return ServiceThreadPool::returnThread(thread);
}

} // namespace mirel
