#include "ServiceThreadPoolIfc.h"
#include "ServiceThread_MT.h"
#include "Support.h"
#include "framework/ProcessTypeString.h"
#include "framework/Threader.h"

namespace {

/// A pool that has no workers and records each thread that is returned.
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

TEST_F(WorkerThread, LogsWhatAResponseAndACallbackThrow) {
    LogCapture log("2");
    TestInvoker failing([](Executable*, std::string, InvokerResponse*) { throw 1; });
    TestCallback callback([](ServiceThreadIfc*) -> bool { throw std::runtime_error("callback"); });
    ServiceThread_MT* const worker = createStarted();
    int destroyed = 0;
    worker->callBackOnCompletion(&callback);
    worker->executeRequest(&failing, &service, nullptr, 0, new CountedResponse(destroyed, true));
    pool.returned.waitFor(1);
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(2u, log.with("2 Exception caught in ServiceThread_MT::run, ").size());
    EXPECT_EQ((EventList(2, "ServiceThread_MT.cpp")), log.files.all());
    worker->executeRequest(&invoker, &service, "next", 4, nullptr);
    pool.returned.waitFor(2);
    EXPECT_EQ((EventList{"handle next"}), events.all());
    worker->destroyThread();
}

} // namespace
