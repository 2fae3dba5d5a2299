#include "framework/Logging.h"

#include "framework/MirelException.h"
#include "standalone/LogControl.h"
#include "standalone/RefusalCounter.h"
#include "tests/unit/CapturedLog.h"

#include <chrono>
#include <cstdlib>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

class LogLevels : public testing::Test {
protected:
    ~LogLevels() override { mirel::setLogLevels("3"); }
};

TEST_F(LogLevels, ThresholdsAreThoseOfTheComponentOrElseTheGeneralOne) {
    struct Case {
        const char* levels;
        int threshold;      ///< of any other component
        int threadPool;     ///< of the component "ThreadPool"
        int threadPoolSize; ///< of the component "ThreadPoolSize"
    };
    const Case cases[] = {
        {"4", 4, 4, 4},
        {"2,ThreadPool=6", 2, 6, 2},
        {"5,ThreadPool=2", 5, 2, 5},
        {"3,ThreadPoolSize=5,ThreadPool=4", 3, 4, 5},
        {"6", 6, 6, 6},
        {"3", 3, 3, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.levels);
        mirel::setLogLevels(c.levels);
        for (int level = 2; level <= 6; ++level) {
            EXPECT_EQ(loggingOnAppUni("Other", level) != 0, level <= c.threshold) << level;
            EXPECT_EQ(loggingOnAppUni("ThreadPool", level) != 0, level <= c.threadPool) << level;
            EXPECT_EQ(loggingOnAppUni("ThreadPoolSize", level) != 0, level <= c.threadPoolSize)
                << level;
        }
    }
}

TEST_F(LogLevels, InvalidTextChangesNothing) {
    mirel::setLogLevels("4,A=6");
    for (const char* const text : {"", "1", "7", "42", "x", "4,", "4,A", "4,A=", "4,A=7", "4,=5",
                                   "A=5", "4 ,A=5", "4,A=5,,B=5", "4,A=5,A=6", "-4"}) {
        EXPECT_THROW(mirel::setLogLevels(text), MirelException) << '"' << text << '"';
        EXPECT_TRUE(loggingOnAppUni("A", 6)) << '"' << text << '"';
        EXPECT_FALSE(loggingOnAppUni("B", 5)) << '"' << text << '"';
    }
}

/// Each check runs in a process of its own, which reads the environment again.
TEST(LogEnvironmentDeathTest, IsReadWhenTheProcessStarts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto exitWithThreshold = [](const char* component) {
        int threshold = 0;
        for (int level = 2; level <= 6; ++level)
            threshold = loggingOnAppUni(component, level) ? level : threshold;
        std::exit(threshold);
    };
    setenv("MIREL_LOG", "5,Pool=2", 1);
    EXPECT_EXIT(exitWithThreshold("Other"), testing::ExitedWithCode(5), "^$");
    EXPECT_EXIT(exitWithThreshold("Pool"), testing::ExitedWithCode(2), "^$");
    setenv("MIREL_LOG", "loud", 1);
    EXPECT_EXIT(exitWithThreshold("Other"), testing::ExitedWithCode(3),
                "MIREL_LOG.*\"loud\".*from 2 .* to 6 .*Component=level");
    unsetenv("MIREL_LOG");
    EXPECT_EXIT(exitWithThreshold("Other"), testing::ExitedWithCode(3), "^$");
}

TEST(LogOutput, StandardErrorGetsOneReadableLineThatCannotBeForged) {
    testing::internal::CaptureStderr();
    logAppUni("Pool", "/some/where/Pool.cpp", 3, 17, "channel %s: {} %d%%",
              "a\x1b[2J\r\x7f\tb\n2024-01-01 forged", 5);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                MatchesRegex("20..-..-.. ..:..:..\\.... warning \\[.*\\] Pool Pool.cpp:17: "
                             "channel a\\\\x1b.2J\\\\x0d\\\\x7f\tb\n"
                             "    2024-01-01 forged: \\{\\} 5%\n"));
}

TEST(LogOutput, TextOfAnyLengthIsWhole) {
    const CapturedLog log;
    for (const std::size_t length : {0U, 511U, 512U, 513U, 100000U}) {
        const std::string text(length, 'x');
        logAppUni("Pool", "Pool.cpp", 2, 1, "%s!", text.c_str());
        EXPECT_EQ(log.lines().back(), "2 Pool: " + text + "!");
    }
}

TEST(LogSink, GetsTheRawTextWhateverTheLevel) {
    const CapturedLog log;
    logAppUni("Pool", "Pool.cpp", 6, 1, "a\x1b\n%s", "b");
    EXPECT_THAT(log.lines(), ElementsAre("6 Pool: a\x1b\nb"));
}

TEST(LogSink, WhatItThrowsReachesWhoeverLogs) {
    mirel::LogSink former = mirel::setLogSink([](const mirel::LogLine&) { throw 42; });
    EXPECT_THROW(logAppUni("Pool", "Pool.cpp", 2, 1, "text"), int);
    // That it threw must not keep it from being replaced.
    mirel::setLogSink(std::move(former));
}

TEST(LogSink, ReplacingItWaitsForThoseInside) {
    std::promise<void> inside;
    std::promise<void> letGo;
    std::future<void> mayGo = letGo.get_future();
    mirel::LogSink former = mirel::setLogSink([&](const mirel::LogLine&) {
        inside.set_value();
        mayGo.wait();
    });
    auto logging =
        std::async(std::launch::async, [] { logAppUni("Pool", "Pool.cpp", 2, 1, "text"); });
    inside.get_future().wait();
    auto replacing =
        std::async(std::launch::async, [&] { return mirel::setLogSink(std::move(former)); });
    EXPECT_EQ(replacing.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    letGo.set_value();
    EXPECT_TRUE(replacing.get()) << "the former sink is handed back";
    logging.get();
}

TEST(RefusalCounter, CountsAllAndLogsTheFirst) {
    const CapturedLog log;
    mirel::RefusalCounter refusals("Channel", "front-desk");
    for (int i = 0; i < 1000; ++i)
        refusals.refuse("it is too big");
    EXPECT_EQ(refusals.count(), 1000U);
    EXPECT_THAT(log.lines(),
                ElementsAre(testing::AllOf(HasSubstr("3 Channel: front-desk: 1 refused"),
                                           HasSubstr("it is too big"))));
}

} // namespace
