#include "bench/SharedPool.h"

#include "bench/Workload.h"

namespace bench {

SharedPool::~SharedPool() {
    stopReading();
    m_pool.shutdown();
}

void SharedPool::serve(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                       bool multiThreaded) {
    ServiceExecutor& executor =
        m_executors.emplace_back(&workload.service(), channel.release(), Workload::kInterface,
                                 &workload.context(), &m_pool, nullptr, multiThreaded);
    unsigned long id = 0;
    executor.startThread(m_threader, id);
}

void SharedPool::stopReading() {
    for (ServiceExecutor& executor : m_executors)
        executor.shutdown();
}

} // namespace bench
