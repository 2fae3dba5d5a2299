#pragma once

#include "Accounting.h"

#include <pthread.h>
#include <sched.h>

/// The service, the invoker, the context and the interceptors of a round: they do what is planned
/// and note it in the accounting.
class Handlers : public Service,
                 public Invoker,
                 public FrameworkContext,
                 public InvokeInterceptorDispatcher {
public:
    Handlers(const RoundPlan& plan, Accounting& accounting)
        : m_plan(plan),
          m_accounting(accounting) {}

    void handleMessage(Executable*, const char* data, int, InvokerResponse* response) override {
        MessageRecord& record = m_accounting.record(std::stoul(data));
        Accounting::Work work(m_accounting, record);
        const Action action = record.plan->action;
        if (action == Action::exitThread)
            pthread_exit(nullptr);
        if (action == Action::block)
            release.pass();
        if (action == Action::answerAndThrow)
            response->answer("and now");
        throwAsPlanned(action);
        if (action == Action::postpone) {
            const std::lock_guard lock(m_mutex);
            m_postponed.emplace_back(response);
            work.complete();
            return;
        }
        if (action != Action::discard)
            response->answer("done");
        work.complete();
        delete response;
    }
    void timerEvent(int timerId) override {
        MessageRecord& record = m_accounting.record(static_cast<std::size_t>(timerId));
        Accounting::Work work(m_accounting, record);
        throwAsPlanned(record.plan->action);
        work.complete();
    }
    void handleMessage(const char* data, int, std::string, CommsChannelIfc*, Message&) override {
        timerEvent(std::stoi(data));
    }
    Invoker* findInvoker(const std::string&, const std::string& protocol) override {
        return protocol == "text" ? this : nullptr;
    }
    void initialise(FrameworkContext*) override {}
    Executable* createService(ServiceExecutor*, std::string, std::string, CommsChannelIfc*,
                              std::string) override {
        return this;
    }
    void dispatch(InvokeInterceptorContext* context) override {
        const int each = m_plan.interceptorThrowsEach;
        if (context->message() || each == 0 || count(m_dispatches) % each != 0)
            return;
        m_accounting.noteInterceptorThrows(context->interceptionPoint() ==
                                           InvokeInterceptorContext::eBeforeInvocation);
        throw std::runtime_error("refused");
    }

    /// Answers the requests that have returned without an answer.
    void answerPostponed() {
        std::vector<std::unique_ptr<InvokerResponse>> postponed;
        {
            const std::lock_guard lock(m_mutex);
            postponed.swap(m_postponed);
        }
        for (const auto& response : postponed) {
            try {
                response->answer("late");
            } catch (const std::runtime_error&) {
                // Successes are refused. The destruction of the response answers with a failure.
            }
        }
    }

    Gate release; ///< of the requests that block

private:
    static void throwAsPlanned(Action action) {
        if (action == Action::throwReport)
            throw MirelException("planned", __FILE__, __LINE__);
        if (action == Action::throwStandard || action == Action::answerAndThrow)
            throw std::runtime_error("planned");
        if (action == Action::throwOther)
            throw 5;
        if (action == Action::yield)
            sched_yield();
    }

    const RoundPlan& m_plan;
    Accounting& m_accounting;
    std::atomic<int> m_dispatches{0};
    std::mutex m_mutex;
    std::vector<std::unique_ptr<InvokerResponse>> m_postponed; ///< guarded by m_mutex
};
