#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/ExceptionPublisher.h"
#include "framework/InvokeInterceptorContext.h"
#include "framework/MirelException.h"
#include "framework/symbolInfo.h"
#include "standalone/InterceptorList.h"
#include "standalone/Reports.h"
#include "tests/unit/CapturedLog.h"

#include <any>
#include <chrono>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

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
    EXPECT_EQ(mirel::describe(outer), "request failed (Run.cpp:1)\n caused by: cannot save "
                                      "(Save.cpp:2)\n caused by: disk full (Disk.cpp:3)");
    const MirelException copy(outer);
    EXPECT_EQ(mirel::describe(copy), mirel::describe(outer));
    EXPECT_STREQ(copy.what(), "request failed");
}

struct NotAnException {};

TEST(Reports, AreCountedLoggedAndShownToEverySubscriber) {
    const CapturedLog log;
    const unsigned long before = mirel::publishedReports();
    std::vector<std::string> seen;
    const auto throwing =
        mirel::subscribeToReports([](const MirelException&) { throw std::runtime_error("oops"); });
    const auto throwingAnything =
        mirel::subscribeToReports([](const MirelException&) { throw NotAnException(); });
    const auto last = mirel::subscribeToReports(
        [&](const MirelException& report) { seen.push_back(report.message()); });

    publish("first");
    mirel::writeReportsToLog(false);
    publish("second");
    mirel::writeReportsToLog(true);

    EXPECT_THAT(seen, ElementsAre("first", "second"));
    EXPECT_EQ(mirel::publishedReports(), before + 2);
    EXPECT_THAT(
        log.lines(),
        ElementsAre("2 ExceptionPublisher: first (Here.cpp:1)",
                    HasSubstr("subscriber to failure reports threw std::runtime_error: oops"),
                    HasSubstr("NotAnException"), HasSubstr("runtime_error"),
                    HasSubstr("NotAnException")));
}

TEST(Reports, GetThroughAlthoughTheLogFails) {
    mirel::LogSink former = mirel::setLogSink([](const mirel::LogLine&) { throw 42; });
    int seen = 0;
    const auto throwing = mirel::subscribeToReports([](const MirelException&) { throw 43; });
    const auto counting = mirel::subscribeToReports([&](const MirelException&) { ++seen; });
    EXPECT_NO_THROW(publish("report"));
    EXPECT_EQ(seen, 1);
    mirel::setLogSink(std::move(former));
}

TEST(Reports, SubscribersMaySubscribeEndOthersAndPublish) {
    const CapturedLog log;
    std::vector<std::string> seen;
    mirel::ReportSubscription doomed;
    mirel::ReportSubscription added;
    const auto busy = mirel::subscribeToReports([&](const MirelException& report) {
        seen.push_back("busy " + report.message());
        if (report.message() != "outer")
            return;
        doomed = mirel::ReportSubscription();
        added = mirel::subscribeToReports(
            [&](const MirelException& inner) { seen.push_back("added " + inner.message()); });
        publish("inner");
    });
    doomed = mirel::subscribeToReports([&](const MirelException&) { seen.push_back("doomed"); });
    publish("outer");
    EXPECT_THAT(seen, ElementsAre("busy outer", "busy inner", "added inner"));
}

TEST(Reports, EndOfASubscriptionWaitsForThoseInside) {
    const CapturedLog log;
    std::promise<void> inside;
    std::promise<void> letGo;
    auto subscription = std::make_optional(
        mirel::subscribeToReports([&, mayGo = letGo.get_future().share()](const MirelException&) {
            inside.set_value();
            mayGo.wait();
        }));
    auto publishing = std::async(std::launch::async, [] { publish("report"); });
    inside.get_future().wait();
    auto ending = std::async(std::launch::async, [&] { subscription.reset(); });
    EXPECT_EQ(ending.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    letGo.set_value();
    ending.get();
    publishing.get();
}

TEST(SymbolInfo, DemanglesNamesAndLeavesOtherTextAlone) {
    const std::pair<const char*, const char*> cases[] = {
        {"14MirelException", "MirelException"},
        {"St13runtime_error", "std::runtime_error"},
        {"PKc", "char const*"},
        {"_ZN5mirel12MessageQueue5closeEv", "mirel::MessageQueue::close()"},
        {"", ""},
        {"i", "i"},
        {"Pc", "Pc"},
        {"a text with blanks", "a text with blanks"},
        {"std::runtime_error", "std::runtime_error"},
        {"_ZN5broken", "_ZN5broken"},
    };
    for (const auto& [symbol, readable] : cases) {
        std::string name = symbol;
        EXPECT_EQ(&symbolInfo::demangleSymbol(name), &name);
        EXPECT_EQ(name, readable);
    }
    std::string name = typeid(std::map<int, std::vector<bool>>).name();
    EXPECT_THAT(symbolInfo::demangleSymbol(name), HasSubstr("std::map<int, std::vector<bool"));
}

TEST(Interceptors, ShowTheCallInOppositeOrdersBeforeAndAfter) {
    mirel::InterceptorList interceptors;
    std::vector<std::string> seen;
    for (const char* const name : {"a", "b"})
        interceptors.add([&seen, name](InvokeInterceptorContext& context) {
            std::any& note = context.note(name);
            if (context.interceptionPoint() == InvokeInterceptorContext::eBeforeInvocation)
                note = std::string(name) + " kept this";
            seen.push_back(std::any_cast<std::string>(note));
        });

    InvokeInterceptorContext before(InvokeInterceptorContext::eBeforeInvocation, 5, nullptr);
    interceptors.dispatch(&before);
    InvokeInterceptorContext after(before);
    after.setInterceptionPoint(InvokeInterceptorContext::eAfterInvocation);
    interceptors.dispatch(&after);
    EXPECT_THAT(seen, ElementsAre("a kept this", "b kept this", "b kept this", "a kept this"));
    EXPECT_EQ(after.dataLength(), 5);
    EXPECT_FALSE(after.note(&seen).has_value());

    CommsChannelDataContainerMessage msg;
    const InvokeInterceptorContext legacy(InvokeInterceptorContext::eBeforeInvocation, msg);
    EXPECT_EQ(legacy.message(), &msg);
}

} // namespace
