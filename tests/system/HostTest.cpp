#include "tests/system/Process.h"
#include "tests/system/TemporaryFolder.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>

namespace mirel {
namespace {

using Arguments = std::vector<std::string>;

Arguments command(const char* program, const Arguments& arguments) {
    Arguments result{program};
    result.insert(result.end(), arguments.begin(), arguments.end());
    return result;
}

Arguments hostOf(const std::string& library, const std::string& creator, const std::string& url,
                 const Arguments& more = {}) {
    Arguments result{MIREL_HOST,    "--library", library,     "--creator", creator,
                     "--interface", "Ledger",    "--channel", url};
    result.insert(result.end(), more.begin(), more.end());
    return result;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class HostTest : public testing::Test {
protected:
    Process::Result call(const Arguments& arguments) const {
        Arguments all{"--channel", m_url};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return Process::run(command(MIREL_CALL, all));
    }

    Process::Result ask(const std::string& data, const std::string& interface = "Ledger") const {
        return call({"--interface", interface, "--protocol", "text", "--data", data});
    }

    const TemporaryFolder m_folder;
    const std::string m_url = "ipc://" + m_folder.path("service");
};

TEST_F(HostTest, servesUntilSigtermAndSumsUp) {
    for (const Arguments& mode : {Arguments{}, Arguments{"--single-threaded"}}) {
        Process host(hostOf(LEDGER_LIBRARY, "createLedger", m_url, mode));
        ASSERT_TRUE(host.waitForLine("serving Ledger"));
        EXPECT_EQ(ask("deposit anna 5").output, "mirel-call: anna 5\n");
        EXPECT_EQ(ask("withdraw anna 6").status, 1);
        EXPECT_EQ(call({"--kind", "legacy", "--data", "note"}).status, 0);
        EXPECT_EQ(call({"--kind", "timer", "--timer-id", "7"}).status, 0);
        // What is not answered has been read by the time an answer to a later message comes.
        EXPECT_EQ(ask("journal").output, "mirel-call: mirel-call: note\n");
        host.signal(SIGTERM);
        const auto result = host.finish();
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_TRUE(contains(result.output, "3 requests, 1 timer events, 1 legacy; 0 refused"))
            << result.output;
        EXPECT_TRUE(contains(result.output, "2 done, 1 failed, 0 not answered")) << result.output;
        EXPECT_TRUE(contains(result.output, "1 published")) << result.output;
        EXPECT_TRUE(contains(result.output, mode.empty() ? "1 at most" : "0 at most"))
            << result.output;
        EXPECT_TRUE(contains(result.errors, "day 7 ends: 1 accounts, 5 in total")) << result.errors;
    }
}

TEST_F(HostTest, leavesAPathWhereAnotherHostServes) {
    Process first(hostOf(LEDGER_LIBRARY, "createLedger", m_url));
    ASSERT_TRUE(first.waitForLine("serving"));
    const auto second = Process::run(hostOf(LEDGER_LIBRARY, "createLedger", m_url));
    EXPECT_EQ(second.status, 2);
    EXPECT_TRUE(contains(second.errors, "another process listens")) << second.errors;
    EXPECT_EQ(ask("deposit anna 5").status, 0);
    first.signal(SIGINT);
    EXPECT_EQ(first.finish().status, 0);
}

TEST_F(HostTest, aHostThatWasKilledDoesNotStandInTheWay) {
    Process first(hostOf(LEDGER_LIBRARY, "createLedger", m_url));
    ASSERT_TRUE(first.waitForLine("serving"));
    first.signal(SIGKILL);
    EXPECT_EQ(first.finish().status, -SIGKILL);
    Process second(hostOf(LEDGER_LIBRARY, "createLedger", m_url));
    EXPECT_TRUE(second.waitForLine("serving"));
}

TEST_F(HostTest, countsRequestsThatNobodyAnswers) {
    Process host(hostOf(LEDGER_LIBRARY, "createLedger", m_url));
    ASSERT_TRUE(host.waitForLine("serving"));
    const auto unknown = call({"--interface", "Nobody", "--protocol", "text", "--deadline", "300"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.output, "mirel-call: unanswered after 300 ms\n");
    host.signal(SIGTERM);
    const auto result = host.finish();
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.output, "0 done, 0 failed, 1 not answered")) << result.output;
}

struct FailingLoop {
    const char* name;
    const char* creator;
    const char* reason;

    friend void PrintTo(const FailingLoop& value, std::ostream* out) { *out << value.name; }
};

class FailingLoopTest : public HostTest, public testing::WithParamInterface<FailingLoop> {};

TEST_P(FailingLoopTest, endsTheHostWithOne) {
    Process host(hostOf(FAULTY_LIBRARY, GetParam().creator, m_url));
    ASSERT_TRUE(host.waitForLine("serving"));
    EXPECT_EQ(call({"--kind", "legacy", "--data", "x"}).status, 0);
    const auto result = host.finish();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.errors, GetParam().reason)) << result.errors;
    EXPECT_TRUE(contains(result.errors, "mirel-host: a failure ended the service's loop"))
        << result.errors;
    EXPECT_TRUE(contains(result.output, "1 legacy")) << result.output;
}

INSTANTIATE_TEST_SUITE_P(All, FailingLoopTest,
                         testing::Values(FailingLoop{"legacyMessage", "makeFaultyService",
                                                     "legacy messages are too much"},
                                         FailingLoop{"creator", "throwInstead",
                                                     "no configuration"}),
                         [](const auto& param) { return param.param.name; });

struct BadStart {
    const char* name;
    Arguments command;
    const char* says;

    friend void PrintTo(const BadStart& value, std::ostream* out) { *out << value.name; }
};

class BadStartTest : public testing::TestWithParam<BadStart> {};

TEST_P(BadStartTest, endsWithTwoAndOneLine) {
    const auto result = Process::run(GetParam().command);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(contains(result.errors, GetParam().says)) << result.errors;
    EXPECT_EQ(result.errors.rfind("mirel-host: ", 0), 0U) << result.errors;
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
}

const char* const kUrl = "ipc:///nonexistent/service";

INSTANTIATE_TEST_SUITE_P(
    All, BadStartTest,
    testing::Values(
        BadStart{"noOptions", {MIREL_HOST}, "--library"},
        BadStart{"unknownOption", {MIREL_HOST, "--what"}, "--what"},
        BadStart{"noLibrary", hostOf("missing.so", "create", kUrl), "missing.so"},
        BadStart{"noCreator", hostOf(LEDGER_LIBRARY, "createNothing", kUrl), "createNothing"},
        BadStart{"noFolder", hostOf(LEDGER_LIBRARY, "createLedger", kUrl), "No such file"},
        BadStart{"plainTcp", hostOf(LEDGER_LIBRARY, "createLedger", "tcp://0.0.0.0:0"),
                 "--allow-plain-tcp"},
        BadStart{"emptyQueue", hostOf(LEDGER_LIBRARY, "createLedger", kUrl, {"--queue", "0"}),
                 "--queue"},
        BadStart{"logLevel", hostOf(LEDGER_LIBRARY, "createLedger", kUrl, {"--log", "99"}), "99"},
        BadStart{"noKey", hostOf(LEDGER_LIBRARY, "createLedger", kUrl, {"--curve-key", "none.key"}),
                 "none.key"}),
    [](const auto& param) { return param.param.name; });

TEST_F(HostTest, generatesKeysThatItServesWith) {
    const std::string keys = m_folder.path("keys");
    ASSERT_EQ(Process::run({MIREL_HOST, "--generate-keys", keys}).status, 0);
    EXPECT_EQ(Process::run({MIREL_HOST, "--generate-keys", keys}).status, 2);
    Process host(hostOf(LEDGER_LIBRARY, "createLedger", m_url, {"--curve-key", keys + ".key"}));
    ASSERT_TRUE(host.waitForLine("serving"));
    EXPECT_EQ(call({"--server-key", keys + ".pub", "--interface", "Ledger", "--protocol", "text",
                    "--data", "journal"})
                  .status,
              0);
}

} // namespace
} // namespace mirel
