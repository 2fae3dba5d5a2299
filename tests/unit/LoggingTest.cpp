#include "framework/Logging.h"
#include "channels/RefusalCounter.h"
#include "framework/ExceptionPublisher.h"
#include "framework/symbolInfo.h"
#include "runtime/reports/ReportLog.h"
#include "tests/unit/Support.h"

#include <cstdlib>
#include <future>
#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

int thresholdOf(const char* component) {
    int level = 1;
    while (level < 6 && loggingOnAppUni(component, level + 1))
        ++level;
    return level;
}

void logText(const char* text) { logAppUni("Pool", "/some/where/Pool.cpp", 3, 17, "%s {}", text); }

TEST(LogLevels, AreThoseOfTheComponentOrElseTheGeneralOne) {
    struct Case {
        const char* levels;
        int other, threadPool, threadPoolSize; ///< thresholds of these components
    };
    for (const Case& c : {Case{"4", 4, 4, 4}, Case{"2,ThreadPool=6", 2, 6, 2},
                          Case{"3,ThreadPoolSize=5,ThreadPool=2", 3, 2, 5}, Case{"6", 6, 6, 6}}) {
        SCOPED_TRACE(c.levels);
        mirel::setLogLevels(c.levels);
        EXPECT_EQ(thresholdOf("Other"), c.other);
        EXPECT_EQ(thresholdOf("ThreadPool"), c.threadPool);
        EXPECT_EQ(thresholdOf("ThreadPoolSize"), c.threadPoolSize);
    }
    mirel::setLogLevels("4,A=6");
    for (const char* const text : {"", "1", "7", "42", "x", "4,", "4,A", "4,A=", "4,A=7", "4,=5",
                                   "A=5", "4 ,A=5", "4,A=5,,B=5", "4,A=5,A=6", "-4"}) {
        EXPECT_THROW(mirel::setLogLevels(text), MirelException) << '"' << text << '"';
        EXPECT_EQ(thresholdOf("A"), 6) << '"' << text << "\" must change nothing";
    }
    mirel::setLogLevels("3");
}

/// Each check runs in a process of its own, which reads the environment again.
TEST(LogEnvironmentDeathTest, IsReadWhenTheProcessStarts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("MIREL_LOG", "5,Pool=2", 1);
    EXPECT_EXIT(std::exit(thresholdOf("Other")), testing::ExitedWithCode(5), "^$");
    setenv("MIREL_LOG", "loud", 1);
    EXPECT_EXIT(std::exit(thresholdOf("Other")), testing::ExitedWithCode(3),
                "MIREL_LOG.*\"loud\".*from 2 .* to 6 .*Component=level");
    unsetenv("MIREL_LOG");
}

TEST(LogOutput, StandardErrorGetsOneReadableLineThatCannotBeForged) {
    testing::internal::CaptureStderr();
    logText("a\x1b[2J\r\x7f\tb\n2024-01-01 forged");
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                MatchesRegex("20..-..-.. ..:..:..\\.... warning \\[.*\\] Pool Pool.cpp:17: "
                             "a\\\\x1b.2J\\\\x0d\\\\x7f\tb\n"
                             "    2024-01-01 forged \\{\\}\n"));
}

TEST(LogSink, GetsTheTextWholeAndRaw) {
    const LogCapture log;
    // 508 and 509: what just fits the formatting buffer, and what does not.
    for (const std::size_t length : {508U, 509U, 100000U}) {
        const std::string text = "\x1b\n" + std::string(length - 2, 'x');
        logText(text.c_str());
        EXPECT_EQ(log.lines.all().back(), "3 " + text + " {}");
    }
}

TEST(RefusalCounter, CountsAllAndLogsTheFirst) {
    const LogCapture log;
    mirel::RefusalCounter refusals("Channel", "front-desk");
    for (int i = 0; i < 1000; ++i)
        refusals.refuse("it is too big");
    EXPECT_EQ(refusals.count(), 1000U);
    EXPECT_THAT(log.lines.all(),
                ElementsAre(MatchesRegex("3 front-desk: 1 refused.* it is too big")));
}

void publish(const std::string& text) {
    MirelException report(text, "Here.cpp", 1);
    ExceptionPublisher::instance()->publishException(report);
}

TEST(Reports, AreDescribedWithTheirCauses) {
    MirelException outer("", "", 0);
    {
        MirelException inner("disk full", "Disk.cpp", 3);
        MirelException middle("cannot save", "Save.cpp", 2, inner);
        outer = MirelException("request failed", "Run.cpp", 1, middle);
    }
    const MirelException copy(outer);
    EXPECT_EQ(mirel::describe(copy), "request failed (Run.cpp:1)\n caused by: cannot save "
                                     "(Save.cpp:2)\n caused by: disk full (Disk.cpp:3)");
}

struct NotAnException {};

TEST(Reports, AreCountedLoggedAndShownToEverySubscriber) {
    LogCapture log;
    Events seen;
    const unsigned long before = mirel::publishedReports();
    const auto throwing =
        mirel::subscribeToReports([](const MirelException&) { throw NotAnException(); });
    const auto last = mirel::subscribeToReports(
        [&](const MirelException& report) { seen.add(report.message()); });

    publish("first");
    mirel::writeReportsToLog(false);
    publish("second");
    mirel::writeReportsToLog(true);
    log.throwOn("");
    EXPECT_NO_THROW(publish("third"));

    EXPECT_THAT(seen.all(), ElementsAre("first", "second", "third"));
    EXPECT_EQ(mirel::publishedReports(), before + 3);
    EXPECT_THAT(log.lines.all(),
                ElementsAre("2 first (Here.cpp:1)",
                            HasSubstr("subscriber to failure reports threw"), // for the first
                            HasSubstr("NotAnException")));                    // for the second
}

TEST(ReportLog, WritesAFewOfAKindAndCountsTheRest) {
    LogCapture log;
    const auto start = mirel::ReportLog::Clock::time_point() + std::chrono::hours(1);
    const auto writeAt = [&](mirel::ReportLog& reports, const std::string& text, int seconds) {
        reports.write(MirelException(text, "place.cpp", 1), start + std::chrono::seconds(seconds));
    };
    {
        mirel::ReportLog reports(0);
        for (int i = 0; i < 20; ++i)
            writeAt(reports, "no account " + std::to_string(i), 0);
        EXPECT_EQ(log.with("no account").size(), 5U);
        writeAt(reports, "another failure", 9);
        EXPECT_EQ(log.with("more of this kind").size(), 0U);
        writeAt(reports, "another failure", 10);
        EXPECT_EQ(log.with("2 15 more of this kind: no account #").size(), 1U);
        writeAt(reports, "no account 20", 10);
        writeAt(reports, "no account 21", 10);
        EXPECT_EQ(log.with("no account 20").size(), 1U);
        EXPECT_EQ(log.with("no account 21").size(), 0U);

        log.lines.clear();
        for (char first = 'a'; first <= 'z'; ++first) // however many kinds there are
            for (char second = 'a'; second <= 'z'; ++second)
                for (int i = 0; i < 10; ++i)
                    writeAt(reports, std::string("kind ") + first + second, 11);
        EXPECT_LE(log.with("kind ").size(), 200U * 5);
    }
    EXPECT_EQ(log.with("more of this kind: failures of other kinds").size(), 1U) << "at the end";
}

TEST(Reports, SubscribersMayEndOthersAndPublish) {
    const LogCapture log;
    Events seen;
    mirel::ReportSubscription doomed;
    const auto busy = mirel::subscribeToReports([&](const MirelException& report) {
        seen.add(report.message());
        doomed = mirel::ReportSubscription();
        if (report.message() == "outer")
            publish("inner");
    });
    doomed = mirel::subscribeToReports([&](const MirelException&) { seen.add("doomed"); });
    publish("outer");
    EXPECT_THAT(seen.all(), ElementsAre("outer", "inner"));
}

/// A subscriber or sink that stays inside until it is let go.
struct Visit {
    Gate inside, letGo;
    template <typename Argument>
    void operator()(const Argument&) {
        inside.open();
        letGo.pass();
    }
    void expectToBeWaitedForBy(const std::function<void()>& end) {
        auto entering = std::async(std::launch::async, [] { publish("report"); });
        inside.pass();
        auto ending = std::async(std::launch::async, end);
        EXPECT_EQ(ending.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
        letGo.open();
    }
};

TEST(Reports, EndOfASubscriptionOrSinkWaitsForThoseInside) {
    const LogCapture log;
    Visit subscriber;
    auto subscription = mirel::subscribeToReports(std::ref(subscriber));
    subscriber.expectToBeWaitedForBy([&] { subscription = {}; });
    Visit sink;
    auto former = mirel::setLogSink(std::ref(sink));
    sink.expectToBeWaitedForBy([&] { mirel::setLogSink(former); });
}

TEST(SymbolInfo, DemanglesNamesAndLeavesOtherTextAlone) {
    const std::pair<const char*, const char*> cases[] = {
        {"St13runtime_error", "std::runtime_error"},
        {"_ZN5mirel12MessageQueue5closeEv", "mirel::MessageQueue::close()"},
        {"Pc", "Pc"},
        {"_ZN5broken", "_ZN5broken"},
    };
    for (const auto& [symbol, readable] : cases) {
        std::string name = symbol;
        EXPECT_EQ(&symbolInfo::demangleSymbol(name), &name);
        EXPECT_EQ(name, readable);
    }
}

} // namespace
