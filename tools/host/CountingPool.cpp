#include "host/CountingPool.h"

#include "host/Tally.h"

#include <utility>

namespace mirel {

CountingPool::CountingPool(int maxPoolSize, InvokeInterceptorDispatcher* dispatcher,
                           std::shared_ptr<Tally> tally)
    : ServiceThreadPool(maxPoolSize, dispatcher),
      m_tally(std::move(tally)) {}

ServiceThreadIfc* CountingPool::getThread(MirelThreadPriority priority, bool multiThreaded) {
    ServiceThreadIfc* const thread = ServiceThreadPool::getThread(priority, multiThreaded);
    if (multiThreaded) {
        const unsigned long inUse = ++m_inUse;
        unsigned long most = m_tally->mostWorkers;
        while (most < inUse && !m_tally->mostWorkers.compare_exchange_weak(most, inUse)) {
        }
    }
    return thread;
}

bool CountingPool::returnThread(ServiceThreadIfc* thread) {
    --m_inUse; // first: once it is back, another thread may be handed it
    return ServiceThreadPool::returnThread(thread);
}

} // namespace mirel
