#include "tests/system/ProgramsFixture.h"

#include <functional>
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
