#pragma once

// An inspector is a friend of a class of the library: it reads the private containers, and checks
// that they agree with each other.

#include "ServiceExecutor.h"
#include "ServiceThreadPool.h"

#include <array>
#include <functional>
#include <list>

/// Reads the lists of a pool, which must outlive it.
class PoolInspector {
public:
    explicit PoolInspector(ServiceThreadPool& pool) : m_pool(pool) {}

    /// To be called before each step. Fails the run unless the lists agree with each other and each
    /// list of idle workers has changed as a queue does. Looks only when nobody holds their lock.
    void check();

    Semaphore& lock() const { return *m_pool.m_ppoolLock; }
    std::size_t listed() const { return m_pool.m_pallThreads->size(); }
    std::size_t idle() const;
    /// Whether all workers that the pool counts as reusable are idle.
    bool countsIdle() const { return static_cast<int>(idle()) == m_pool.m_poolSize; }
    bool isIdle(const ServiceThreadIfc* worker) const;

private:
    using Workers = std::list<ServiceThreadIfc*>;
    Workers successor(Workers before, const Workers& now) const;

    ServiceThreadPool& m_pool;
    std::array<Workers, 3> m_idleBefore; ///< at the last check
};

/// A pool that may refuse workers, and hold them up when they have returned themselves.
class ScenarioPool : public ServiceThreadPool {
public:
    using ServiceThreadPool::ServiceThreadPool;
    ServiceThreadIfc* getThread(MirelThreadPriority priority, bool multiThreaded) override;
    bool returnThread(ServiceThreadIfc* thread) override;

    std::function<bool()> refuses; ///< empty: none
};

/// Reads the containers of an executor.
class ExecutorInspector {
public:
    static Semaphore& lock(ServiceExecutor& executor) { return executor.m_channelLock; }

    /// Fails the run unless the containers agree with each other and with the pool, when nobody
    /// holds their lock.
    static void check(ServiceExecutor& executor, const PoolInspector& pool);

    /// Whether a worker of this priority serves the channel.
    static bool serves(const ServiceExecutor& executor, const std::string& channel, int priority);

    static bool holdsBack(const ServiceExecutor& executor) {
        return !executor.m_delayedMessages.empty();
    }
    static bool isClean(const ServiceExecutor& executor) {
        return executor.m_threadChannels.empty() && executor.m_busyChannels.empty() &&
               executor.m_delayedMessages.empty();
    }
};
