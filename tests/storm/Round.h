#pragma once

#include "Handlers.h"
#include "ServiceExecutor.h"
#include "ServiceThreadPool.h"
#include "StormChannel.h"
#include "framework/Threader.h"
#include "runtime/threads/ThreadStartHook.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <thread>

/// Waits for a bounded time until it is so. For states that nothing announces.
template <typename Question>
bool eventually(Question isSo) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!isSo()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        sched_yield();
    }
    return true;
}

/// Builds, starts, loads, stops and destroys as planned.
class Round {
public:
    explicit Round(const RoundPlan& plan) : m_plan(plan) {
        mirel::setLogLevels(plan.detailedLog ? "6" : "2");
        if (const int each = plan.threadStartFailsEach; each != 0)
            mirel::setThreadStartHook(
                [this, each] { return count(m_threadStarts) % each == 0 ? EPERM : 0; });
        for (std::size_t i = 0; i < plan.executors.size(); ++i)
            addExecutor(i, plan.executors[i]);
    }
    ~Round() { mirel::setThreadStartHook({}); }
    Round(const Round&) = delete;
    Round& operator=(const Round&) = delete;

    /// Returns what is wrong afterwards, or nothing.
    std::string run(Totals& totals) {
        load();
        if (m_plan.stop != RoundPlan::beforeStart) {
            for (LoadedExecutor& loaded : m_executors)
                start(*loaded.executor);
            waitUntilTimeToStop();
        }
        stop();
        return m_accounting->check(m_drained, totals);
    }

private:
    /// One executor, with its channel and those who load it.
    struct LoadedExecutor {
        std::shared_ptr<mirel::MessageQueue> queue;
        StormChannel* channel = nullptr; ///< the executor's
        std::unique_ptr<ServiceExecutor> executor;
        std::vector<std::thread> senders;
    };

    void addExecutor(std::size_t number, const ExecutorPlan& planned) {
        const auto messages =
            std::count_if(m_plan.messages.begin(), m_plan.messages.end(),
                          [number](const auto& message) { return message.executor == number; });
        LoadedExecutor loaded;
        loaded.queue = std::make_shared<mirel::MessageQueue>(planned.senders == 0 ? INT_MAX : 8);
        loaded.channel = new StormChannel(
            loaded.queue, m_accounting,
            m_plan.stop == RoundPlan::whenDone ? static_cast<int>(messages) : INT_MAX);
        if (planned.created)
            loaded.executor = std::make_unique<ServiceExecutor>(
                "library", "creator", "Ifc", loaded.channel, &m_handlers, m_pool.get(),
                m_dispatcher, planned.multiThreaded);
        else
            loaded.executor = std::make_unique<ServiceExecutor>(
                &m_handlers, loaded.channel, "Ifc", &m_handlers, m_pool.get(), m_dispatcher,
                planned.multiThreaded);
        m_executors.push_back(std::move(loaded));
    }

    void load() {
        for (std::size_t i = 0; i < m_executors.size(); ++i) {
            const int senders = m_plan.executors[i].senders;
            if (senders == 0)
                send(i, 0, 1);
            for (int part = 0; part < senders; ++part)
                m_executors[i].senders.emplace_back([=, this] { send(i, part, senders); });
        }
    }

    /// Sends the executor's messages of the sources that fall to this part.
    void send(std::size_t executor, int part, int parts) {
        for (std::size_t i = 0; i < m_plan.messages.size(); ++i) {
            const MessagePlan& planned = m_plan.messages[i];
            if (planned.executor == executor && planned.source % parts == part)
                m_accounting->record(i).sent = m_executors[executor].queue->send(
                    StormChannel::makeMessage(planned, static_cast<int>(i)));
        }
    }

    void start(ServiceExecutor& executor) {
        try {
            Threader threader;
            unsigned long threadId = 0;
            executor.startThread(threader, threadId);
        } catch (const MirelException&) {
            m_accounting->enoughRead.open(); // no thread: it will read nothing
        }
    }

    void waitUntilTimeToStop() {
        for (const ExecutorPlan& executor : m_plan.executors)
            if (!executor.multiThreaded)
                m_handlers.release.open(); // behind a blocked request it would read nothing
        if (m_plan.stop == RoundPlan::whileRunning) {
            m_accounting->enoughRead.pass();
            return;
        }
        m_handlers.release.open();
        for (LoadedExecutor& loaded : m_executors) {
            loaded.executor->waitForThreadCompletion();
            // If it still counts as started, a failure has ended its loop.
            if (loaded.executor->hasStarted() && loaded.channel->lastRead())
                loaded.channel->lastRead()->endedLoop = true;
        }
        m_drained = eventually([this] {
            m_handlers.answerPostponed();
            return m_accounting->settled();
        });
        EXPECT_TRUE(m_drained) << "messages got stuck";
    }

    void endAlone(LoadedExecutor& loaded) {
        loaded.executor->shutdown();
        loaded.executor->waitForWorkers();
        loaded.executor.reset();
    }

    void stop() {
        if (m_plan.releaseFirst)
            m_handlers.release.open();
        std::thread releaser([this] { m_handlers.release.open(); });
        for (std::size_t i = 0; i < m_executors.size(); ++i)
            if (m_plan.executors[i].endsAlone)
                endAlone(m_executors[i]);
        for (LoadedExecutor& loaded : m_executors)
            if (loaded.executor)
                loaded.executor->shutdown();
        m_pool->shutdown();
        for (int priority = 0; priority < 3; ++priority)
            EXPECT_EQ(0, m_pool->availableThreads(priorityOf(priority))) << "workers that are gone";
        if (!m_plan.answerLate)
            m_handlers.answerPostponed();
        for (LoadedExecutor& loaded : m_executors)
            loaded.executor.reset();
        m_pool.reset();
        m_handlers.answerPostponed();
        for (LoadedExecutor& loaded : m_executors)
            for (std::thread& sender : loaded.senders)
                sender.join();
        releaser.join();
    }

    const RoundPlan& m_plan;
    const std::shared_ptr<Accounting> m_accounting = std::make_shared<Accounting>(m_plan);
    Handlers m_handlers{m_plan, *m_accounting};
    InvokeInterceptorDispatcher* const m_dispatcher = m_plan.intercepted ? &m_handlers : nullptr;
    const mirel::ReportSubscription m_reports =
        mirel::subscribeToReports([accounting = m_accounting](const MirelException& report) {
            accounting->noteReport(report);
        });
    std::atomic<int> m_threadStarts{0};
    std::unique_ptr<ServiceThreadPool> m_pool =
        std::make_unique<ServiceThreadPool>(m_plan.poolSize, m_dispatcher);
    std::vector<LoadedExecutor> m_executors;
    bool m_drained = false;
};
