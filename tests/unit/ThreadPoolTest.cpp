#include "ServiceThreadIfc.h"
#include "ServiceThreadPool.h"
#include "ServiceThread_MT.h"
#include "Support.h"
#include "framework/CriticalSection.h"

#include <algorithm>
#include <array>

/// A friend of the pool, which reads its private lists.
class PoolInspector {
public:
    static std::size_t workers(ServiceThreadPool& pool) {
        CriticalSection lock(*pool.m_ppoolLock);
        return pool.m_pallThreads->size();
    }
};

namespace {

class ThreadPool : public testing::Test {
protected:
    /// Has `worker` run one request that waits at `gate`.
    void occupy(ServiceThreadIfc* worker) {
        worker->executeRequest(&blocking, nullptr, "", 0, nullptr);
    }
    /// Waits for a state that nothing announces.
    template <typename Condition>
    void waitUntil(Condition condition) {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (!condition() && std::chrono::steady_clock::now() < deadline)
            sched_yield();
        EXPECT_TRUE(condition());
    }
    void waitForIdle(ServiceThreadPool& pool, int priority, int count) {
        waitUntil([&] { return pool.availableThreads(priorityOf(priority)) == count; });
    }

    Gate gate;
    TestInvoker blocking{[this](Executable*, std::string, InvokerResponse*) { gate.pass(); }};
};

TEST_F(ThreadPool, MakesReusableWorkersUpToItsLimitAndTemporaryOnesBeyond) {
    for (const int limit : {2, 0, -1}) {
        SCOPED_TRACE(limit);
        const int reusable = std::max(limit, 0);
        Gate ownGate;
        TestInvoker invoker([&](Executable*, std::string, InvokerResponse*) { ownGate.pass(); });
        ServiceThreadPool pool(limit, nullptr);
        EXPECT_EQ(limit, pool.maxPoolSize());
        for (int i = 0; i < 3; ++i) {
            ServiceThreadIfc* const worker = pool.getThread(priorityOf(0), true);
            EXPECT_EQ(i < reusable, worker->reuseThread());
            EXPECT_EQ(std::min(i + 1, reusable), pool.poolSize());
            worker->executeRequest(&invoker, nullptr, "", 0, nullptr);
        }
        EXPECT_EQ(3u, PoolInspector::workers(pool));
        ownGate.open();
        waitForIdle(pool, 0, reusable);
        waitUntil([&] { return PoolInspector::workers(pool) == std::size_t(reusable); });
    }
}

TEST_F(ThreadPool, ServesIdleWorkersOfThePriorityFirstInFirstOut) {
    ServiceThreadPool pool(10, nullptr);
    gate.open();
    ServiceThreadIfc* const a = pool.getThread(true);
    ServiceThreadIfc* const b = pool.getThread(priorityOf(1), true);
    EXPECT_EQ(1, a->threadPriority());
    occupy(a);
    waitForIdle(pool, 1, 1);
    occupy(b);
    waitForIdle(pool, 1, 2);
    EXPECT_EQ(a, pool.getThread(priorityOf(1), true));
    EXPECT_EQ(1, pool.availableThreads(priorityOf(1)));
    ServiceThreadIfc* const other = pool.getThread(priorityOf(0), true);
    EXPECT_EQ(0, other->threadPriority());
    EXPECT_EQ(3, pool.poolSize()) << "a worker of another priority is not used";
    EXPECT_EQ(b, pool.getThread(priorityOf(1), true));
}

TEST_F(ThreadPool, RefusesUnknownPrioritiesAndStaysUsable) {
    ServiceThreadPool pool(2, nullptr);
    for (const int priority : {-1, 3, 1000}) {
        SCOPED_TRACE(priority);
        EXPECT_THROW(pool.getThread(priorityOf(priority), true), std::out_of_range);
        EXPECT_THROW(pool.availableThreads(priorityOf(priority)), std::out_of_range);
        ServiceThreadIfc* const thread = pool.getThread(priorityOf(priority), false);
        EXPECT_EQ(1, thread->threadPriority());
        delete thread;
    }
    EXPECT_EQ(0, pool.poolSize());
    EXPECT_EQ(0, pool.availableThreads(priorityOf(1)));
    ServiceThreadIfc* const inlineThread = pool.getThread(false);
    EXPECT_FALSE(inlineThread->reuseThread());
    EXPECT_TRUE(pool.returnThread(inlineThread)) << "not the pool's: nothing happens";
    delete inlineThread;
}

/// A thread of another class. It notices when the pool writes to it as if it were a worker.
class OtherThread : public ServiceThreadIfc {
public:
    OtherThread() { m_rest.fill('x'); }
    bool isIntact() const {
        return std::all_of(m_rest.begin(), m_rest.end(), [](char c) { return c == 'x'; });
    }
    void executeRequest(Invoker*, Executable*, const char*, int, InvokerResponse*) override {}
    void timerEvent(Executable*, int) override {}
    void run() override {}
    MirelThreadPriority getThreadPriorityForPlatform() override { return priorityOf(1); }
    void destroyThread() override { ADD_FAILURE() << "not the pool's to destroy"; }
    bool reuseThread() override { return true; }
    MirelThreadPriority threadPriority() override { return priorityOf(1); }
    void callBackOnCompletion(ServiceExecCallbackIfc*) override {}
    void execute() override {}
    void clearRequestData() override {}

private:
    std::array<char, sizeof(ServiceThread_MT)> m_rest;
};

TEST_F(ThreadPool, HandsOutAThreadThatItDidNotMakeAndDoesNoMoreToIt) {
    OtherThread one, two;
    {
        ServiceThreadPool pool(2, nullptr);
        for (int round = 0; round < 2; ++round) {
            pool.returnThread(&one);
            pool.returnThread(&two);
            EXPECT_EQ(2, pool.availableThreads(priorityOf(1)));
            EXPECT_EQ(&one, pool.getThread(true));
            EXPECT_EQ(&two, pool.getThread(true));
            ServiceThreadIfc* const own = pool.getThread(true);
            EXPECT_TRUE(own != &one && own != &two);
            pool.returnThread(&two);
            pool.shutdown();
            EXPECT_EQ(0u, PoolInspector::workers(pool));
            EXPECT_EQ(&two, pool.getThread(true)) << "the shutdown is for the pool's own";
        }
        EXPECT_EQ(2, pool.poolSize()) << "the workers made so far stay counted";
        pool.returnThread(&one);
    }
    EXPECT_TRUE(one.isIntact() && two.isIntact());
}

} // namespace
