#include "standalone/AnswerSink.h"
#include "standalone/ZmqChannel.h"
#include "tests/system/Process.h"
#include "tests/system/TemporaryFolder.h"

#include "framework/CommsChannelDataContainerMessage.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

namespace mirel {
namespace {

/// A service of the test's own, one that may do what no executor would.
class CallTest : public testing::Test {
protected:
    CallTest() {
        ZmqChannelOptions options;
        options.url = m_url;
        m_channel = std::make_unique<ZmqChannel>(options);
    }
    ~CallTest() override { stop(); }

    /// Calls `handle` for each message, on a thread of its own, until `stop`.
    void serve(std::function<void(CommsChannelDataContainerMessage&)> handle) {
        m_service = std::thread([this, handle = std::move(handle)] {
            for (CommsChannelDataContainerMessage msg; m_channel->readMessage(msg);)
                handle(msg);
        });
    }

    void stop() {
        m_channel->close();
        if (m_service.joinable())
            m_service.join();
    }

    void answer(CommsChannelDataContainerMessage& msg) {
        m_channel->answerSink()->answer(
            {true, msg.requestId(), msg.sourceChannel(), msg.callbackChannel(), msg.getData()});
    }

    Process::Result call(std::vector<std::string> arguments, const std::string& input = "") const {
        arguments.insert(arguments.begin(), {MIREL_CALL, "--channel", m_url});
        return Process::run(arguments, input);
    }

    Process::Result load(const std::vector<std::string>& more) const {
        std::vector<std::string> arguments{"--load",     "100",  "--interface", "I",
                                           "--protocol", "text", "--data",      "{source} {n}"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return call(arguments);
    }

    const TemporaryFolder m_folder;
    const std::string m_url = "ipc://" + m_folder.path("service");
    std::unique_ptr<ZmqChannel> m_channel;
    std::thread m_service;
};

TEST_F(CallTest, loadFillsInSourcesAndNumbersInTurn) {
    std::vector<std::string> seen;
    std::vector<int> priorities;
    serve([&](CommsChannelDataContainerMessage& msg) {
        seen.push_back(msg.getData());
        priorities.push_back(msg.priority());
        answer(msg);
    });
    const auto result = load({"--source", "s", "--sources", "3", "--priorities", "0,2"});
    stop();
    EXPECT_EQ(result.status, 0) << result.output << result.errors;
    EXPECT_NE(result.output.find("in order:   yes"), std::string::npos) << result.output;
    ASSERT_EQ(seen.size(), 100U);
    EXPECT_EQ(seen[0], "s-1 1");
    EXPECT_EQ(seen[2], "s-3 1");
    EXPECT_EQ(seen[3], "s-1 2");
    EXPECT_EQ(seen[99], "s-1 34");
    EXPECT_EQ(priorities[2], 0);
    EXPECT_EQ(priorities[3], 2);
}

TEST_F(CallTest, loadFindsOutThatAnswersWereOvertaken) {
    std::vector<CommsChannelDataContainerMessage> held;
    serve([&](CommsChannelDataContainerMessage& msg) {
        held.push_back(msg);
        if (held.size() % 2 == 0) {
            answer(held[held.size() - 1]);
            answer(held[held.size() - 2]);
        }
    });
    const auto result = load({});
    stop();
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("in order:   no (50 overtaken"), std::string::npos)
        << result.output;
}

TEST_F(CallTest, loadFindsOutThatAnswersWereDoubled) {
    serve([&](CommsChannelDataContainerMessage& msg) {
        answer(msg);
        answer(msg);
    });
    const auto result = load({"--window", "1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("in order:   no (0 overtaken"), std::string::npos)
        << result.output;
}

TEST_F(CallTest, loadCountsWhatIsNotAnswered) {
    serve([&](CommsChannelDataContainerMessage& msg) {
        if (msg.requestId() % 10 != 0)
            answer(msg);
    });
    const auto result = load({"--deadline", "500"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("unanswered: 10"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("in order:   yes"), std::string::npos) << result.output;
}

TEST_F(CallTest, sendsAFileAndPrintsTheAnswers) {
    serve([&](CommsChannelDataContainerMessage& msg) {
        if (msg.msgType() != 6 && !msg.interface().empty())
            answer(msg);
    });
    const std::string lines =
        R"({"kind": "request", "source": "a", "interface": "I", "protocol": "p", "data": "\u00e4"})"
        "\n\n"
        R"({"kind": "timer", "source": "t", "timerId": -1, "priority": 0})"
        "\n"
        R"({"kind": "legacy", "data": "x"})"
        "\n";
    std::ofstream(m_folder.path("requests")) << lines;
    for (const auto& result : {call({"--input", "-", "--source", "l"}, lines),
                               call({"--input", m_folder.path("requests"), "--source", "l"})}) {
        EXPECT_EQ(result.status, 0) << result.errors;
        for (const char* line : {"a: \u00e4\n", "t: sent\n", "l: sent\n"})
            EXPECT_NE(result.output.find(line), std::string::npos) << result.output;
    }
}

struct BadInput {
    const char* name;
    std::string line;
    const char* says;

    friend void PrintTo(const BadInput& value, std::ostream* out) { *out << value.name; }
};

class BadInputTest : public CallTest, public testing::WithParamInterface<BadInput> {};

TEST_P(BadInputTest, namesTheLineAndSendsNothing) {
    const auto result = call({"--input", "-"}, R"({"kind": "timer", "timerId": 1})"
                                               "\n" +
                                                   GetParam().line + "\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.errors.find("standard input line 2: "), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find(GetParam().says), std::string::npos) << result.errors;
}

INSTANTIATE_TEST_SUITE_P(
    All, BadInputTest,
    testing::Values(
        BadInput{"notJson", "{\"kind\"", "not JSON"},
        BadInput{"notUtf8", "{\"kind\": \"\xff\"}", "not JSON"},
        BadInput{"noObject", "[1]", "not a JSON object"},
        BadInput{"noKind", R"({"timerId": 1})", "kind is missing"},
        BadInput{"otherKind", R"({"kind": "reply"})", "request, timer or legacy"},
        BadInput{"misspelt", R"({"kind": "timer", "timerID": 1, "timerId": 1})", "timerID"},
        BadInput{"otherKindsField", R"({"kind": "legacy", "timerId": 1, "data": ""})", "timerId"},
        BadInput{"priority", R"({"kind": "legacy", "data": "", "priority": 3})", "from 0 to 2"},
        BadInput{"fraction", R"({"kind": "legacy", "data": "", "priority": 0.5})", "integer"},
        BadInput{"timerTooLarge", R"({"kind": "timer", "timerId": 2147483648})", "timerId"},
        BadInput{"timerFarTooLarge", R"({"kind": "timer", "timerId": 18446744073709551615})",
                 "timerId"},
        BadInput{"sourceIsANumber", R"({"kind": "legacy", "data": "", "source": 1})", "source"},
        BadInput{"emptyInterface",
                 R"({"kind": "request", "interface": "", "protocol": "p", "data": ""})",
                 "interface"},
        BadInput{"tooLarge", R"({"kind": "legacy", "data": ")" + std::string(1100000, 'x') + "\"}",
                 "larger than 1048576"}),
    [](const auto& param) { return param.param.name; });

struct BadUsage {
    const char* name;
    std::vector<std::string> arguments;
    const char* says;

    friend void PrintTo(const BadUsage& value, std::ostream* out) { *out << value.name; }
};

class BadUsageTest : public testing::TestWithParam<BadUsage> {};

TEST_P(BadUsageTest, endsWithTwoAndOneLine) {
    std::vector<std::string> command{MIREL_CALL};
    command.insert(command.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    const auto result = Process::run(command);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.errors.find(GetParam().says), std::string::npos) << result.errors;
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
}

const char* const kNobody = "ipc:///nonexistent/service";

INSTANTIATE_TEST_SUITE_P(
    All, BadUsageTest,
    testing::Values(
        BadUsage{"noChannel", {"--kind", "timer"}, "--channel"},
        BadUsage{"noInterface", {"--channel", kNobody, "--data", "x"}, "--interface"},
        BadUsage{"priority", {"--channel", kNobody, "--priority", "3"}, "--priority"},
        BadUsage{
            "loadOfTimers", {"--channel", kNobody, "--kind", "timer", "--load", "1"}, "--load"},
        BadUsage{"sourcesWithoutLoad", {"--channel", kNobody, "--sources", "2"}, "--load"},
        BadUsage{"noFile", {"--channel", kNobody, "--input", "/nonexistent/file"}, "No such file"},
        BadUsage{"address", {"--channel", "service", "--kind", "timer"}, "cannot connect"},
        BadUsage{"nobodyListens",
                 {"--channel", kNobody, "--kind", "timer", "--deadline", "50"},
                 "no service answers at ipc:///nonexistent/service within 50 ms"}),
    [](const auto& param) { return param.param.name; });

} // namespace
} // namespace mirel
