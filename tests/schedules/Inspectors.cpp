#include "Inspectors.h"

#include "ServiceThreadIfc.h"
#include "framework/MirelException.h"
#include "simulated/Memory.h"
#include "simulated/Simulation.h"

#include <algorithm>

using namespace mirel::simulated;

void PoolInspector::check() {
    require(m_pool.m_poolSize <= std::max(m_pool.m_maxPoolSize, 0), "more workers than the limit");
    if (!isFree(lock()))
        return;
    const auto& all = *m_pool.m_pallThreads;
    for (ServiceThreadIfc* worker : all)
        require(!isFreed(worker), "a worker that is gone is listed");
    std::set<ServiceThreadIfc*> seen;
    for (std::size_t priority = 0; priority < m_idleBefore.size(); ++priority) {
        const Workers& idle = *m_pool.m_availableThreads.at(priority);
        for (ServiceThreadIfc* worker : idle) {
            require(seen.insert(worker).second, "a worker is idle twice");
            require(std::count(all.begin(), all.end(), worker) == 1,
                    "an idle worker is not in the list of all once");
            require(worker->reuseThread(), "a temporary worker is idle");
            require(static_cast<std::size_t>(worker->threadPriority()) == priority,
                    "an idle worker is in another priority's list");
        }
        Workers& before = m_idleBefore[priority];
        require(idle == successor(before, idle), "the idle workers are not a queue");
        before = idle;
    }
}

/// What `before` must have become: one worker may have been filed, handed out or destroyed.
PoolInspector::Workers PoolInspector::successor(Workers before, const Workers& now) const {
    if (now.size() > before.size())
        before.push_back(now.back());
    else if (now.size() < before.size() && before.remove(m_pool.m_pdestroyingThread) == 0)
        before.pop_front();
    return before;
}

std::size_t PoolInspector::idle() const {
    std::size_t count = 0;
    for (const Workers* workers : m_pool.m_availableThreads)
        count += workers->size();
    return count;
}

bool PoolInspector::isIdle(const ServiceThreadIfc* worker) const {
    const auto& lists = m_pool.m_availableThreads;
    return std::any_of(lists.begin(), lists.end(), [worker](const Workers* workers) {
        return std::find(workers->begin(), workers->end(), worker) != workers->end();
    });
}

ServiceThreadIfc* ScenarioPool::getThread(MirelThreadPriority priority, bool multiThreaded) {
    if (refuses && refuses())
        throw MirelException("refused", __FILE__, __LINE__);
    return ServiceThreadPool::getThread(priority, multiThreaded);
}

bool ScenarioPool::returnThread(ServiceThreadIfc* thread) {
    const bool returned = ServiceThreadPool::returnThread(thread);
    point(nullptr, "after the return to the pool");
    return returned;
}

void ExecutorInspector::check(ServiceExecutor& executor, const PoolInspector& pool) {
    if (!isFree(lock(executor)))
        return;
    std::set<std::string> served;
    for (const auto& [worker, channel] : executor.m_threadChannels) {
        require(served.insert(channel).second, "two workers serve channel " + channel);
        require(!isFree(pool.lock()) || !pool.isIdle(worker),
                "an idle worker serves channel " + channel);
    }
    require(served == executor.m_busyChannels, "busy and served channels differ");
    for (const auto& [channel, requests] : executor.m_delayedMessages) {
        require(served.contains(channel), "held back for a free channel: " + channel);
        require(!requests.empty(), "an empty queue for channel " + channel);
    }
}

bool ExecutorInspector::serves(const ServiceExecutor& executor, const std::string& channel,
                               int priority) {
    const auto& workers = executor.m_threadChannels;
    return std::any_of(workers.begin(), workers.end(), [&](const auto& entry) {
        return entry.second == channel && entry.first->threadPriority() == priority;
    });
}
