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

/// Asks until it is so, for a bounded time. For what nobody is told of.
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
            addSite(i, plan.executors[i]);
    }
    ~Round() { mirel::setThreadStartHook({}); }
    Round(const Round&) = delete;
    Round& operator=(const Round&) = delete;

    /// Returns what is wrong afterwards, or nothing.
    std::string run(Totals& totals) {
        load();
        if (m_plan.stop != RoundPlan::beforeStart) {
            for (Site& site : m_sites)
                start(*site.executor);
            waitUntilTimeToStop();
        }
        stop();
        return m_accounting->check(m_drained, totals);
    }

private:
    /// One executor, with its channel and those who load it.
    struct Site {
        std::shared_ptr<mirel::MessageQueue> queue;
        StormChannel* channel = nullptr; ///< the executor's
        std::unique_ptr<ServiceExecutor> executor;
        std::vector<std::thread> senders;
    };

    void addSite(std::size_t number, const ExecutorPlan& planned) {
        const auto messages =
            std::count_if(m_plan.messages.begin(), m_plan.messages.end(),
                          [number](const auto& message) { return message.executor == number; });
        Site site;
        site.queue = std::make_shared<mirel::MessageQueue>(planned.senders == 0 ? INT_MAX : 8);
        site.channel = new StormChannel(
            site.queue, m_accounting,
            m_plan.stop == RoundPlan::whenDone ? static_cast<int>(messages) : INT_MAX);
        if (planned.created)
            site.executor = std::make_unique<ServiceExecutor>(
                "library", "creator", "Ifc", site.channel, &m_handlers, m_pool.get(), m_dispatcher,
                planned.multiThreaded);
        else
            site.executor = std::make_unique<ServiceExecutor>(&m_handlers, site.channel, "Ifc",
                                                              &m_handlers, m_pool.get(),
                                                              m_dispatcher, planned.multiThreaded);
        m_sites.push_back(std::move(site));
    }

    void load() {
        for (std::size_t i = 0; i < m_sites.size(); ++i) {
            const int senders = m_plan.executors[i].senders;
            if (senders == 0)
                send(i, 0, 1);
            for (int part = 0; part < senders; ++part)
                m_sites[i].senders.emplace_back([=, this] { send(i, part, senders); });
        }
    }

    /// Sends the site's messages of the sources that fall to this part.
    void send(std::size_t site, int part, int parts) {
        for (std::size_t i = 0; i < m_plan.messages.size(); ++i) {
            const MessagePlan& planned = m_plan.messages[i];
            if (planned.executor == site && planned.source % parts == part)
                m_accounting->record(i).sent = m_sites[site].queue->send(
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
        for (Site& site : m_sites) {
            site.executor->waitForThreadCompletion();
            // Then its loop has not ended because there was no more to read.
            if (site.executor->hasStarted() && site.channel->lastRead())
                site.channel->lastRead()->endedLoop = true;
        }
        m_drained = eventually([this] {
            m_handlers.answerKept();
            return m_accounting->settled();
        });
        EXPECT_TRUE(m_drained) << "messages got stuck";
    }

    void endAlone(Site& site) {
        site.executor->shutdown();
        site.executor->waitForWorkers();
        site.executor.reset();
    }

    void stop() {
        if (m_plan.releaseFirst)
            m_handlers.release.open();
        std::thread releaser([this] { m_handlers.release.open(); });
        for (std::size_t i = 0; i < m_sites.size(); ++i)
            if (m_plan.executors[i].endsAlone)
                endAlone(m_sites[i]);
        for (Site& site : m_sites)
            if (site.executor)
                site.executor->shutdown();
        m_pool->shutdown();
        for (int priority = 0; priority < 3; ++priority)
            EXPECT_EQ(0, m_pool->availableThreads(priorityOf(priority))) << "workers that are gone";
        if (!m_plan.answerLate)
            m_handlers.answerKept();
        for (Site& site : m_sites)
            site.executor.reset();
        m_pool.reset();
        m_handlers.answerKept();
        for (Site& site : m_sites)
            for (std::thread& sender : site.senders)
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
    std::vector<Site> m_sites;
    bool m_drained = false;
};
