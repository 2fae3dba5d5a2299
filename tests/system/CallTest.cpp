#include "tests/system/ProgramsFixture.h"

#include <cstdio>
#include <functional>
#include <set>
#include <thread>

namespace mirel {
namespace {

/// The test is the service, so it can answer wrongly, which an executor would not do.
class CallTest : public ProgramsFixture {
protected:
    CallTest() { open(); }
    ~CallTest() override { stop(); }

    /// Calls `handle` for each message, on a thread of its own, until `stop`.
    void serve(std::function<void(CommsChannelDataContainerMessage&)> handle) {
        m_service = std::thread([this, handle = std::move(handle)] {
            for (CommsChannelDataContainerMessage msg; read(msg);)
                handle(msg);
        });
    }

    void stop() {
        m_channel->close();
        if (m_service.joinable())
            m_service.join();
    }

    Process::Result load(const Arguments& more) const {
        return call(joined(
            {"--load", "100", "--interface", "I", "--protocol", "text", "--data", "{source} {n}"},
            more));
    }

    std::thread m_service;
};

TEST_F(CallTest, WhoNamesNoSourceWaitsForNobodyElse) {
    std::set<std::string> sources;
    serve([&](CommsChannelDataContainerMessage& msg) {
        sources.insert(msg.sourceChannel());
        answer(msg, "");
    });
    for (int i = 0; i < 2; ++i) {
        const auto result = call({"--interface", "I", "--protocol", "text"});
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_TRUE(contains(result.output, "mirel-call-"));
    }
    stop();
    EXPECT_EQ(sources.size(), 2U);
}

TEST_F(CallTest, ALoadFillsInSourcesAndNumbersInTurn) {
    std::vector<std::string> seen;
    serve([&](CommsChannelDataContainerMessage& msg) {
        seen.push_back(msg.getData() + " at " + std::to_string(msg.priority()));
        answer(msg, "");
    });
    const auto result = load({"--source", "s", "--sources", "3", "--priorities", "0,2"});
    stop();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(contains(result.output, "in order:   yes"));
    ASSERT_EQ(seen.size(), 100U);
    EXPECT_EQ(seen[0], "s-1 1 at 0");
    EXPECT_EQ(seen[2], "s-3 1 at 0");
    EXPECT_EQ(seen[3], "s-1 2 at 2");
    EXPECT_EQ(seen[99], "s-1 34 at 2");
}

std::string lineWith(const std::string& text, const std::string& begin) {
    const std::size_t at = text.find('\n' + begin);
    return at == std::string::npos ? "" : text.substr(at + 1, text.find('\n', at + 1) - at - 1);
}

TEST_F(CallTest, ALoadComparesThePrioritiesThatItUses) {
    std::vector<CommsChannelDataContainerMessage> low; // answered when all others have been
    int left = 100;
    serve([&](CommsChannelDataContainerMessage& msg) {
        if (msg.priority() == ePriorityLow)
            low.push_back(msg);
        else
            answer(msg, "");
        if (--left == 0)
            for (auto& each : low)
                answer(each, "");
    });
    const std::string report = load({"--priorities", "0,2"}).output;
    const std::string reportOfOne = load({"--priorities", "2,2"}).output;
    stop();
    long p50[3]{};
    long max[3]{};
    const char* const labels[] = {"latency:    ", "priority 0: ", "priority 2: "};
    for (std::size_t i = 0; i < 3; ++i) {
        const std::string line = lineWith(report, labels[i]);
        const std::string format = labels[i] + std::string("p50 %ld us, p99 %*d us, max %ld us");
        EXPECT_EQ(std::sscanf(line.c_str(), format.c_str(), &p50[i], &max[i]), 2) << report;
        EXPECT_EQ(line.find(", p99"), lineWith(report, labels[0]).find(", p99")) << report;
    }
    EXPECT_LT(p50[2], p50[1]) << report;
    EXPECT_LT(max[2], max[1]) << report;
    EXPECT_EQ(max[0], max[1]) << report;
    EXPECT_EQ(lineWith(report, "priority 1"), "") << report;
    EXPECT_EQ(lineWith(reportOfOne, "priority"), "") << reportOfOne;
}

TEST_F(CallTest, ALoadFindsOutWhatIsWrongWithItsAnswers) {
    CommsChannelDataContainerMessage held;
    serve([&](CommsChannelDataContainerMessage& msg) {
        const std::string fault = msg.sourceChannel();
        if (fault == "overtaken-1" && msg.requestId() % 2 != 0) {
            held = msg;
        } else if (fault != "unanswered-1" || msg.requestId() % 10 != 0) {
            answer(msg, "");
            if (fault != "unanswered-1")
                answerOnceMore(fault == "doubled-1" ? msg : held, "");
        }
    });
    const std::tuple<const char*, const char*, const char*> faults[] = {
        {"overtaken", "5000", "unanswered: 0\nin order:   no (50 overtaken, 0 "},
        {"doubled", "5000", "unanswered: 0\nin order:   no (0 overtaken, "},
        {"unanswered", "1000", "unanswered: 10\nin order:   yes"},
    };
    for (const auto& [fault, deadline, says] : faults) {
        const auto result = load({"--source", fault, "--deadline", deadline});
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(contains(result.output, says));
    }
    stop();
}

TEST_F(CallTest, ABadLineIsNamedAndNothingIsSent) {
    const std::pair<std::string, const char*> bad[] = {
        {R"({"kind")", "not JSON"},
        {"[1]", "not a JSON object"},
        {R"({"timerId": 1})", "kind is missing"},
        {R"({"kind": "reply"})", "request, timer or legacy"},
        {R"({"kind": "timer", "timerID": 1, "timerId": 1})", "timerID"},
        {R"({"kind": "legacy", "data": "", "priority": 3})", "from 0 to 2"},
        {R"({"kind": "timer", "timerId": 2147483648})", "timerId"},
        {R"({"kind": "timer", "timerId": 18446744073709551615})", "timerId"},
        {R"({"kind": "legacy", "data": "", "source": 1})", "source"},
        {R"({"kind": "request", "interface": "", "protocol": "p", "data": ""})", "interface"},
        {R"({"kind": "legacy", "data": ")" + std::string(1100000, 'x') + "\"}",
         "larger than 1048576"},
    };
    for (const auto& [line, why] : bad) {
        SCOPED_TRACE(why);
        const std::string good = R"({"kind": "timer", "timerId": 1})";
        const auto result = call({"--input", "-"}, good + "\n" + line + "\n");
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_TRUE(contains(result.errors, "mirel-call: standard input line 2: "));
        EXPECT_TRUE(contains(result.errors, why));
    }
}

} // namespace
} // namespace mirel
