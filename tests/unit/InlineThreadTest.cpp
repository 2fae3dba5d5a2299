#include "ServiceThread_ST.h"
#include "Support.h"
#include "framework/ProcessTypeString.h"

namespace {

TEST(InlineThread, FixedAnswersAndEmptyFunctions) {
    ServiceThread_ST thread(nullptr);
    EXPECT_FALSE(thread.reuseThread());
    EXPECT_EQ(1, thread.threadPriority());
    EXPECT_EQ(1, thread.getThreadPriorityForPlatform());
    EXPECT_EQ(ProcessTypeString::SERVICE_ST_THREAD, thread.type());
    thread.run();
    thread.execute();
    thread.destroyThread();
    thread.clearRequestData();
    thread.callBackOnCompletion(nullptr);
    EXPECT_EQ(0u, thread.threadId());
}

TEST(InlineThread, RunsTheRequestBetweenTheInterceptors) {
    Events events;
    TestDispatcher dispatcher(events);
    int owner = 0;
    dispatcher.onDispatch = [&](InvokeInterceptorContext& context) {
        EXPECT_EQ(3, context.dataLength());
        EXPECT_NE(nullptr, context.response());
        if (context.interceptionPoint() == 0)
            context.note(&owner) = std::string("kept");
        else
            EXPECT_EQ("kept", std::any_cast<std::string>(context.note(&owner)));
    };
    int destroyed = 0;
    InvokerResponse* kept = nullptr;
    TestService service;
    TestInvoker invoker([&](Executable* executable, std::string data, InvokerResponse* response) {
        EXPECT_EQ(&service, executable);
        events.add("handle " + data);
        kept = response;
    });
    (new ServiceThread_ST(&dispatcher))
        ->executeRequest(&invoker, &service, "abc", 3, new CountedResponse(destroyed));
    EXPECT_EQ((EventList{"point 0", "handle abc", "point 1"}), events.all());
    EXPECT_EQ(0, destroyed) << "after a normal return the response is the invoker's";
    delete kept;

    (new ServiceThread_ST(nullptr))
        ->executeRequest(&invoker, &service, "abc", 3, new CountedResponse(destroyed));
    EXPECT_EQ(4u, events.all().size()) << "without a dispatcher only the invoker is called";
    delete kept;
}

TEST(InlineThread, WithoutInvokerOrServiceTheWorkIsDropped) {
    LogCapture log("2");
    ReportCapture reports;
    Events events;
    TestDispatcher dispatcher(events);
    int destroyed = 0;
    for (InvokerResponse* response :
         {static_cast<InvokerResponse*>(nullptr),
          static_cast<InvokerResponse*>(new CountedResponse(destroyed))})
        (new ServiceThread_ST(&dispatcher))->executeRequest(nullptr, nullptr, "abc", 3, response);
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(2u, log.with("2 executeRequest() - invoker is not set, no request to execute, "
                           "ServiceThread_ST = 0x")
                      .size());

    log.lines.clear();
    testing::internal::CaptureStdout();
    (new ServiceThread_ST(&dispatcher))->timerEvent(nullptr, 7);
    EXPECT_EQ(0u, testing::internal::GetCapturedStdout().find(
                      "ServiceThread_ST::timerEvent() svc is not set, ServiceThread_ST = 0x"));
    EXPECT_TRUE(log.lines.all().empty());
    EXPECT_TRUE(events.all().empty());
    EXPECT_TRUE(reports.reports.all().empty());
}

TEST(InlineThread, ReportsWhatServiceCodeThrows) {
    for (const Thrown& thrown : everyTier()) {
        SCOPED_TRACE(thrown.prefix);
        LogCapture log;
        ReportCapture reports;
        Events events;
        TestDispatcher dispatcher(events);
        TestInvoker invoker([&](Executable*, std::string, InvokerResponse*) { thrown.raise(); });
        TestService service([&](int) { thrown.raise(); });
        const std::string prefix = withClass(thrown.prefix, "ServiceThread_ST");
        const bool chained = *thrown.cause != '\0';

        int destroyed = 0;
        auto* thread = new ServiceThread_ST(&dispatcher);
        thread->executeRequest(&invoker, &service, "a\0b", 3, new CountedResponse(destroyed));
        EXPECT_EQ(1, destroyed);
        EXPECT_EQ((EventList{"point 0"}), events.all());
        EXPECT_EQ((EventList{prefix +
                             "\n Invoker used: TestInvoker\n Service used: TestService"
                             "\n Original request to Service: a" +
                             thrown.cause}),
                  reports.reports.all());
        const auto tail = [](EventList lines) {
            for (std::string& line : lines)
                line = line.substr(0, line.find('(')) + line.substr(line.find(") - "));
            return lines;
        };
        EventList expected{"5 executeRequest) - calling handleMessage",
                           "5 executeRequest) - " + std::string(thrown.kind) + " caught!",
                           "5 executeRequest) - deleted m_presponse"};
        if (chained)
            expected.push_back("5 executeRequest) - calling publish exception");
        expected.push_back("5 execute) - calling publish exception");
        EXPECT_EQ(expected, tail(log.lines.all()));

        log.lines.clear();
        reports.reports.clear();
        thread = new ServiceThread_ST(&dispatcher);
        thread->timerEvent(&service, -7);
        EXPECT_EQ((EventList{prefix + "\n Service used: TestService\n timerId: -7" + thrown.cause}),
                  reports.reports.all());
        expected = {"5 timerEvent) - calling timerEvent",
                    "5 timerEvent) - " + std::string(thrown.kind) + " caught!"};
        if (chained)
            expected.push_back("5 timerEvent) - calling publish exception");
        expected.push_back("5 execute) - calling publish exception");
        EXPECT_EQ(expected, tail(log.lines.all()));
        EXPECT_EQ((EventList{"point 0"}), events.all()) << "timer events are not intercepted";
    }
}

TEST(InlineThread, ReportsWhatInterceptorsThrow) {
    ReportCapture reports;
    Events events;
    TestDispatcher dispatcher(events);
    int failingPoint = 0;
    dispatcher.onDispatch = [&](InvokeInterceptorContext& context) {
        if (context.interceptionPoint() == failingPoint)
            throw std::runtime_error("intercepted");
    };
    int destroyed = 0;
    TestInvoker invoker([&](Executable*, std::string, InvokerResponse* response) {
        events.add("handle");
        delete response;
    });
    (new ServiceThread_ST(&dispatcher))
        ->executeRequest(&invoker, nullptr, "", 0, new CountedResponse(destroyed));
    EXPECT_EQ((EventList{"point 0"}), events.all());
    EXPECT_EQ(1, destroyed);

    // After the invoker has returned, the thread must not delete the response: the invoker has.
    failingPoint = 1;
    (new ServiceThread_ST(&dispatcher))
        ->executeRequest(&invoker, nullptr, "", 0, new CountedResponse(destroyed));
    EXPECT_EQ((EventList{"point 0", "point 0", "handle", "point 1"}), events.all());
    EXPECT_EQ(2, destroyed);
    const EventList texts = reports.reports.all();
    ASSERT_EQ(2u, texts.size());
    EXPECT_EQ(texts[0], texts[1]);
    EXPECT_EQ("Exception caught in ServiceThread_ST: intercepted"
              "\n Invoker used: TestInvoker\n Original request to Service: ",
              texts[0]);
}

TEST(InlineThread, AFailedTimerEventWithTimerIdZeroReportsAnEmptyRequest) {
    ReportCapture reports;
    TestService service([](int) { throw 1; });
    (new ServiceThread_ST(nullptr))->timerEvent(&service, 0);
    EXPECT_EQ((EventList{"Unknown Exception caught in ServiceThread_ST: \n Service used: "
                         "TestService\n Original request to Service: "}),
              reports.reports.all());
}

TEST(InlineThread, WhatTheReportingThrowsReachesTheCallerAndTheCallerGetsItsAnswer) {
    int destroyed = 0;
    TestInvoker invoker([](Executable*, std::string, InvokerResponse*) { throw 1; });
    auto* thread = new ServiceThread_ST(nullptr);
    {
        LogCapture log;
        log.throwOn("");
        EXPECT_THROW(
            thread->executeRequest(&invoker, nullptr, "", 0, new CountedResponse(destroyed)), int);
    }
    EXPECT_EQ(1, destroyed);
    delete thread; // an exception that leaves it keeps it from deleting itself
}

} // namespace
