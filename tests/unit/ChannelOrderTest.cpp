// Requests of one source channel on a multi-threaded executor.

#include "ExecutorFixture.h"
#include "ServiceThreadIfc.h"

#include <algorithm>
#include <pthread.h>

namespace {

/// The data of the requests that were answered with success, in the order of their answers.
EventList succeeded(const EventList& answers) {
    EventList data;
    for (const std::string& answer : answers)
        if (const auto text = answer.find(" ok did "); text != std::string::npos)
            data.push_back(answer.substr(text + 8));
    return data;
}

/// Requests whose data begin with '!' wait until they are let go; each is written down when it
/// starts and when it ends.
class ChannelOrder : public ExecutorTest {
protected:
    ChannelOrder() { context.invokers["Ifc/text"] = &gated; }
    ~ChannelOrder() override {
        letAllGo();
        stop();
    }

    void letGo(const std::string& data) { gateOf(data).open(); }
    void letAllGo() {
        std::lock_guard lock(mutex);
        allOpen = true;
        for (auto& [name, gate] : gates)
            gate.open();
    }
    Gate& gateOf(const std::string& data) {
        std::lock_guard lock(mutex);
        Gate& gate = gates[data];
        if (allOpen)
            gate.open();
        return gate;
    }
    void waitUntilClean() {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (!ExecutorInspector::isClean(*executor) &&
               std::chrono::steady_clock::now() < deadline)
            sched_yield();
        EXPECT_TRUE(ExecutorInspector::isClean(*executor));
    }

    std::mutex mutex;
    std::map<std::string, Gate> gates;
    bool allOpen = false;
    TestInvoker gated{[this](Executable* executable, std::string data, InvokerResponse* response) {
        EXPECT_EQ(&service, executable);
        events.add("start " + data);
        if (data[0] == '!')
            gateOf(data).pass();
        events.add("end " + data);
        response->answer("did " + data);
        delete response;
    }};
};

TEST_F(ChannelOrder, HeldBackRequestsRunInOrderWhateverTheirPriorities) {
    struct Case {
        const char* name;
        int first, second;
        const char* line;
    };
    for (const Case& c : {Case{"same worker", 1, 1, "CURRENT"}, Case{"higher", 1, 2, "NEW"},
                          Case{"lower", 1, 0, "NEW"}}) {
        SCOPED_TRACE(c.name);
        LogCapture log("4,ServiceExecutor=6");
        events.clear();
        channel = std::make_shared<TestChannel::State>();
        start(&service, true);
        const std::string one = std::string("!1 ") + c.name;
        send({requestFrom("a", one, c.first, 42), requestFrom("a", "2", c.second),
              requestFrom("a", "3", c.second)});
        EXPECT_EQ(2u, ExecutorInspector::heldBack(*executor, "a"));
        letGo(one);
        EXPECT_EQ((EventList{"start " + one, "end " + one, "start 2", "end 2", "start 3", "end 3"}),
                  events.waitFor(6));
        waitUntilClean();
        EXPECT_EQ(
            (EventList{"4 (sourceChannelName='a' dest='here',reqid=42)EXECUTD msg='" + one + "'"}),
            log.with("EXECUTD msg="));
        EXPECT_EQ(2u, log.with("DELAYED msg=").size());
        EXPECT_EQ(1u, log.with(std::string("4 reuseThreadForDelayedMessage: ") + c.line +
                               " src='a' msg='2'")
                          .size());
        EXPECT_EQ(1u, log.with("4 reuseThreadForDelayedMessage: CURRENT src='a' msg='3'").size());
        EXPECT_EQ(c.first == c.second ? 0u : 1u, log.with("6 Got a thread").size());
        stop();
    }
}

/// A 32-bit process has address space for so many threads, too.
TEST_F(ChannelOrder, AThousandChannelsRunSideBySide) {
    constexpr long kChannels = 1000;
    start(&service, true);
    EventList expected;
    for (long i = 0; i < kChannels; ++i) {
        const std::string name = std::to_string(i);
        channel->send(requestFrom(name, "!" + name, 1, i));
        expected.push_back(name + "/" + name + " ok did !" + name);
    }
    events.waitFor(kChannels);
    EXPECT_TRUE(channel->answers.all().empty()) << "all have begun before one ends";
    channel->send(requestFrom("0", "next", 1, kChannels));
    expected.push_back("0/" + std::to_string(kChannels) + " ok did next");
    letGo("!0");
    EXPECT_EQ("end next", events.waitFor(kChannels + 3).back()) << "the other channels still run";
    letAllGo();
    stop();
    EventList answers = channel->answers.all();
    std::sort(answers.begin(), answers.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(expected, answers);
}

TEST_F(ChannelOrder, NamesAndDataAreBytes) {
    LogCapture log("4");
    start(&service, true);
    // Different channels, all of which run while the first one is busy; and one without a name.
    const std::string withNul("!x\0y", 4);
    send({requestFrom("a", withNul), requestFrom("A", "!A"), requestFrom("a ", "!a blank"),
          requestFrom("", "!none"), requestFrom("", "none again"), requestFrom("a", withNul)});
    events.waitFor(4);
    EXPECT_EQ(1u, ExecutorInspector::heldBack(*executor, ""));
    EXPECT_EQ(1u, ExecutorInspector::heldBack(*executor, "a"));
    letAllGo();
    waitUntilClean();
    const EventList all = events.all();
    EXPECT_EQ(2, std::count(all.begin(), all.end(), "end " + withNul)) << "run whole";
    EXPECT_EQ(2u, log.with("msg='!x'").size() - log.with("CURRENT src='a'").size())
        << "logged up to the NUL, when it is started and when it is held back";
}

TEST_F(ChannelOrder, ACallbackForAnUnknownWorkerChangesNothing) {
    start(&service, true);
    send({requestFrom("a", "!1"), requestFrom("a", "2")});
    ServiceThreadIfc* const stranger = pool.getThread(true);
    EXPECT_FALSE(executor->reuseThreadForDelayedMessage(stranger));
    EXPECT_TRUE(ExecutorInspector::isBusy(*executor, "a"));
    EXPECT_EQ(1u, ExecutorInspector::heldBack(*executor, "a"));
    stranger->timerEvent(nullptr, 0);
    letAllGo();
    events.waitFor(4);
}

/// A held-back request for which the pool has no worker fails, with one report; the others run.
TEST_F(ChannelOrder, AFailedHandOverCostsThatRequestOnly) {
    LogCapture log("2");
    ReportCapture reports;
    start(&service, true);
    channel->send(requestFrom("a", "!1", 1, 1));
    // Refused: two before one that another worker takes, one before the next of that worker, and
    // the last.
    long id = 1;
    for (const int priority : {7, 8, 0, 9, 0, -1}) {
        ++id;
        channel->send(requestFrom("a", std::to_string(id), priority, id));
    }
    channel->waitUntilAllDispatched();
    letGo("!1");
    EXPECT_EQ((EventList{"!1", "4", "6"}), succeeded(channel->answers.waitFor(7)));
    waitUntilClean();
    EXPECT_EQ(4u, reports.reports.all().size());
    for (const std::string& report : reports.reports.all()) {
        EXPECT_EQ(0u, report.find("Exception caught in ServiceExecutor: vector::"));
        EXPECT_NE(std::string::npos, report.find("\n Held-back request: one of source channel "
                                                 "'a' could not be started"));
    }
    EXPECT_EQ(4u, log.with("A held-back request of src='a' could not").size());
    EXPECT_TRUE(log.with("run(this=").empty()) << "the loop goes on";
    EXPECT_TRUE(executor->hasStarted()) << "the loop goes on";
    stop();
    EXPECT_EQ(7u, channel->answers.all().size());
}

/// A pool whose workers fail as the test wishes, and that run nothing by themselves.
class FailingPool : public ServiceThreadPoolIfc {
public:
    class Worker : public ServiceThreadIfc {
    public:
        explicit Worker(FailingPool& pool, int priority) : m_pool(pool), m_priority(priority) {}
        void executeRequest(Invoker*, Executable*, const char* data, int,
                            InvokerResponse* response) override {
            if (m_pool.throwing)
                throw std::bad_alloc();
            m_pool.calls.add("request " + std::string(data));
            delete response;
        }
        void timerEvent(Executable* executable, int) override {
            m_pool.calls.add(executable ? "timer" : "woken without work");
        }
        void run() override {}
        MirelThreadPriority getThreadPriorityForPlatform() override { return threadPriority(); }
        void destroyThread() override {}
        bool reuseThread() override { return true; }
        MirelThreadPriority threadPriority() override { return priorityOf(m_priority); }
        void callBackOnCompletion(ServiceExecCallbackIfc*) override {}
        void execute() override {}
        void clearRequestData() override {}

    private:
        FailingPool& m_pool;
        const int m_priority;
    };
    int availableThreads(MirelThreadPriority) override { return 0; }
    ServiceThreadIfc* getThread(MirelThreadPriority priority, bool) override {
        workers.push_back(std::make_unique<Worker>(*this, priority));
        return workers.back().get();
    }
    bool returnThread(ServiceThreadIfc*) override { return true; }

    bool throwing = false;
    Events calls;
    std::vector<std::unique_ptr<Worker>> workers;
};

class ChannelOrderWithoutThreads : public ExecutorTest {
protected:
    ChannelOrderWithoutThreads() { context.invokers["Ifc/text"] = &invoker; }
    void makeExecutorOn(ServiceThreadPoolIfc& otherPool) {
        executor = std::make_unique<ServiceExecutor>(&service, makeChannel(), "Ifc", &context,
                                                     &otherPool, nullptr, true);
    }
    void process(Message message) {
        channel->send(std::move(message));
        executor->processMessage();
    }
};

TEST_F(ChannelOrderWithoutThreads, WhatIsHeldBackAtDestructionIsAnsweredThroughTheChannel) {
    FailingPool failingPool; // whose workers never finish
    makeExecutorOn(failingPool);
    process(requestFrom("a", "1", 1, 1));
    channel->answers.clear();
    process(requestFrom("a", "2", 2, 2));
    process(requestFrom("a", "3", 1, 3));
    executor.reset();
    const EventList answers = channel->answers.all();
    ASSERT_EQ(2u, answers.size());
    EXPECT_EQ(0u, answers[0].find("a/2 failed "));
    EXPECT_EQ(0u, answers[1].find("a/3 failed "));
    EXPECT_TRUE(channel->deleted);
    for (const std::string& answer : answers)
        EXPECT_EQ(std::string::npos, answer.find("(after the channel)")) << answer;
}

TEST_F(ChannelOrderWithoutThreads, AWorkerThatCannotTakeItsWorkIsGivenBack) {
    ReportCapture reports;
    FailingPool failingPool;
    makeExecutorOn(failingPool);
    process(requestFrom("a", "1", 1));
    process(requestFrom("a", "2", 2)); // held back, for another worker
    process(requestFrom("a", "3", 1)); // held back, for the same worker
    process(requestFrom("a", "4", 1));
    failingPool.throwing = true;
    ServiceThreadIfc* const first = failingPool.workers[0].get();
    EXPECT_FALSE(executor->reuseThreadForDelayedMessage(first)) << "none can be handed over";
    EXPECT_EQ(3u, reports.reports.all().size());
    EXPECT_EQ(4u, channel->answers.all().size()) << "the first one's included";
    EXPECT_EQ((EventList{"request 1", "woken without work"}), failingPool.calls.all());
    EXPECT_TRUE(ExecutorInspector::isClean(*executor));

    failingPool.calls.clear();
    EXPECT_THROW(process(requestFrom("b", "5", 1)), std::bad_alloc);
    {
        LogCapture log;
        log.throwOn("Got a thread");
        EXPECT_THROW(process(requestFrom("b", "6", 1)), int);
        log.throwOn("Got a timer thread");
        EXPECT_THROW(process(timerMessage(7)), int);
    }
    EXPECT_EQ((EventList{"woken without work", "woken without work", "woken without work"}),
              failingPool.calls.all());
    EXPECT_TRUE(ExecutorInspector::isClean(*executor));
    EXPECT_EQ(6u, channel->answers.all().size());
    executor.reset(); // before its pool
}

/// Service code that cancels its OS thread costs at most that request, and the channel goes on.
TEST_F(ChannelOrder, ACancelledThreadDoesNotHoldUpItsChannel) {
    for (const bool atItsEnd : {false, true}) {
        SCOPED_TRACE(atItsEnd);
        LogCapture log("4"); // a late cancellation might strike where a line is written
        channel = std::make_shared<TestChannel::State>();
        Gate gate;
        TestInvoker cancelling([&](Executable*, std::string data, InvokerResponse* response) {
            if (data == "1")
                gate.pass();
            if (data == "1" && !atItsEnd) {
                pthread_cancel(pthread_self());
                pthread_testcancel(); // ends the thread; the worker answers, with a failure
            }
            response->answer("did " + data);
            delete response;
            if (data == "1")
                pthread_cancel(pthread_self());
        });
        context.invokers["Ifc/text"] = &cancelling;
        start(&service, true);
        send({requestFrom("a", "1", 1, 1), requestFrom("a", "2", 1, 2),
              requestFrom("a", "3", 1, 3)});
        gate.open();
        EXPECT_EQ(atItsEnd ? (EventList{"1", "2", "3"}) : (EventList{"2", "3"}),
                  succeeded(channel->answers.waitFor(3)));
        waitUntilClean();
        stop();
        EXPECT_EQ(3u, channel->answers.all().size());
    }
}

} // namespace
