#pragma once

#include "ServiceLock.h"
#include "ServiceThreadPoolIfc.h"

#include <atomic>
#include <list>
#include <unordered_map>
#include <vector>

class InvokeInterceptorDispatcher;
class Threader;

/// Keeps workers of three priorities and hands out inline threads.
///
/// Workers are made when they are first needed. Up to `maxPoolSize` of them, over all priorities
/// together, are reusable and wait idle between pieces of work, in a first-in first-out list of
/// their priority; beyond that, temporary ones are made, which end after one hand-out. So nobody
/// ever waits for a worker, and nothing limits their number but the system.
///
/// Any thread may call any function except `shutdown` and the destructor, which are the owner's. A
/// worker inside its completion callback may take threads while the owner is in `shutdown`; nobody
/// else may.
class __attribute__((visibility("default"))) ServiceThreadPool : public ServiceThreadPoolIfc {
public:
    /// Creates no thread. `dispatcher` is handed to every service thread; not owned, may be null.
    /// With `maxPoolSize` 0 or less every worker is temporary.
    ServiceThreadPool(int maxPoolSize, InvokeInterceptorDispatcher* dispatcher);

    ServiceThreadPool(const ServiceThreadPool&) = delete;
    ServiceThreadPool& operator=(const ServiceThreadPool&) = delete;

    int availableThreads(MirelThreadPriority priority) override;
    ServiceThreadIfc* getThread(MirelThreadPriority priority, bool multiThreaded) override;
    bool returnThread(ServiceThreadIfc* thread) override;

    /// Shuts down, then frees what the pool owns.
    virtual ~ServiceThreadPool();

    /// A thread of priority 1.
    ServiceThreadIfc* getThread(bool multiThreaded);

    /// Number of reusable workers created so far, without those that could not be started, or lost
    /// their OS thread and got no other one. Any thread may ask.
    int poolSize();
    int maxPoolSize();

    /// Ends every worker that the pool created, waiting for each; a worker that runs something ends
    /// after it. What has been handed over and not begun is not run, nor is what an executor holds
    /// back behind it: the responses are destroyed. (A held-back request that needs a worker of
    /// another priority may still get one, which then ends in the same way, but for what it may
    /// have begun.)
    ///
    /// The pool may be used again afterwards (its reusable workers stay counted against the limit),
    /// also by executors that used it before, whose channels are free then; and shut down again.
    void shutdown();

private:
    friend class PoolInspector; // lets tests look at the containers

    using Threads = std::list<ServiceThreadIfc*>;

    /// What the pool keeps of a thread. One that it did not make has one from its first return.
    struct Entry {
        Threads::iterator node; ///< in the list that it is in, for as long as the entry exists
        bool isOwn;             ///< made by the pool
        bool isCounted;         ///< in m_poolSize
    };
    using Entries = std::unordered_map<ServiceThreadIfc*, Entry>;

    Threads& idleThreads(MirelThreadPriority priority) MIREL_REQUIRES(m_ppoolLock);
    ServiceThreadIfc* createWorker(MirelThreadPriority priority) MIREL_REQUIRES(m_ppoolLock);
    void startWorker(ServiceThreadIfc* worker);
    Threads::iterator enlist(ServiceThreadIfc* thread, bool isOwn, bool isCounted)
        MIREL_REQUIRES(m_ppoolLock);
    void fileIdle(ServiceThreadIfc* thread) MIREL_REQUIRES(m_ppoolLock);
    bool dismiss(ServiceThreadIfc* worker) MIREL_REQUIRES(m_ppoolLock);
    void forget(Entries::iterator worker, Threads& list) MIREL_REQUIRES(m_ppoolLock);
    ServiceThreadIfc* takeThreadToDestroy() MIREL_REQUIRES(m_ppoolLock);
    ServiceThreadIfc* takeStarted(Threads& list) MIREL_REQUIRES(m_ppoolLock);

    const int m_maxPoolSize;

    /// Written with m_ppoolLock held; atomic, because `poolSize` reads it without.
    std::atomic<int> m_poolSize;

    // A worker in an idle list is reusable, waits for work, and is in m_pallThreads as well.
    /// Owned; in order of creation.
    std::vector<ServiceThreadIfc*>* const m_pallThreads MIREL_POINTEE_GUARDED_BY(m_ppoolLock);
    /// Owned lists, by priority.
    std::vector<Threads*> m_availableThreads MIREL_GUARDED_BY(m_ppoolLock);

    Threader* const m_pthreader;    ///< owned
    ServiceLock* const m_ppoolLock; ///< owned
    InvokeInterceptorDispatcher* const m_pinterceptorDispatcher;

    /// The worker that `shutdown` is destroying, or destroyed last. Written with m_ppoolLock held;
    /// atomic, because a worker that returns looks before it takes that lock, too.
    std::atomic<ServiceThreadIfc*> m_pdestroyingThread;

    // A node goes from list to list with its thread, so that neither handing a thread out nor
    // filing it asks for memory.
    /// Those that are not idle, in the order in which they were handed out.
    Threads m_handedOut MIREL_GUARDED_BY(m_ppoolLock);
    Entries m_entries MIREL_GUARDED_BY(m_ppoolLock);
};
