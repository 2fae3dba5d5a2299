#pragma once

#include "bench/BatchChannel.h"
#include "bench/Workload.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace bench {

class SharedPool;

/// Requests that each keep a worker until all of them have one. Outlives the pool that it is sent to.
class Crowd {
public:
    explicit Crowd(int size);

    /// Has the pool run all requests at once; returns after as many workers are idle in it, and says
    /// how long it took until each request had its worker. Once only.
    std::chrono::nanoseconds gather(SharedPool& pool);

private:
    void waitForAll();

    const int m_size;
    Workload m_workload;
    Batches m_batches;

    // Guarded by m_mutex.
    std::mutex m_mutex;
    std::condition_variable m_complete;
    int m_inside = 0;
    std::chrono::steady_clock::time_point m_completedAt;
};

} // namespace bench
