#pragma once

#include "ServiceExecutor.h"
#include "ServiceThreadPool.h"
#include "framework/CommsChannelIfc.h"
#include "framework/Threader.h"

#include <list>
#include <memory>

namespace bench {

class Workload;

/// A pool of the library, and executors that take their workers from it. Outlived by the workloads
/// and by what the channels belong to.
class SharedPool {
public:
    /// Up to `workers` are kept.
    explicit SharedPool(int workers) : m_pool(workers, nullptr) {}

    /// Ends everything, in the order that the library asks for: the last workers may still be on
    /// their way out of an executor.
    ~SharedPool();

    /// Starts one more executor; one that is not multi-threaded takes no workers.
    void serve(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
               bool multiThreaded = true);

    /// Ends the executors' threads. Repeatable.
    void stopReading();

    ServiceThreadPool& pool() { return m_pool; }

private:
    Threader m_threader;
    ServiceThreadPool m_pool;
    std::list<ServiceExecutor> m_executors;
};

} // namespace bench
