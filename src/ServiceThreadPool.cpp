#include "ServiceThreadPool.h"

#include "ServiceThread_MT.h"
#include "ServiceThread_ST.h"
#include "framework/CriticalSection.h"
#include "framework/Semaphore.h"
#include "framework/Threader.h"

#include <algorithm>
#include <memory>
#include <sched.h>
#include <string>

namespace {

constexpr int kPriorities = 3;

/// All listed threads are workers: the pool lists what it has created as such.
ServiceThread_MT* asWorker(ServiceThreadIfc* listed) {
    return static_cast<ServiceThread_MT*>(listed);
}

} // namespace

ServiceThreadPool::ServiceThreadPool(int maxPoolSize, InvokeInterceptorDispatcher* dispatcher)
    : m_maxPoolSize(maxPoolSize),
      m_poolSize(0),
      m_pallThreads(new std::vector<ServiceThreadIfc*>),
      m_pthreader(new Threader),
      m_ppoolLock(new Semaphore(1, 1, false)),
      m_pinterceptorDispatcher(dispatcher),
      m_pdestroyingThread(nullptr) {
    for (int priority = 0; priority < kPriorities; ++priority)
        m_availableThreads.push_back(new std::list<ServiceThreadIfc*>);
}

ServiceThreadPool::~ServiceThreadPool() {
    // First, because a worker that ends may still file itself or take another thread.
    shutdown();
    for (std::list<ServiceThreadIfc*>* idle : m_availableThreads)
        delete idle;
    delete m_pallThreads;
    delete m_pthreader;
    // A temporary worker may have unlisted itself and not be back from giving the lock. That is
    // allowed: `shutdown` has taken the lock since, and `give` touches nothing after that.
    delete m_ppoolLock;
}

ServiceThreadIfc* ServiceThreadPool::getThread(bool multiThreaded) {
    return getThread(MirelThreadPriority(1), multiThreaded);
}

ServiceThreadIfc* ServiceThreadPool::getThread(MirelThreadPriority priority, bool multiThreaded) {
    if (!multiThreaded)
        return new ServiceThread_ST(m_pinterceptorDispatcher);

    ServiceThread_MT* worker = nullptr;
    {
        CriticalSection lock(*m_ppoolLock);
        std::list<ServiceThreadIfc*>& idle = idleThreads(priority);
        if (!idle.empty()) {
            worker = asWorker(idle.front());
            m_spareNodes.splice(m_spareNodes.end(), idle, idle.begin());
            worker->setHandOut(++m_handOuts);
            return worker;
        }
        worker = createWorker(priority);
        worker->setHandOut(++m_handOuts);
    }
    startWorker(worker);
    return worker;
}

/// Called with the lock held.
std::list<ServiceThreadIfc*>& ServiceThreadPool::idleThreads(MirelThreadPriority priority) {
    // A negative value becomes a huge index, which is out of range as well.
    return *m_availableThreads.at(static_cast<std::size_t>(priority));
}

/// Makes and lists a worker whose OS thread is yet to be started. Called with the lock held.
ServiceThread_MT* ServiceThreadPool::createWorker(MirelThreadPriority priority) {
    const bool reusable = m_poolSize < m_maxPoolSize;
    auto worker =
        std::make_unique<ServiceThread_MT>(this, reusable, priority, m_pinterceptorDispatcher);
    m_pallThreads->push_back(worker.get());
    if (reusable)
        ++m_poolSize;
    // The destroyed worker's memory may serve again, for a worker that must not be mistaken for it.
    if (m_pdestroyingThread == worker.get())
        m_pdestroyingThread = nullptr;
    return worker.release();
}

/// Called without the lock: starting a thread takes long. `shutdown` may meet the worker in the
/// list meanwhile; it leaves it alone until it has a thread, so the worker is this function's until
/// then.
void ServiceThreadPool::startWorker(ServiceThreadIfc* worker) {
    try {
        unsigned long threadId = 0;
        m_pthreader->createThread(threadId, worker, std::string(), 1, 0);
    } catch (...) {
        {
            CriticalSection lock(*m_ppoolLock);
            forget(worker);
            if (worker->reuseThread())
                --m_poolSize;
        }
        delete worker;
        throw;
    }
}

bool ServiceThreadPool::returnThread(ServiceThreadIfc* thread) {
    if (thread == m_pdestroyingThread)
        return true;
    CriticalSection lock(*m_ppoolLock);
    // Again: `shutdown` may have picked this worker while it waited for the lock. It must not be
    // filed then; nor is it forgotten, being off the list already.
    if (thread == m_pdestroyingThread)
        return true;
    if (thread->reuseThread())
        fileIdle(thread);
    else if (forget(thread))
        thread->destroyThread(); // its own thread calls, so this waits for nothing
    return true;
}

/// Called with the lock held. A worker that was idle before left a node behind, so that it is filed
/// again without memory being asked for.
void ServiceThreadPool::fileIdle(ServiceThreadIfc* worker) {
    if (m_spareNodes.empty())
        m_spareNodes.push_back(nullptr);
    m_spareNodes.front() = worker;
    std::list<ServiceThreadIfc*>& idle = idleThreads(worker->threadPriority());
    idle.splice(idle.end(), m_spareNodes, m_spareNodes.begin());
}

/// Takes the worker off the list of all; false when it is not on it. Called with the lock held.
bool ServiceThreadPool::forget(ServiceThreadIfc* worker) {
    const auto place = std::find(m_pallThreads->begin(), m_pallThreads->end(), worker);
    if (place == m_pallThreads->end())
        return false;
    m_pallThreads->erase(place);
    return true;
}

int ServiceThreadPool::availableThreads(MirelThreadPriority priority) {
    CriticalSection lock(*m_ppoolLock);
    return static_cast<int>(idleThreads(priority).size());
}

int ServiceThreadPool::poolSize() { return m_poolSize; }
int ServiceThreadPool::maxPoolSize() { return m_maxPoolSize; }

void ServiceThreadPool::shutdown() {
    for (;;) {
        ServiceThreadIfc* thread = nullptr;
        {
            CriticalSection lock(*m_ppoolLock);
            if (m_pallThreads->empty())
                return;
            thread = takeThreadToDestroy();
        }
        // Without the lock: the worker may be in its completion callback, which may use the pool.
        if (thread)
            thread->destroyThread();
        else
            sched_yield(); // to those that are starting the workers left
    }
}

/// Takes a worker that has a thread out of all lists, which makes it the caller's to destroy; null
/// when there is none. Called with the lock held.
///
/// The one that was handed out first comes first. A worker inside its completion callback may hold
/// another one that it has taken and not yet handed its work. That one was handed out later, so its
/// turn comes when the worker that holds it has ended, callback and all. Idle workers have no
/// holder.
ServiceThreadIfc* ServiceThreadPool::takeThreadToDestroy() {
    const auto place =
        std::min_element(m_pallThreads->begin(), m_pallThreads->end(),
                         [](ServiceThreadIfc* one, ServiceThreadIfc* other) {
                             const bool started = one->threadId() != 0;
                             if (started != (other->threadId() != 0))
                                 return started;
                             return asWorker(one)->handOut() < asWorker(other)->handOut();
                         });
    ServiceThreadIfc* const thread = *place;
    if (thread->threadId() == 0)
        return nullptr;
    m_pallThreads->erase(place);
    if (thread->reuseThread())
        idleThreads(thread->threadPriority()).remove(thread);
    m_pdestroyingThread = thread;
    return thread;
}
