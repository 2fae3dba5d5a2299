// The executor's life, its sorting of messages, the inline path, timers, legacy messages, reports.

#include "ExecutorFixture.h"
#include "framework/ProcessTypeString.h"

#include <climits>

namespace {

TEST_F(ExecutorTest, AnswersForItself) {
    ServiceExecutor empty;
    EXPECT_EQ(1, empty.getThreadPriorityForPlatform());
    for (const bool multiThreaded : {true, false}) {
        ServiceExecutor ready(nullptr, nullptr, "", nullptr, nullptr, nullptr, multiThreaded);
        ServiceExecutor lazy("l", "c", "i", nullptr, nullptr, nullptr, nullptr, multiThreaded);
        for (ServiceExecutor* each : {&ready, &lazy}) {
            EXPECT_EQ(multiThreaded ? 2 : 1, each->getThreadPriorityForPlatform());
            EXPECT_EQ(ProcessTypeString::SERVICE_EXEC_THREAD, each->type());
            EXPECT_FALSE(each->hasStarted());
        }
    }
}

TEST_F(ExecutorTest, ALoopWithoutAnythingToReadEndsAtOnce) {
    executor = std::make_unique<ServiceExecutor>(); // has no channel
    startThread();
    executor->waitForThreadCompletion();
    EXPECT_FALSE(executor->hasStarted());

    executor = std::make_unique<ServiceExecutor>(&service, new TestChannel(channel), "Ifc",
                                                 &context, &pool, nullptr, true);
    executor->shutdown(); // never started: returns at once, and closes the channel
    startThread();
    executor->waitForThreadCompletion();
    EXPECT_FALSE(executor->hasStarted());
    EXPECT_EQ(1, channel->reads);
}

TEST_F(ExecutorTest, SortsMessagesIntoThreeKinds) {
    LogCapture log;
    context.invokers["Ifc/text"] = &invoker;
    TestLegacyService legacy([&](std::string data, std::string source, CommsChannelIfc*, Message&) {
        events.add("legacy " + source + " " + data);
    });
    start(&legacy, false);
    Message timerWithNames = timerMessage(7);
    timerWithNames.interface() = "Ifc";
    timerWithNames.protocol() = "text";
    Message noInterface = requestFrom("a", "no interface");
    noInterface.interface().clear();
    Message noProtocol = requestFrom("a", "no protocol");
    noProtocol.protocol().clear();
    send({timerWithNames, noInterface, noProtocol, requestFrom("a", "request")});
    EXPECT_EQ((EventList{"legacy a no interface", "legacy a no protocol", "request"}),
              events.all());
    EXPECT_EQ(
        (EventList{"6 (sourceChannelName='clock' dest='here',timerid=7)Got a timer thread",
                   "6 (sourceChannelName='clock' dest='here',timerid=7)Executing timer event"}),
        log.with("timerid="));
    EXPECT_EQ((EventList{"6 (sourceChannelName='a' dest='here',reqid=1)Legacy code - cast to "
                         "'Service' and call handle message",
                         "6 (sourceChannelName='a' dest='here',reqid=1)Legacy code - cast to "
                         "'Service' and call handle message"}),
              log.with("Legacy code"));
}

TEST_F(ExecutorTest, CreatesTheServiceOnceAndTriesAgainAfterNull) {
    LogCapture log;
    context.invokers["IfcA/text"] = &invoker;
    executor = std::make_unique<ServiceExecutor>("lib", "make", "IfcA,IfcB", makeChannel(),
                                                 &context, &pool, nullptr, false);
    startThread();
    channel->waitUntilAllDispatched();
    EXPECT_TRUE(context.created.empty()) << "not before the first message";
    send({timerMessage(1)}); // creation returns null: the timer finds no service
    context.onCreate = [&] { return &service; };
    send({timerMessage(2)});
    send({timerMessage(3)});
    EXPECT_EQ((EventList{"lib make IfcA,IfcB", "lib make IfcA,IfcB"}), context.created);
    EXPECT_EQ(std::pair(executor.get(), comms), context.creators.front());
    EXPECT_EQ((EventList{"timer 2", "timer 3"}), events.all());
    EXPECT_EQ(2u, log.with("4 initService: ifc='IfcA,IfcB' lib='lib', creator='make'").size());
    EXPECT_EQ(2u, log.with("6 Service created & initialised - interface = 'IfcA,IfcB'").size());
    stop();

    channel = std::make_shared<TestChannel::State>();
    start(&service, false);
    send({timerMessage(4)});
    EXPECT_EQ(2u, context.created.size()) << "a service that is given is not created";
}

TEST_F(ExecutorTest, RunsARequestInlineWithItsLinesAndItsAnswer) {
    LogCapture log;
    int initialised = 0;
    invoker.onInitialise = [&](FrameworkContext* given) {
        EXPECT_EQ(&context, given);
        ++initialised;
    };
    context.invokers["Ifc/text"] = &invoker;
    start(&service, false);
    send({requestFrom("a", "one", 7, 42), requestFrom("a", "two", -3, 43)});
    EXPECT_EQ((EventList{"one", "two"}), events.all()) << "inline, the priority does not matter";
    EXPECT_EQ((EventList{"a/42 ok did one", "a/43 ok did two"}), channel->answers.all());
    EXPECT_EQ(2, initialised);
    const std::string prefix = "6 (sourceChannelName='a' dest='here',reqid=42)";
    EXPECT_EQ((EventList{prefix + "Protocol and interface included in message",
                         prefix + "Service supports interface", prefix + "Find invoker called",
                         prefix + "Invoker initialised with fwkContext",
                         prefix + "Created invoker response", prefix + "Executing request: one"}),
              log.with("reqid=42"));
}

TEST_F(ExecutorTest, CutsLongRequestIdsInTheLogPrefix) {
    LogCapture log;
    context.invokers["Ifc/text"] = &invoker;
    start(&service, false);
    struct Case {
        long id;
        const char* piece;
    };
    constexpr bool k32Bits = LONG_MAX == 0x7fffffff;
    const Case cases[]{
        {0, "reqid=0)"},
        {1999999999, "reqid=1999999999)"},
        {-1999999999, "reqid=-1999999999"},
        {LONG_MAX, k32Bits ? "reqid=2147483647)" : "reqid=92233720368"},
        {LONG_MIN, k32Bits ? "reqid=-2147483648" : "reqid=-9223372036"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.piece);
        log.lines.clear();
        send({requestFrom("a", "x", 1, c.id)});
        EXPECT_EQ(1u, log.with(c.piece + std::string("Protocol and")).size());
    }
}

TEST_F(ExecutorTest, DropsRequestsThatNobodyHandles) {
    LogCapture log("2");
    context.invokers["IfcA/text"] = context.invokers["Ifc/text"] = &invoker;
    executor = std::make_unique<ServiceExecutor>(&service, new TestChannel(channel), "IfcA,IfcB",
                                                 &context, &pool, nullptr, false);
    startThread();
    for (const char* interface : {"IfcA", "IfcB", "Ifc", "IfcC"}) {
        Message message = requestFrom("a", interface);
        message.interface() = interface;
        channel->send(message);
    }
    channel->waitUntilAllDispatched();
    EXPECT_EQ((EventList{"IfcA", "Ifc"}), events.all());
    EXPECT_EQ(2u, channel->answers.all().size());
    EXPECT_EQ((EventList{"2 ProcessMessage: findInvoker for IfcB, text failed",
                         "2 (sourceChannelName='a' dest='here',reqid=1)No invoker found"}),
              log.lines.all());
    mirel::setLogLevels("3");
    Message refused = requestFrom("a", "");
    refused.interface() = "IfcC";
    send({refused});
    EXPECT_EQ("3 (sourceChannelName='a' dest='here',reqid=1)Interface not supported - do nothing",
              log.lines.all().back());
}

TEST_F(ExecutorTest, RunsTimersOnTheirThreads) {
    const unsigned long testThread = Threadable::currentThreadId();
    for (const bool multiThreaded : {false, true}) {
        SCOPED_TRACE(multiThreaded);
        LogCapture log;
        channel = std::make_shared<TestChannel::State>();
        unsigned long ranOn = testThread;
        TestService timed([&](int id) {
            ranOn = Threadable::currentThreadId();
            events.add(std::to_string(id) + (log.with("Executing").empty() ? " before" : " after"));
        });
        events.clear();
        start(&timed, multiThreaded);
        const unsigned long executorThread = executor->threadId();
        send({timerMessage(-7, 2)});
        const EventList ran = events.waitFor(1);
        EXPECT_EQ(multiThreaded, ranOn != executorThread);
        if (!multiThreaded) {
            EXPECT_EQ((EventList{"-7 before"}), ran) << "inline: run before the line is written";
        } else {
            while (pool.availableThreads(priorityOf(2)) == 0) // it is on its way back
                sched_yield();
            EXPECT_EQ(1, pool.poolSize()) << "a worker of the message's priority";
        }
        stop();
    }
}

TEST_F(ExecutorTest, ShowsLegacyMessagesToTheInterceptorsAndPassesThemOn) {
    Message legacyMessage = requestFrom("a", std::string("x\0y", 3));
    legacyMessage.interface().clear();
    CommsChannelIfc* given = nullptr;
    TestLegacyService legacy(
        [&](std::string data, std::string, CommsChannelIfc* passedOn, Message& message) {
            given = passedOn;
            events.add("handle " + std::to_string(data.size()) + " " + message.channel());
        });
    TestDispatcher recorder(events);
    dispatcher = &recorder;
    start(&legacy, true);
    send({legacyMessage});
    EXPECT_EQ((EventList{"point 0", "handle 3 here", "point 1"}), events.all());
    EXPECT_EQ(comms, given);
    stop();

    // A service that is no `Service` drops them silently.
    LogCapture log;
    events.clear();
    channel = std::make_shared<TestChannel::State>();
    start(&service, true);
    send({legacyMessage});
    EXPECT_TRUE(events.all().empty());
    EXPECT_EQ(1u, log.lines.all().size());
}

/// Each way in which something reaches the loop: the loop ends, `hasStarted` stays true, the rest
/// of the channel is not read, and there is one report in the executor's form.
TEST_F(ExecutorTest, AFailureInTheLoopEndsItWithOneReport) {
    for (const Thrown& thrown : everyTier()) {
        SCOPED_TRACE(thrown.prefix);
        LogCapture log("2");
        ReportCapture reports;
        events.clear();
        channel = std::make_shared<TestChannel::State>();
        TestDispatcher recorder(events);
        dispatcher = &recorder;
        TestLegacyService legacy(
            [&](std::string, std::string, CommsChannelIfc*, Message&) { thrown.raise(); });
        Message legacyMessage;
        channel->send(legacyMessage);
        channel->send(legacyMessage);
        start(&legacy, true);
        executor->waitForThreadCompletion();
        EXPECT_TRUE(executor->hasStarted());
        EXPECT_EQ(1, channel->reads);
        EXPECT_EQ((EventList{"point 0"}), events.all());
        EXPECT_EQ((EventList{withClass(thrown.prefix, "ServiceExecutor") +
                             "\n Service: TestLegacyService\n ServiceInterface: Ifc"
                             "\n LibraryName: " +
                             thrown.cause}),
                  reports.reports.all());
        char line[100];
        std::snprintf(line, sizeof line, "2 run(this=%p) - %s caught!",
                      static_cast<void*>(executor.get()), thrown.kind);
        EXPECT_EQ((EventList{line}), log.lines.all());
        executor->shutdown();
        EXPECT_TRUE(executor->hasStarted());
        stop();
        dispatcher = nullptr;
    }
}

TEST_F(ExecutorTest, FailuresOfTheFrameworkEndTheLoopToo) {
    Message badTimer = timerMessage(1);
    badTimer.setData("no integer");
    struct Case {
        const char* name;
        Message message;
        const char* text; ///< in the report
        bool answered;
    };
    const Case cases[]{
        {"timer data", badTimer, "Exception caught in ServiceExecutor: \n ServiceInterface: Ifc",
         false},
        {"worker of priority 5", requestFrom("a", "", 5),
         "Exception caught in ServiceExecutor: vector::_M_range_check", true},
        {"timer of priority -1", timerMessage(1, -1),
         "Exception caught in ServiceExecutor: vector::_M_range_check", false},
        {"initialise", requestFrom("initialise", ""),
         "Exception caught in ServiceExecutor: not today", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ReportCapture reports;
        channel = std::make_shared<TestChannel::State>();
        context.invokers["Ifc/text"] = &invoker;
        invoker.onInitialise = [&](FrameworkContext*) {
            if (c.name == std::string("initialise"))
                throw std::runtime_error("not today");
        };
        executor = std::make_unique<ServiceExecutor>("lib", "make", "Ifc", new TestChannel(channel),
                                                     &context, &pool, nullptr, true);
        channel->send(c.message);
        startThread();
        executor->waitForThreadCompletion();
        EXPECT_TRUE(executor->hasStarted());
        ASSERT_EQ(1u, reports.reports.all().size());
        EXPECT_EQ(0u, reports.reports.all()[0].find(c.text)) << reports.reports.all()[0];
        EXPECT_NE(std::string::npos, reports.reports.all()[0].find("\n LibraryName: lib"));
        EXPECT_TRUE(ExecutorInspector::isClean(*executor));
        EXPECT_EQ(c.answered ? 1u : 0u, channel->answers.all().size())
            << "a request that was accepted and will not run is answered with a failure";
        stop();
    }
}

} // namespace
