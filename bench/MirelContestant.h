#pragma once

#include "ServiceExecutor.h"
#include "ServiceThreadPool.h"
#include "bench/Workload.h"
#include "framework/CommsChannelIfc.h"
#include "framework/Threader.h"

#include <list>
#include <memory>

namespace bench {

constexpr int kWorkersKept = 16; ///< where there are more sources

/// The library: a pool, and executors that take their workers from it. Outlived by the workloads
/// and by what the channels belong to.
class MirelContestant {
public:
    /// The pool keeps up to so many workers.
    explicit MirelContestant(int workers)
        : MirelContestant(std::make_unique<ServiceThreadPool>(workers, nullptr)) {}

    explicit MirelContestant(std::unique_ptr<ServiceThreadPool> pool) : m_pool(std::move(pool)) {}

    /// Ends everything, in the order that the library asks for: the last workers may still be on
    /// their way out of an executor.
    ~MirelContestant() {
        stopReading();
        m_pool->shutdown();
    }

    /// Starts one more executor; one that is not multi-threaded takes no workers.
    void serve(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
               bool multiThreaded = true) {
        unsigned long id = 0;
        m_executors
            .emplace_back(&workload.service(), channel.release(), Workload::kInterface,
                          &workload.context(), m_pool.get(), nullptr, multiThreaded)
            .startThread(m_threader, id);
    }

    /// Ends the executors' threads. Repeatable.
    void stopReading() {
        for (ServiceExecutor& executor : m_executors)
            executor.shutdown();
    }

    ServiceThreadPool& pool() { return *m_pool; }

private:
    Threader m_threader;
    const std::unique_ptr<ServiceThreadPool> m_pool;
    std::list<ServiceExecutor> m_executors;
};

} // namespace bench
