#pragma once

#include "Explore.h"
#include "Inspectors.h"
#include "framework/Executable.h"
#include "framework/FrameworkContext.h"
#include "framework/InvokeInterceptorDispatcher.h"
#include "framework/Invoker.h"
#include "simulated/SimulatedChannel.h"

#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

/// What goes wrong around the library in a run. Where it may happen at several moments, each of
/// them is tried.
enum class Fault {
    none,
    refusal,    ///< once, the pool refuses a worker to the executor
    noThread,   ///< once, a worker's thread cannot be started
    before,     ///< interceptors throw before a request that is marked with '!'
    after,      ///< and after it
    initialise, ///< once, an invoker's initialisation throws
    publisher,  ///< the publisher of reports throws
    logger,     ///< one of the library's log statements throws
};

/// How a run goes on when everything has been sent.
enum class Ending {
    settled,  ///< waits until every worker is idle again or gone, and stops then
    answered, ///< waits until every request has been answered
    atOnce,   ///< when all of them have been dispatched
    anytime,  ///< when any number of them has been dispatched
};

struct Scenario {
    const char* name;

    /// Separated by spaces: a letter for the source channel, or T for a timer event; then, if not
    /// 1, the priority; then '!' if its code throws, in each tier, or '#' if it ends its thread.
    const char* work;

    int maxPoolSize = 2;
    Ending ending = Ending::settled;
    Fault fault = Fault::none;
    bool multiThreaded = true;
    std::vector<std::string> reaches = {}; ///< see `exploreScenario`
};

inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

/// One run of a scenario: an executor with a pool, the foreign code around them, and the checks of
/// what they do, at each step and at the end.
class ScenarioRun : private FrameworkContext,
                    private Invoker,
                    private InvokeInterceptorDispatcher,
                    private Executable {
public:
    explicit ScenarioRun(const Scenario& scenario);
    ~ScenarioRun() override;

    void makeExecutor();
    void start();
    void send(const std::string& work);

    /// Makes and starts an executor with the scenario's work, and waits as the scenario's ending
    /// says.
    void begin();

    /// Waits until all that has been sent is done and every worker is idle again or gone.
    void awaitRest();

    /// When everything has been dispatched: ends the workers, while the executor goes on.
    void shutDownPool();

    /// Ends the executor alone, while its pool goes on, and checks what must hold then.
    void endExecutor();

    /// Ends the executor and then the pool, and checks what must hold then.
    void stop();

    ServiceExecutor& executor() { return *m_executor; }

private:
    class Loop;
    class Answers;
    class Channel;

    /// One request or timer event.
    struct Item {
        char source;
        int priority;
        char mark; ///< '!' or '#' as in Scenario::work, else ' '
        int started = 0;
        bool succeeded = false;
    };
    struct Source {
        int running = 0;
        std::size_t last = 0; ///< number of the item that started last
    };

    Invoker* findInvoker(const std::string& interface, const std::string& protocol) override;
    Executable* createService(ServiceExecutor*, std::string, std::string, CommsChannelIfc*,
                              std::string) override;
    void handleMessage(Executable* service, const char* data, int length,
                       InvokerResponse* response) override;
    void initialise(FrameworkContext*) override;
    void dispatch(InvokeInterceptorContext* context) override;
    void timerEvent(int number) override;

    void await();
    void runItem(std::size_t number);
    [[noreturn]] void throwInTier();
    bool failsNow();
    void touchLocks();
    void stopReading();
    void endWorkers();
    void destroyExecutor();
    bool allDone() const;
    bool allAtRest() const;
    void checkOutcome() const;

    const Scenario& m_scenario;
    const int m_tier;
    const char* const m_failingLine; ///< part of the text of a log line; null: none fails
    ScenarioPool m_pool;
    PoolInspector m_inspector{m_pool};
    std::shared_ptr<Answers> m_answers;
    std::unique_ptr<ServiceExecutor> m_executor;

    std::vector<Item> m_items; ///< numbered from 1 by the order in which they are sent
    int m_reads = 0;           ///< begun
    int m_stopAtRead = 0;      ///< number of the one at which the host is to stop; 0: none
    std::unique_ptr<Semaphore> m_stopNow;
    std::map<char, Source> m_sources;
    std::map<std::string, Invoker*> m_invokers;
    unsigned long m_hostThread;
    unsigned long m_loopThread = 0;
    bool m_loopEnded = false;
    bool m_loopFailed = false; ///< it had ended before the host stopped it
    std::size_t m_read = 0;    ///< items, by the end of a wait; 0: there was no wait
    int m_initialised = 0;
    int m_notAccepted = 0; ///< number of the request whose initialisation failed
    std::size_t m_timersRun = 0;

    int m_faultsLeft = 1;
    std::set<unsigned long> m_endingThreads;
    bool m_workerLost = false; ///< one that ended its thread and has got no other one
    int m_refused = 0;         ///< requests that are kept from running
    int m_thrown = 0;          ///< what the library has to report
    int m_reports = 0;
    bool m_stopped = false; ///< the pool has been shut down before
};

/// Explores a scenario from its start to its end, with everything sent before the start.
void exploreScenario(const Scenario& scenario);
