#include "ServiceThreadPoolIfc.h"
#include "ServiceThread_MT.h"
#include "Support.h"
#include "framework/ProcessTypeString.h"
#include "framework/Threader.h"

namespace {

/// A pool that only writes down what comes back to it.
class RecordingPool : public ServiceThreadPoolIfc {
public:
    int availableThreads(MirelThreadPriority) override { return 0; }
    ServiceThreadIfc* getThread(MirelThreadPriority, bool) override { return nullptr; }
    bool returnThread(ServiceThreadIfc* thread) override {
        if (onReturn)
            onReturn(thread);
        returned.add("returned");
        return true;
    }
    std::function<void(ServiceThreadIfc*)> onReturn;
    Events returned;
};

class WorkerThread : public testing::Test {
protected:
    ServiceThread_MT* create(bool reusable = true,
                             InvokeInterceptorDispatcher* dispatcher = nullptr) {
        return new ServiceThread_MT(&pool, reusable, priorityOf(2), dispatcher);
    }
    void start(ServiceThread_MT* worker) {
        unsigned long id = 0;
        Threader().createThread(id, worker, "", 1, 0);
    }
    ServiceThread_MT* createStarted(InvokeInterceptorDispatcher* dispatcher = nullptr) {
        ServiceThread_MT* const worker = create(true, dispatcher);
        start(worker);
        return worker;
    }

    RecordingPool pool;
    Events events;
    TestService service;
    TestInvoker invoker{
        [this](Executable* executable, std::string data, InvokerResponse* response) {
            EXPECT_EQ(&service, executable);
            events.add("handle " + data);
            delete response;
        }};
};

TEST_F(WorkerThread, AnswersForItself) {
    for (const bool reusable : {true, false}) {
        ServiceThread_MT worker(&pool, reusable, priorityOf(2), nullptr);
        EXPECT_EQ(reusable, worker.reuseThread());
        EXPECT_EQ(2, worker.threadPriority());
        EXPECT_EQ(2, worker.getThreadPriorityForPlatform());
        EXPECT_EQ(ProcessTypeString::SERVICE_MT_THREAD, worker.type());
    }
}

TEST_F(WorkerThread, RunsWorkHandedOverBeforeAndAfterItsThreadHasStarted) {
    TestDispatcher dispatcher(events);
    dispatcher.onDispatch = [](InvokeInterceptorContext& context) {
        EXPECT_EQ(3, context.dataLength());
        EXPECT_NE(nullptr, context.response());
    };
    ServiceThread_MT* const worker = create(true, &dispatcher);
    const std::string withNul("a\0b", 3);
    int destroyed = 0;
    worker->executeRequest(&invoker, &service, withNul.data(), 3, new CountedResponse(destroyed));
    start(worker);
    pool.returned.waitFor(1);
    EXPECT_EQ((EventList{"point 0", "handle " + withNul, "point 1"}), events.all());

    TestService timed([this](int id) { events.add("timer " + std::to_string(id)); });
    worker->timerEvent(&timed, 7);
    pool.returned.waitFor(2);
    EXPECT_EQ("timer 7", events.all().back());
    EXPECT_EQ(4u, events.all().size()) << "timer events are not intercepted";
    worker->destroyThread();
    EXPECT_EQ(1, destroyed);
}

TEST_F(WorkerThread, ARequestOfNoBytesIsOneNulByte) {
    ServiceThread_MT* const worker = createStarted();
    int destroyed = 0;
    worker->executeRequest(&invoker, &service, nullptr, 0, new CountedResponse(destroyed));
    pool.returned.waitFor(1);
    EXPECT_EQ((EventList{"handle "}), events.all());
    worker->destroyThread();
}

TEST_F(WorkerThread, DropsWorkWithoutInvokerOrService) {
    LogCapture log;
    ReportCapture reports;
    ServiceThread_MT* const worker = createStarted();
    int destroyed = 0;
    worker->executeRequest(nullptr, &service, "abc", 3, new CountedResponse(destroyed));
    pool.returned.waitFor(1);
    worker->timerEvent(nullptr, 7);
    pool.returned.waitFor(2);
    worker->destroyThread();
    EXPECT_EQ(1, destroyed);
    const EventList lines = log.lines.all();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(0u, lines[0].find("5 ServiceThread_MT::execute() eRequest, m_pinvoker is not set, no "
                                "request to execute, ServiceThread_MT = 0x"));
    EXPECT_EQ(0u, lines[1].find("5 ServiceThread_MT::execute() eTimer, m_pexecutable is not set, "
                                "ServiceThread_MT = 0x"));
    EXPECT_TRUE(reports.reports.all().empty());
}

TEST_F(WorkerThread, SurvivesAndReportsWhatServiceCodeThrows) {
    for (const Thrown& thrown : everyTier()) {
        SCOPED_TRACE(thrown.prefix);
        LogCapture log;
        ReportCapture reports;
        TestDispatcher dispatcher(events);
        events.clear();
        TestInvoker failing([&](Executable*, std::string, InvokerResponse*) { thrown.raise(); });
        TestService failingService([&](int) { thrown.raise(); });
        ServiceThread_MT* const worker = createStarted(&dispatcher);
        const std::size_t before = pool.returned.all().size();

        int destroyed = 0;
        worker->executeRequest(&failing, &service, "a\0b", 3, new CountedResponse(destroyed));
        pool.returned.waitFor(before + 1);
        EXPECT_EQ(1, destroyed);
        EXPECT_EQ((EventList{"point 0"}), events.all());
        EventList kinds;
        for (const std::string& line : log.lines.all())
            kinds.push_back(line.substr(line.find(" - ") + 3));
        EXPECT_EQ((EventList{"calling handleMessage", std::string(thrown.kind) + " caught!",
                             "deleted m_presponse", "calling publish exception"}),
                  kinds);

        worker->timerEvent(&failingService, -7);
        pool.returned.waitFor(before + 2);
        worker->destroyThread();
        const std::string prefix = withClass(thrown.prefix, "ServiceThread_MT");
        EXPECT_EQ((EventList{prefix +
                                 "\n Invoker used: TestInvoker\n Service used: TestService"
                                 "\n Original request to Service: a" +
                                 thrown.cause,
                             prefix + "\n Service used: TestService\n timerId: -7" + thrown.cause}),
                  reports.reports.all());
    }
}

TEST_F(WorkerThread, RunsWhatItsCallbackHandsItWithoutThePool) {
    ServiceThread_MT* const worker = createStarted();
    int calls = 0;
    TestCallback callback([&](ServiceThreadIfc* thread) {
        EXPECT_EQ(worker, thread);
        EXPECT_TRUE(pool.returned.all().empty());
        if (++calls > 2)
            return false;
        thread->executeRequest(&invoker, &service, "more", 4, nullptr);
        return true;
    });
    worker->callBackOnCompletion(&callback);
    worker->executeRequest(&invoker, &service, "first", 5, nullptr);
    pool.returned.waitFor(1);
    EXPECT_EQ((EventList{"handle first", "handle more", "handle more"}), events.all());
    EXPECT_EQ(3, calls);

    // The callback was forgotten with its answer `false`.
    worker->executeRequest(&invoker, &service, "next", 4, nullptr);
    pool.returned.waitFor(2);
    EXPECT_EQ(3, calls);
    worker->destroyThread();
}

TEST_F(WorkerThread, SurvivesWhatItsReportingAndItsCallbackThrow) {
    struct Case {
        const char* name;
        bool loggerThrows, responseThrows, callbackThrows;
    };
    for (const Case& c : {Case{"logger", true, false, false}, Case{"response", false, true, false},
                          Case{"callback", false, false, true}, Case{"all", true, true, true}}) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        ReportCapture reports;
        TestInvoker failing([&](Executable*, std::string, InvokerResponse*) {
            log.throwOn(c.loggerThrows ? "" : nullptr);
            throw 1;
        });
        TestCallback callback([&](ServiceThreadIfc*) -> bool {
            if (c.callbackThrows)
                throw std::runtime_error("callback");
            return false;
        });
        ServiceThread_MT* const worker = createStarted();
        const std::size_t before = pool.returned.all().size();
        int destroyed = 0;
        worker->callBackOnCompletion(&callback);
        worker->executeRequest(&failing, &service, "", 0,
                               new CountedResponse(destroyed, c.responseThrows));
        pool.returned.waitFor(before + 1);
        EXPECT_EQ(1, destroyed);
        log.throwOn(nullptr);
        if (!c.loggerThrows) {
            EXPECT_EQ(1u, log.with("2 Exception caught in ServiceThread_MT::run, ").size());
            EXPECT_EQ(EventList(log.lines.all().size(), "ServiceThread_MT.cpp"), log.files.all());
        }
        events.clear();
        worker->executeRequest(&invoker, &service, "next", 4, nullptr);
        pool.returned.waitFor(before + 2);
        EXPECT_EQ((EventList{"handle next"}), events.all());
        worker->destroyThread();
    }
}

TEST_F(WorkerThread, DestroyThreadWaitsForTheRunningWorkAndDropsWhatComesAfterIt) {
    Gate gate;
    int destroyed = 0;
    int handedOver = 1;
    TestInvoker blocking([&](Executable*, std::string, InvokerResponse* response) {
        events.add("running");
        gate.pass();
        delete response;
    });
    // Has more work until it is not run, so only the order to stop ends the worker.
    TestCallback callback([&](ServiceThreadIfc* thread) {
        if (std::ssize(events.all()) < handedOver)
            return false;
        ++handedOver;
        thread->executeRequest(&invoker, &service, "late", 4, new CountedResponse(destroyed));
        return true;
    });
    ServiceThread_MT* const worker = createStarted();
    worker->callBackOnCompletion(&callback);
    worker->executeRequest(&blocking, &service, "", 0, new CountedResponse(destroyed));
    events.waitFor(1);

    class Opener : public Threadable {
    public:
        explicit Opener(Gate& gate) : m_gate(gate) {}
        void run() override { m_gate.open(); }
        MirelThreadPriority getThreadPriorityForPlatform() override { return priorityOf(0); }

    private:
        Gate& m_gate;
    } opener(gate);
    unsigned long id = 0;
    Threader().createThread(id, &opener, "", 1, 0);
    worker->destroyThread();
    opener.waitForThreadCompletion();
    EXPECT_EQ(handedOver, destroyed) << "run or dropped, each request is answered once";
    EXPECT_EQ(handedOver, std::ssize(events.all()) + 1)
        << "the callback is told of what is not run";
    EXPECT_TRUE(pool.returned.all().empty());
}

TEST_F(WorkerThread, ATemporaryWorkerDestroyedByItsPoolEndsWithoutWaitingForWork) {
    class Worker : public ServiceThread_MT {
    public:
        Worker(ServiceThreadPoolIfc* pool, Gate& deleted)
            : ServiceThread_MT(pool, false, priorityOf(1), nullptr),
              m_deleted(deleted) {}
        ~Worker() override { m_deleted.open(); }

    private:
        Gate& m_deleted;
    };
    pool.onReturn = [](ServiceThreadIfc* thread) { thread->destroyThread(); };
    Gate deleted;
    int destroyed = 0;
    auto* const worker = new Worker(&pool, deleted);
    worker->executeRequest(&invoker, &service, "only", 4, new CountedResponse(destroyed));
    start(worker);
    deleted.pass();
    EXPECT_EQ((EventList{"handle only"}), events.all());
    EXPECT_EQ(1, destroyed);
}

} // namespace
