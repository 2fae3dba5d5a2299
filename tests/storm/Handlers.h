#pragma once

#include "Books.h"

#include <pthread.h>
#include <sched.h>

/// All the foreign code of a cycle but its channels: service, invoker, context and interceptors,
/// which do what is planned and keep the books.
class Handlers : public Service,
                 public Invoker,
                 public FrameworkContext,
                 public InvokeInterceptorDispatcher {
public:
    Handlers(const Plan& plan, Books& books) : m_plan(plan), m_books(books) {}

    void handleMessage(Executable*, const char* data, int, InvokerResponse* response) override {
        Page& page = m_books.page(std::stoul(data));
        Books::Work work(m_books, page);
        const Act act = page.plan->act;
        if (act == Act::exitThread)
            pthread_exit(nullptr);
        if (act == Act::block)
            release.pass();
        if (act == Act::answerAndThrow)
            response->answer("and now");
        throwAsPlanned(act);
        if (act == Act::keep) {
            const std::lock_guard lock(m_mutex);
            m_kept.emplace_back(response);
            work.complete();
            return;
        }
        if (act != Act::discard)
            response->answer("done");
        work.complete();
        delete response;
    }
    void timerEvent(int timerId) override {
        Page& page = m_books.page(static_cast<std::size_t>(timerId));
        Books::Work work(m_books, page);
        throwAsPlanned(page.plan->act);
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
        m_books.noteInterceptorThrows(context->interceptionPoint() ==
                                      InvokeInterceptorContext::eBeforeInvocation);
        throw std::runtime_error("refused");
    }

    /// Answers the requests that have returned and left that to another thread.
    void answerKept() {
        std::vector<std::unique_ptr<InvokerResponse>> kept;
        {
            const std::lock_guard lock(m_mutex);
            kept.swap(m_kept);
        }
        for (const auto& response : kept) {
            try {
                response->answer("late");
            } catch (const std::runtime_error&) {
                // The way back takes no success: its destruction answers.
            }
        }
    }

    Gate release; ///< of the requests that block

private:
    static void throwAsPlanned(Act act) {
        if (act == Act::throwReport)
            throw MirelException("planned", __FILE__, __LINE__);
        if (act == Act::throwStandard || act == Act::answerAndThrow)
            throw std::runtime_error("planned");
        if (act == Act::throwOther)
            throw 5;
        if (act == Act::yield)
            sched_yield();
    }

    const Plan& m_plan;
    Books& m_books;
    std::atomic<int> m_dispatches{0};
    std::mutex m_mutex;
    std::vector<std::unique_ptr<InvokerResponse>> m_kept; ///< guarded by m_mutex
};
