// The pool's shutdown, against workers in each moment of their lives: not begun, running, inside
// their completion callback and taking another worker there, returning themselves, idle.

#include "Explore.h"
#include "Inspectors.h"
#include "ServiceThreadIfc.h"
#include "framework/Invoker.h"
#include "framework/InvokerResponse.h"
#include "framework/MirelException.h"
#include "runtime/threads/ThreadStartHook.h"
#include "simulated/Simulation.h"

#include <cerrno>
#include <deque>
#include <ostream>
#include <pthread.h>
#include <stdexcept>

using namespace mirel::simulated;

namespace {

enum class Then { shutdown, rest };

struct Row {
    const char* name;

    /// Each is started by a thread of its own, the first one by the pool's owner. A link is the
    /// priority of the worker that runs it, or '=' for the worker of the link before; it is handed
    /// over by the completion callback of the link before. '#' after it: it ends its thread.
    std::vector<std::string> chains;

    int maxPoolSize = 2;
    Then then = Then::shutdown; ///< or waits until all workers are idle or gone, before that
    int rounds = 1;             ///< on the same pool
    bool noThread = false;      ///< once, a thread cannot be started
    bool throwing = false;      ///< handlers, responses' destructors and callbacks, in each tier
    std::vector<std::string> reaches = {};
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

struct PoolRun {
    explicit PoolRun(const Row& row) : pool(row.maxPoolSize, nullptr) {}

    void throwInTier() const {
        if (tier == 1)
            throw MirelException("thrown", __FILE__, __LINE__);
        if (tier == 2)
            throw std::runtime_error("thrown");
        if (tier == 3)
            throw 5;
    }

    ScenarioPool pool;
    PoolInspector inspector{pool};
    int tier = 0; ///< 0: nothing throws
    int rounds = 0;
};

/// One request, with its response and what its worker calls when it is done.
class Link : public Invoker, public ServiceExecCallbackIfc {
public:
    Link(PoolRun& run, char priority, Link* next)
        : m_run(run),
          m_priority(priority),
          m_next(next) {}

    void endItsThread() { m_endsThread = true; }

    /// Hands the request to a worker. What `getThread` throws is thrown on.
    void start() {
        ServiceThreadIfc* const worker =
            m_run.pool.getThread(MirelThreadPriority(m_priority - '0'), true);
        require(worker->threadPriority() == m_priority - '0', "a worker of another priority");
        runOn(*worker);
    }

    void handleMessage(Executable*, const char*, int, InvokerResponse* response) override {
        point(this, "start of service code");
        require(++m_ran == 1, "a request has run twice");
        m_running = true;
        point(this, "service code");
        m_running = false;
        if (m_endsThread)
            pthread_exit(nullptr);
        m_run.throwInTier();
        delete response;
    }
    void initialise(FrameworkContext*) override {}

    bool reuseThreadForDelayedMessage(ServiceThreadIfc* thread) override {
        point(this, "callback");
        require(++m_calledBack == 1 && m_destroyed == 1, "not one call back, after the request");
        const bool same = m_next && m_next->m_priority == '=';
        if (same)
            m_next->runOn(*thread);
        else if (m_next)
            m_next->start();
        if (!same)
            m_run.throwInTier();
        return same;
    }

    void checkAfterShutdown() const {
        require(!m_running, "service code runs after the shutdown");
        require(m_destroyed == (m_given ? 1 : 0), "not one end of a request");
        require(m_calledBack == (m_given ? 1 : 0), "a worker has not called back");
        if (m_given && !m_ran)
            reached("dropped");
    }
    bool done() const { return m_calledBack == 1; }

private:
    class Response : public InvokerResponse {
    public:
        Response(Link& link, std::string none = {})
            : InvokerResponse(nullptr, none, none, none, none, 0, none, none, 0),
              m_link(link) {}
        ~Response() noexcept(false) override {
            point(&m_link, "destruction of a response");
            ++m_link.m_destroyed;
            m_link.m_run.throwInTier();
        }

    private:
        Link& m_link;
    };

    void runOn(ServiceThreadIfc& worker) {
        worker.callBackOnCompletion(this);
        m_given = true;
        worker.executeRequest(this, nullptr, "", 0, new Response(*this));
    }

    PoolRun& m_run;
    const char m_priority;
    Link* const m_next;
    bool m_endsThread = false;
    bool m_given = false;
    bool m_running = false;
    int m_ran = 0;
    int m_destroyed = 0;
    int m_calledBack = 0;
};

void runRound(const Row& row, PoolRun& run) {
    std::deque<Link> links;
    std::vector<Link*> heads;
    for (const std::string& chain : row.chains) {
        Link* next = nullptr;
        for (auto link = chain.rbegin(); link != chain.rend(); ++link) {
            const bool ends = *link == '#';
            link += ends;
            next = &links.emplace_back(run, *link, next);
            if (ends)
                next->endItsThread();
        }
        heads.push_back(next);
    }

    std::size_t started = 0;
    const auto start = [&](Link* head) {
        try {
            head->start();
        } catch (const MirelException&) {
            require(row.noThread, "no worker to be had");
        }
        ++started;
    };
    for (std::size_t i = 1; i < heads.size(); ++i)
        spawn("taker", [&start, head = heads[i]] { start(head); });
    start(heads[0]);
    waitUntil([&] { return started == heads.size(); }, "all chains started");
    if (row.then == Then::rest)
        waitUntil([&] { return run.inspector.listed() == run.inspector.idle(); },
                  "all workers at rest");
    if (row.then == Then::rest && run.rounds++ == 0)
        require(run.inspector.countsIdle(), "the reusable workers are not counted");
    run.pool.shutdown();

    require(run.inspector.listed() == 0 && run.inspector.idle() == 0,
            "the pool is not empty after its shutdown");
    for (const Link& link : links) {
        link.checkAfterShutdown();
        require(row.then == Then::shutdown || row.noThread || link.done(), "a request is lost");
    }
}

class PoolShutdown : public testing::TestWithParam<Row> {};

const Row kRows[] = {
    {.name = "one worker", .chains = {"1"}, .reaches = {"dropped"}},
    {.name = "one temporary worker", .chains = {"1"}, .maxPoolSize = 0, .reaches = {"dropped"}},
    {.name = "idle workers", .chains = {"12", "1"}, .then = Then::rest},
    {.name = "a worker handed its next request", .chains = {"1=="}},
    {.name = "a temporary worker handed its next request", .chains = {"1=="}, .maxPoolSize = 0},
    {.name = "another worker taken in the callback", .chains = {"12"}},
    {.name = "another temporary worker taken in the callback", .chains = {"12"}, .maxPoolSize = 0},
    {.name = "a temporary worker taken by a reusable one", .chains = {"12"}, .maxPoolSize = 1},
    {.name = "three workers taken one by another", .chains = {"120"}, .maxPoolSize = 1},
    {.name = "a worker taken again in the callback of another", .chains = {"121"}},
    {.name = "two chains", .chains = {"12", "2"}},
    {.name = "two chains of one priority", .chains = {"1", "1"}, .maxPoolSize = 1},
    {.name = "two chains of temporary workers", .chains = {"12", "1"}, .maxPoolSize = 0},
    {.name = "used again", .chains = {"12"}, .maxPoolSize = 1, .rounds = 2},
    {.name = "used again after a rest",
     .chains = {"12"},
     .maxPoolSize = 1,
     .then = Then::rest,
     .rounds = 2},
    {.name = "a thread that does not start", .chains = {"12"}, .noThread = true},
    {.name = "a temporary thread that does not start",
     .chains = {"120"},
     .maxPoolSize = 1,
     .noThread = true},
    {.name = "a thread that does not start and a rest",
     .chains = {"11"},
     .then = Then::rest,
     .noThread = true},
    {.name = "used again after a thread that does not start",
     .chains = {"1"},
     .maxPoolSize = 1,
     .rounds = 3,
     .noThread = true},
    {.name = "a thread that ends itself", .chains = {"1#2"}},
    {.name = "a temporary thread that ends itself", .chains = {"1#=#2"}, .maxPoolSize = 0},
    {.name = "a thread that ends itself and no other one",
     .chains = {"1#2"},
     .maxPoolSize = 1,
     .noThread = true},
    {.name = "everything throws", .chains = {"1=2"}, .throwing = true},
    {.name = "everything throws on temporary workers",
     .chains = {"12"},
     .maxPoolSize = 0,
     .throwing = true},
};

} // namespace

TEST_P(PoolShutdown, Holds) {
    const Row& row = GetParam();
    exploreScenario(
        row.name,
        [&row] {
            int failing = row.noThread ? 1 : 0;
            {
                PoolRun run(row);
                run.tier = row.throwing ? 1 + pick(3) : 0;
                checkAtEachStep([&run] { run.inspector.check(); });
                mirel::setThreadStartHook([&failing] {
                    point(&failing, "a fault?");
                    return failing > 0 && pick(2) == 1 ? --failing, EAGAIN : 0;
                });
                for (int round = 0; round < row.rounds; ++round)
                    runRound(row, run);
                checkAtEachStep({});
            }
            mirel::setThreadStartHook({});
        },
        row.reaches);
}

INSTANTIATE_TEST_SUITE_P(, PoolShutdown, testing::ValuesIn(kRows), rowName<Row>);
