#include "ScenarioRun.h"

#include "framework/CriticalSection.h"
#include "framework/InvokeInterceptorContext.h"
#include "framework/InvokerResponse.h"
#include "framework/MirelException.h"
#include "framework/Serializer.h"
#include "framework/Threader.h"
#include "runtime/reports/LogControl.h"
#include "runtime/threads/ThreadStartHook.h"
#include "simulated/Simulation.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <pthread.h>
#include <sstream>
#include <stdexcept>

using namespace mirel::simulated;

namespace {

/// A part of each log line of a multi-threaded executor and its workers, up to the last resort.
constexpr std::array kLogLines{"DELAYED",
                               "EXECUTD",
                               "Got a thread",
                               "CURRENT",
                               "NEW",
                               "timer thread",
                               "Executing timer",
                               "calling handleMessage",
                               "calling timerEvent",
                               " caught",
                               "deleted m_presponse",
                               "calling publish",
                               "Created invoker response"};

bool throws(const Scenario& scenario) {
    return std::string(scenario.work).find('!') != std::string::npos ||
           scenario.fault >= Fault::before;
}

} // namespace

// ---- The doubles -----------------------------------------------------------------------------

/// The channel's traffic. It checks that the library holds no lock while it answers a caller.
class ScenarioRun::Answers : public Traffic {
public:
    explicit Answers(ScenarioRun& run) : m_run(run) {}

    void answer(mirel::Answer answer) override {
        if (!answer.succeeded && m_run.m_scenario.fault != Fault::none)
            m_run.touchLocks();
        Traffic::answer(std::move(answer));
    }

private:
    ScenarioRun& m_run;
};

/// The channel, which tells the host when it is to stop.
class ScenarioRun::Channel : public SimulatedChannel {
public:
    explicit Channel(ScenarioRun& run) : SimulatedChannel(run.m_answers), m_run(run) {}

    bool readMessage(CommsChannelDataContainerMessage& message) override {
        if (++m_run.m_reads == m_run.m_stopAtRead)
            m_run.m_stopNow->give();
        return SimulatedChannel::readMessage(message);
    }

private:
    ScenarioRun& m_run;
};

/// The executor, which tells when its loop has ended, in whatever way.
class ScenarioRun::Loop : public ServiceExecutor {
public:
    explicit Loop(ScenarioRun& run)
        : ServiceExecutor(&run, new Channel(run), "Ifc", &run, &run.m_pool, &run,
                          run.m_scenario.multiThreaded),
          m_run(run) {}

    void run() override {
        struct End {
            ScenarioRun& run;
            ~End() {
                run.m_loopEnded = true;
                run.m_stopNow->give();
            }
        } const end{m_run};
        m_run.m_loopThread = currentThreadId();
        ServiceExecutor::run();
    }

private:
    ScenarioRun& m_run;
};

Invoker* ScenarioRun::findInvoker(const std::string& interface, const std::string& protocol) {
    const auto found = m_invokers.find(interface + "/" + protocol);
    return found == m_invokers.end() ? nullptr : found->second;
}

Executable* ScenarioRun::createService(ServiceExecutor*, std::string, std::string, CommsChannelIfc*,
                                       std::string) {
    return this;
}

void ScenarioRun::initialise(FrameworkContext*) {
    ++m_initialised;
    if (m_scenario.fault != Fault::initialise || !failsNow())
        return;
    m_notAccepted = m_initialised;
    throwInTier();
}

void ScenarioRun::dispatch(InvokeInterceptorContext* context) {
    const bool marked = context->dataLength() > 1;
    const int point = context->interceptionPoint();
    if (!marked || point != (m_scenario.fault == Fault::before ? 0 : 1))
        return;
    m_refused += point == 0;
    ++m_thrown;
    throwInTier();
}

void ScenarioRun::handleMessage(Executable* service, const char* data, int length,
                                InvokerResponse* response) {
    require(service == this && data[length] == '\0', "the work is not what was handed over");
    const auto number = static_cast<std::size_t>(data[0] - '0');
    runItem(number);
    m_items.at(number - 1).succeeded = true;
    response->answer(std::string(data));
    delete response;
}

void ScenarioRun::timerEvent(int number) {
    runItem(static_cast<std::size_t>(number));
    ++m_timersRun;
}

/// The service code.
void ScenarioRun::runItem(std::size_t number) {
    Item& item = m_items.at(number - 1);
    Source& source = m_sources.at(item.source);
    const bool ordered = item.source != 'T';
    const void* const shared = ordered ? static_cast<const void*>(&source) : &item;
    point(shared, "start of service code");
    require(item.mark != '!' || m_scenario.fault != Fault::before, "not shown to interceptors");
    require(++item.started == 1, "item " + std::to_string(number) + " runs twice");
    ++source.running;
    if (ordered) {
        require(source.running == 1, "two requests of one channel run");
        require(source.last < number, "request " + std::to_string(number) + " was overtaken");
        source.last = number;
        require(!m_scenario.multiThreaded ||
                    ExecutorInspector::serves(*m_executor, {item.source}, item.priority),
                "no worker of the request's priority serves its channel");
    }
    point(shared, "service code");
    --source.running;
    if (item.mark == '#') {
        m_timersRun += !ordered;
        m_endingThreads.insert(Threadable::currentThreadId());
        pthread_exit(nullptr);
    }
    if (item.mark == '!' && m_scenario.fault != Fault::before && m_scenario.fault != Fault::after) {
        m_timersRun += !ordered;
        ++m_thrown;
        throwInTier();
    }
}

void ScenarioRun::throwInTier() {
    if (m_tier == 0)
        throw MirelException("thrown", __FILE__, __LINE__);
    if (m_tier == 1)
        throw std::runtime_error("thrown");
    throw 5;
}

/// Whether this is the moment of the run's fault.
bool ScenarioRun::failsNow() {
    if (Threadable::currentThreadId() == m_hostThread)
        return false;
    point(&m_faultsLeft, "a fault?");
    if (m_faultsLeft == 0 || pick(2) == 0)
        return false;
    --m_faultsLeft;
    if (m_endingThreads.contains(Threadable::currentThreadId())) {
        m_workerLost = true;
        return true;
    }
    ++m_refused;
    ++m_thrown;
    reached(m_loopThread == Threadable::currentThreadId() ? "refused to the executor"
                                                          : "refused to a worker");
    return true;
}

/// Takes both locks. The run ends in a deadlock when the caller holds one of them.
void ScenarioRun::touchLocks() {
    if (m_executor) {
        const CriticalSection lock(ExecutorInspector::lock(*m_executor));
    }
    const CriticalSection lock(m_inspector.lock());
}

// ---- The run ---------------------------------------------------------------------------------

ScenarioRun::ScenarioRun(const Scenario& scenario)
    : m_scenario(scenario),
      m_tier(scenario.fault == Fault::logger ? 2 : pick(throws(scenario) ? 3 : 1)),
      m_failingLine(scenario.fault == Fault::logger
                        ? kLogLines[static_cast<std::size_t>(pick(kLogLines.size()))]
                        : nullptr),
      m_pool(scenario.maxPoolSize,
             scenario.fault == Fault::before || scenario.fault == Fault::after ? this : nullptr),
      m_invokers{{"Ifc/text", this}},
      m_hostThread(Threadable::currentThreadId()) {
    checkAtEachStep([this] {
        m_inspector.check();
        if (!m_executor)
            return;
        ExecutorInspector::check(*m_executor, m_inspector);
        if (ExecutorInspector::holdsBack(*m_executor))
            reached("held back");
    });
    onReport([this](MirelException&) {
        ++m_reports;
        touchLocks();
        if (m_scenario.fault == Fault::publisher)
            throwInTier();
    });
    if (m_failingLine)
        onLog([this](const mirel::LogLine& line) {
            if (line.text.find(m_failingLine) != std::string_view::npos)
                throwInTier();
        });
    if (scenario.fault == Fault::refusal)
        m_pool.refuses = [this] { return failsNow(); };
    if (scenario.fault == Fault::noThread)
        mirel::setThreadStartHook([this] { return failsNow() ? EAGAIN : 0; });
}

ScenarioRun::~ScenarioRun() { checkAtEachStep({}); }

void ScenarioRun::makeExecutor() {
    m_answers = std::make_shared<Answers>(*this);
    m_items.clear();
    m_sources.clear();
    m_reads = 0;
    m_read = 0;
    m_initialised = 0;
    m_stopNow = std::make_unique<Semaphore>(0, 1, false);
    m_loopEnded = false;
    m_timersRun = 0;
    m_executor = std::make_unique<Loop>(*this);
}

void ScenarioRun::begin() {
    makeExecutor();
    send(m_scenario.work);
    start();
    await();
}

void ScenarioRun::start() {
    const int all = static_cast<int>(m_items.size());
    m_stopAtRead = 1 + (m_scenario.ending == Ending::anytime ? pick(all + 1) : all);
    Threader threader;
    unsigned long id = 0;
    require(m_executor->startThread(threader, id) == 0, "the executor has not started");
}

void ScenarioRun::send(const std::string& work) {
    std::istringstream words(work);
    for (std::string word; words >> word;) {
        const char last = word.back();
        const bool prioritised = word.size() > 1 && word[1] >= '0' && word[1] <= '2';
        const Item item{word[0], prioritised ? word[1] - '0' : 1,
                        last == '!' || last == '#' ? last : ' '};
        m_items.push_back(item);
        m_sources[item.source];
        const auto number = static_cast<int>(m_items.size());
        CommsChannelDataContainerMessage message;
        message.setPriority(MirelThreadPriority(item.priority));
        if (item.source == 'T') {
            message.setMsgType(6);
            message.setData(Serializer::serialize(number));
        } else {
            message.sourceChannel() = item.source;
            message.interface() = "Ifc";
            message.protocol() = "text";
            message.setRequestId(number);
            message.setData(std::to_string(number) + (item.mark == '!' ? "!" : ""));
        }
        m_answers->send(std::move(message));
    }
}

/// Whether all that has been read is done, and no more will be read.
bool ScenarioRun::allDone() const {
    if (!m_answers->unread.empty() && !m_loopEnded)
        return false;
    const auto end = m_items.end() - static_cast<std::ptrdiff_t>(m_answers->unread.size());
    const auto timers = static_cast<std::size_t>(
        std::count_if(m_items.begin(), end, [](const Item& item) { return item.source == 'T'; }));
    const auto read = static_cast<std::size_t>(end - m_items.begin());
    return m_answers->answers.size() + timers + (m_notAccepted > 0) >= read &&
           (m_timersRun >= timers || m_loopEnded || m_failingLine);
}

bool ScenarioRun::allAtRest() const {
    return m_inspector.listed() == m_inspector.idle() && ExecutorInspector::isClean(*m_executor);
}

void ScenarioRun::await() {
    if (m_scenario.ending >= Ending::atOnce) {
        m_stopNow->take(-1);
        return;
    }
    awaitRest();
}

void ScenarioRun::awaitRest() {
    waitUntil([this] { return allDone(); }, "everything done");
    m_loopFailed = m_loopEnded;
    m_read = m_items.size() - m_answers->unread.size();
    if (m_scenario.ending == Ending::answered)
        return;
    waitUntil([this] { return allAtRest(); }, "everything at rest");
    require(m_stopped || m_inspector.countsIdle(), "the reusable workers are not counted");
}

void ScenarioRun::shutDownPool() {
    endWorkers();
    for (const Item& item : m_items)
        m_refused += item.started == 0;
    if (m_refused > 0)
        reached("dropped with the pool");
}

void ScenarioRun::endWorkers() {
    m_pool.shutdown();
    m_stopped = true;
    require(m_inspector.listed() == 0 && m_inspector.idle() == 0,
            "the pool is not empty after its shutdown");
    for (const auto& [name, source] : m_sources)
        require(source.running == 0, "service code runs after the shutdown of the pool");
    require(ExecutorInspector::isClean(*m_executor), "a channel is busy without a worker");
}

void ScenarioRun::stop() {
    stopReading();
    endWorkers();
    destroyExecutor();
}

void ScenarioRun::endExecutor() {
    stopReading();
    m_read = static_cast<std::size_t>(m_initialised); // no timers among them
    m_executor->waitForWorkers();
    require(ExecutorInspector::isClean(*m_executor),
            "a channel is busy after the wait for workers");
    destroyExecutor();
}

void ScenarioRun::stopReading() {
    m_executor->shutdown();
    require(m_loopFailed || m_thrown > 0 || m_failingLine || !m_executor->hasStarted(),
            "shut down and started");
    if (ExecutorInspector::holdsBack(*m_executor))
        reached("held back to the end");
}

void ScenarioRun::destroyExecutor() {
    m_executor.reset();
    require(m_answers->deleted == 1, "the channel was not deleted once");
    checkOutcome();
}

void ScenarioRun::checkOutcome() const {
    int lost = 0;
    for (std::size_t i = 0; i < m_items.size(); ++i) {
        const Item& item = m_items[i];
        const std::string number = std::to_string(i + 1);
        if (item.source == 'T') {
            require(m_read == 0 || m_loopFailed || m_failingLine || item.started == 1,
                    "timer lost: " + number);
            continue;
        }
        std::vector<mirel::Answer> answers;
        std::copy_if(m_answers->answers.begin(), m_answers->answers.end(),
                     std::back_inserter(answers), [&](const mirel::Answer& answer) {
                         return answer.requestId == static_cast<long>(i) + 1;
                     });
        const std::size_t expected = m_notAccepted == static_cast<int>(i) + 1 ? 0 : 1;
        require(answers.size() == expected,
                std::to_string(answers.size()) + " answers for request " + number);
        for (const mirel::Answer& answer : answers)
            require(answer.succeeded == item.succeeded, "wrong answer for request " + number);
        lost += i < m_read && item.started == 0;
    }
    if (m_failingLine)
        return; // which requests that costs depends on the line
    require(m_reports == m_thrown, "not one report for each failure");
    require(m_read == 0 || m_workerLost || lost == m_refused, "a failure costs other requests");
}

void exploreScenario(const Scenario& scenario) {
    exploreScenario(
        scenario.name,
        [&scenario] {
            ScenarioRun run(scenario);
            run.begin();
            run.stop();
        },
        scenario.reaches);
}
