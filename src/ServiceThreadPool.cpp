#include "ServiceThreadPool.h"

#include "ServiceThread_MT.h"
#include "ServiceThread_ST.h"
#include "framework/Threader.h"

#include <algorithm>
#include <memory>
#include <sched.h>
#include <string>

namespace {

constexpr int kPriorities = 3;

} // namespace

ServiceThreadPool::ServiceThreadPool(int maxPoolSize, InvokeInterceptorDispatcher* dispatcher)
    : m_maxPoolSize(maxPoolSize),
      m_poolSize(0),
      m_pallThreads(new std::vector<ServiceThreadIfc*>),
      m_pthreader(new Threader),
      m_ppoolLock(new ServiceLock),
      m_pinterceptorDispatcher(dispatcher),
      m_pdestroyingThread(nullptr) {
    for (int priority = 0; priority < kPriorities; ++priority)
        m_availableThreads.push_back(new Threads);
}

ServiceThreadPool::~ServiceThreadPool() {
    // First, because a worker that ends may still file itself or take another thread.
    shutdown();
    for (Threads* idle : m_availableThreads)
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

    ServiceThreadIfc* worker = nullptr;
    {
        ServiceLockGuard lock(*m_ppoolLock);
        Threads& idle = idleThreads(priority);
        if (!idle.empty()) {
            worker = idle.front();
            m_handedOut.splice(m_handedOut.end(), idle, idle.begin());
            return worker;
        }
        worker = createWorker(priority);
    }
    startWorker(worker);
    return worker;
}

ServiceThreadPool::Threads& ServiceThreadPool::idleThreads(MirelThreadPriority priority) {
    // A negative value becomes a huge index, which is out of range as well.
    return *m_availableThreads.at(static_cast<std::size_t>(priority));
}

/// Makes and lists a worker whose OS thread is yet to be started.
ServiceThreadIfc* ServiceThreadPool::createWorker(MirelThreadPriority priority) {
    const bool reusable = m_poolSize < m_maxPoolSize;
    auto worker =
        std::make_unique<ServiceThread_MT>(this, reusable, priority, m_pinterceptorDispatcher);
    // Threads that are gone may have had this memory, and must not be mistaken for the worker: one
    // that the pool did not make and never got back, and the one that was destroyed last.
    if (const auto other = m_entries.find(worker.get()); other != m_entries.end()) {
        m_handedOut.erase(other->second.node);
        m_entries.erase(other);
    }
    if (m_pdestroyingThread == worker.get())
        m_pdestroyingThread = nullptr;
    m_pallThreads->push_back(worker.get());
    try {
        enlist(worker.get(), true, reusable);
    } catch (...) {
        m_pallThreads->pop_back();
        throw;
    }
    if (reusable)
        ++m_poolSize;
    return worker.release();
}

/// Adds a thread to those handed out.
ServiceThreadPool::Threads::iterator ServiceThreadPool::enlist(ServiceThreadIfc* thread, bool isOwn,
                                                               bool isCounted) {
    Threads node{thread};
    m_entries.emplace(thread, Entry{node.begin(), isOwn, isCounted});
    m_handedOut.splice(m_handedOut.end(), node);
    return std::prev(m_handedOut.end());
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
            ServiceLockGuard lock(*m_ppoolLock);
            dismiss(worker);
        }
        delete worker;
        throw;
    }
}

bool ServiceThreadPool::returnThread(ServiceThreadIfc* thread) {
    if (thread == m_pdestroyingThread)
        return true;
    ServiceLockGuard lock(*m_ppoolLock);
    // Again: `shutdown` may have picked this worker while it waited for the lock. It must not be
    // filed then; nor is it forgotten, being off the list already.
    if (thread == m_pdestroyingThread)
        return true;
    if (thread->reuseThread())
        fileIdle(thread);
    else if (dismiss(thread))
        thread->destroyThread(); // its own thread calls, so this waits for nothing
    return true;
}

void ServiceThreadPool::fileIdle(ServiceThreadIfc* thread) {
    Threads& idle = idleThreads(thread->threadPriority());
    const auto entry = m_entries.find(thread);
    const auto node = entry != m_entries.end() ? entry->second.node : enlist(thread, false, false);
    idle.splice(idle.end(), m_handedOut, node);
}

/// Takes a worker that is handed out off all lists, and gives its place to another one: a reusable
/// worker comes here only when it has no OS thread and gets none. False, without effect, when the
/// pool did not make the thread.
bool ServiceThreadPool::dismiss(ServiceThreadIfc* worker) {
    const auto entry = m_entries.find(worker);
    if (entry == m_entries.end() || !entry->second.isOwn)
        return false;
    if (entry->second.isCounted)
        --m_poolSize;
    forget(entry, m_handedOut);
    return true;
}

/// Takes a worker that the pool made out of `list`, in which it is, and off the list of all.
void ServiceThreadPool::forget(Entries::iterator worker, Threads& list) {
    list.erase(worker->second.node);
    m_pallThreads->erase(std::find(m_pallThreads->begin(), m_pallThreads->end(), worker->first));
    m_entries.erase(worker);
}

int ServiceThreadPool::availableThreads(MirelThreadPriority priority) {
    ServiceLockGuard lock(*m_ppoolLock);
    return static_cast<int>(idleThreads(priority).size());
}

int ServiceThreadPool::poolSize() { return m_poolSize; }
int ServiceThreadPool::maxPoolSize() { return m_maxPoolSize; }

void ServiceThreadPool::shutdown() {
    for (;;) {
        ServiceThreadIfc* thread = nullptr;
        {
            ServiceLockGuard lock(*m_ppoolLock);
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
/// when there is none.
///
/// Idle workers come first: they have no holder. Of the others, the one that was handed out first:
/// a worker inside its completion callback may hold another one that it has taken and not yet
/// handed its work. That one was handed out later, so its turn comes when the worker that holds it
/// has ended, callback and all.
ServiceThreadIfc* ServiceThreadPool::takeThreadToDestroy() {
    ServiceThreadIfc* thread = nullptr;
    for (Threads* idle : m_availableThreads)
        if (!thread)
            thread = takeStarted(*idle);
    return thread ? thread : takeStarted(m_handedOut);
}

ServiceThreadIfc* ServiceThreadPool::takeStarted(Threads& list) {
    for (ServiceThreadIfc* const thread : list) {
        const auto entry = m_entries.find(thread);
        if (!entry->second.isOwn || thread->threadId() == 0)
            continue;
        forget(entry, list);
        m_pdestroyingThread = thread;
        return thread;
    }
    return nullptr;
}
