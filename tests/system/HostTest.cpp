#include "tests/system/ProgramsFixture.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace mirel {
namespace {

Arguments hostCommand(const std::string& url, const Arguments& more = {},
                      const std::string& library = LEDGER_LIBRARY,
                      const std::string& creator = "createLedger") {
    return joined({MIREL_HOST, "--library", library, "--creator", creator, "--interface", "Ledger",
                   "--channel", url},
                  more);
}

/// A host that serves.
class Host : public Process {
public:
    explicit Host(const Arguments& command) : Process(command) {
        EXPECT_TRUE(waitFor("serving Ledger"));
    }
};

class HostTest : public ProgramsFixture {
protected:
    Process::Result ask(const std::string& data, const Arguments& more = {}) const {
        return call(joined(
            {"--source", "me", "--interface", "Ledger", "--protocol", "text", "--data", data},
            more));
    }

    const std::string m_url = m_options.url;
};

TEST_F(HostTest, ServesUntilASignalAndSumsUp) {
    const std::pair<Arguments, int> runs[] = {{{}, SIGTERM}, {{"--single-threaded"}, SIGINT}};
    for (const auto& [mode, signal] : runs) {
        Host host(hostCommand(m_url, mode));
        EXPECT_EQ(ask("deposit anna 5").output, "me: anna 5\n");
        EXPECT_EQ(ask("withdraw anna x").status, 1);
        const auto rest = call({"--input", "-", "--source", "me", "--deadline", "500"},
                               R"({"kind": "legacy", "data": "note"}
{"kind": "timer", "timerId": 7}

{"kind": "request", "interface": "Ledger", "protocol": "text", "data": "journal"}
{"kind": "request", "source": "no-if", "interface": "Nobody", "protocol": "text", "data": ""}
{"kind": "request", "source": "no-pr", "interface": "Ledger", "protocol": "xml", "data": ""})");
        EXPECT_EQ(rest.status, 1);
        for (const char* const line :
             {"me: sent\nme: sent\n", "me: me: note\n",
              "no-if: failed: the service has no interface \"Nobody\"; it has Ledger\n",
              "no-pr: failed: interface \"Ledger\" has no protocol \"xml\"; it has text\n"})
            EXPECT_TRUE(contains(rest.output, line));
        EXPECT_TRUE(host.waitFor("day 7 ends: 1 accounts, 5 in total"));
        const auto result = host.stop(signal);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_TRUE(contains(result.output,
                             "5 requests, 1 timer events, 1 legacy; 0 refused, 0 not read\n"
                             "  requests: 2 done, 1 failed, 2 not served, 0 not answered; "
                             "0 answers dropped\n"
                             "  reports:  1 published\n"));
        EXPECT_EQ(!contains(result.output, "0 at most at once"), mode.empty()) << result.output;
    }
}

TEST_F(HostTest, APathIsLeftToALiveHostAndTakenOverFromADeadOne) {
    Host first(hostCommand(m_url));
    const auto second = Process::run(hostCommand(m_url));
    EXPECT_EQ(second.status, 2);
    EXPECT_TRUE(contains(second.errors, "another process listens"));
    EXPECT_EQ(ask("deposit anna 5").status, 0);
    EXPECT_EQ(first.stop(SIGKILL).status, -SIGKILL);
    const Host third(hostCommand(m_url));
    EXPECT_EQ(ask("journal").status, 0);
}

TEST_F(HostTest, AHangUpStopsItInOrderUnlessItIsIgnored) {
    Host host(hostCommand(m_url));
    EXPECT_EQ(ask("deposit anna 5").status, 0);
    const auto stopped = host.stop(SIGHUP);
    EXPECT_EQ(stopped.status, 0);
    EXPECT_TRUE(contains(stopped.output, "requests: 1 done"));

    Host deaf(joined({"/bin/sh", "-c", "trap '' HUP; exec \"$@\"", "sh"}, hostCommand(m_url)));
    deaf.signal(SIGHUP);
    EXPECT_EQ(ask("deposit anna 5").status, 0);
    EXPECT_EQ(deaf.stop(SIGTERM).status, 0);
}

TEST_F(HostTest, MoreCallersThanTheSoftLimitOfDescriptors) {
    Host host(joined({"/bin/sh", "-c", "ulimit -Sn 64; exec \"$@\"", "sh"}, hostCommand(m_url)));
    const std::string path = m_url.substr(std::string("ipc://").size());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.copy(address.sun_path, sizeof address.sun_path - 1), sizeof address.sun_path);
    std::vector<int> callers;
    for (int i = 0; i < 100; ++i) {
        callers.push_back(socket(AF_UNIX, SOCK_STREAM, 0));
        EXPECT_EQ(
            connect(callers.back(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
    }
    EXPECT_EQ(ask("deposit anna 5").status, 0);
    EXPECT_EQ(host.stop(SIGTERM).status, 0);
    for (const int caller : callers)
        close(caller);
}

TEST_F(HostTest, ASecondSignalEndsAHostWhoseServiceHangs) {
    Host host(hostCommand(m_url, {}, FAULTY_LIBRARY, "makeFaultyService"));
    EXPECT_EQ(call({"--kind", "legacy", "--data", "hang"}).status, 0);
    ASSERT_TRUE(host.waitFor("hanging"));
    host.signal(SIGTERM);
    // This answer shows that the host has stopped reading; from then on a signal ends it.
    EXPECT_TRUE(contains(ask("unread").output, "the service stopped before the request was read"));
    EXPECT_EQ(host.stop(SIGTERM).status, -SIGTERM);
}

TEST_F(HostTest, AHostWhoseServiceCannotBeMadeEndsWithOne) {
    Host host(hostCommand(m_url, {}, FAULTY_LIBRARY, "throwInstead"));
    EXPECT_EQ(call({"--kind", "legacy", "--data", "x"}).status, 0);
    const auto result = host.finish();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.errors, "no configuration"));
    EXPECT_TRUE(contains(result.errors, "mirel-host: a failure ended the service's loop"));
    EXPECT_TRUE(contains(result.output, "1 legacy"));
}

TEST_F(HostTest, AsksForNoMoreThreadsThanTheSystemHas) {
    // As a user who has no other threads.
    const Arguments limited{"/usr/bin/setpriv", "--reuid",          "54321",     "--regid", "54321",
                            "--clear-groups",   "/usr/bin/prlimit", "--nproc=60"};
    chmod(m_folder.path("").c_str(), 0777);
    const std::string tryIt = std::string(MIREL_HOST) + " --help && : >" + m_folder.path("file");
    if (getuid() != 0 || Process::run(joined(limited, {"/bin/sh", "-c", tryIt})).status != 0)
        GTEST_SKIP() << "needs root, and programs and folders that everybody may use";
    Host host(joined(limited, hostCommand(m_url, {}, FAULTY_LIBRARY, "makeSlowService")));
    const auto load = ask("x", {"--load", "2000", "--sources", "300", "--priorities", "0,1,2"});
    EXPECT_EQ(load.status, 0) << load.output << load.errors;
    const auto result = host.stop(SIGTERM);
    EXPECT_TRUE(contains(result.errors, "(ulimit -u) is 60 and"));
    EXPECT_TRUE(contains(result.output, "requests: 2000 done"));
}

TEST_F(HostTest, AServiceThatCrashesAtItsEndLeavesTheSummary) {
    Host host(hostCommand(m_url, {}, FAULTY_LIBRARY, "makeAbortingService"));
    EXPECT_EQ(ask("x").status, 0);
    const auto result = host.stop(SIGTERM);
    EXPECT_EQ(result.status, -SIGABRT);
    EXPECT_TRUE(contains(result.output, "requests: 1 done"));
}

TEST_F(HostTest, AFailureInTheLoopCostsNobodyElse) {
    Host host(hostCommand(m_url, {}, FAULTY_LIBRARY, "makeServiceShortOfThreads"));
    EXPECT_EQ(ask("first").output, "me: done\n");
    std::string throwing;
    for (int i = 0; i < 30; ++i)
        throwing += "{\"kind\": \"legacy\", \"data\": \"x\"}\n";
    EXPECT_EQ(call({"--input", "-"}, throwing).status, 0);
    EXPECT_EQ(ask("second").output, "me: done\n");

    // Far more sources than workers that can be had: what cannot start fails, and is answered.
    const auto load = ask("x", {"--load", "2000", "--sources", "60"});
    EXPECT_EQ(load.status, 1);
    EXPECT_TRUE(contains(load.output, "unanswered: 0")) << load.output << load.errors;
    EXPECT_TRUE(contains(load.output, "short of threads; it can be sent again"));
    EXPECT_EQ(ask("third").output, "me: done\n");
    const auto result = host.stop(SIGTERM);
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.errors, "legacy messages are too much"));
    EXPECT_TRUE(contains(result.output, "30 legacy"));
    EXPECT_TRUE(contains(result.output, "loop:     started again"));
}

TEST_F(HostTest, AFailureThatComesWhileItStopsDoesNotKeepItFromStopping) {
    const std::string fifo = m_folder.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    Host host(hostCommand(m_url, {}, FAULTY_LIBRARY, "makeFaultyService"));
    EXPECT_EQ(call({"--kind", "legacy", "--data", "open " + fifo}).status, 0);
    ASSERT_TRUE(host.waitFor("opening"));
    host.signal(SIGTERM);
    EXPECT_TRUE(contains(ask("unread").output, "the service stopped before the request was read"));
    const std::ofstream letGo(fifo);
    const auto result = host.finish();
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.errors, "legacy messages are too much"));
}

TEST_F(HostTest, HasNoMoreWorkersThanItMay) {
    Host host(hostCommand(m_url, {"--max-workers", "1"}));
    EXPECT_EQ(ask("post {source} {n}", {"--load", "300", "--sources", "4"}).status, 0);
    EXPECT_TRUE(contains(host.stop(SIGTERM).output, "workers:  1 at most at once"));
}

TEST_F(HostTest, GeneratesKeysThatItServesWith) {
    const std::string keys = m_folder.path("keys");
    ASSERT_EQ(Process::run({MIREL_HOST, "--generate-keys", keys}).status, 0);
    EXPECT_EQ(Process::run({MIREL_HOST, "--generate-keys", keys}).status, 2);
    const Host host(hostCommand(m_url, {"--curve-key", keys + ".key"}));
    EXPECT_EQ(ask("journal", {"--server-key", keys + ".pub"}).status, 0);
}

TEST(Programs, ThatCannotStartEndWithTwoAndOneLine) {
    const std::string nobody = "ipc:///nonexistent/service";
    const auto call = [](const std::string& url, const Arguments& more) {
        return joined({MIREL_CALL, "--channel", url}, more);
    };
    const std::pair<Arguments, const char*> bad[] = {
        {{MIREL_HOST}, "mirel-host: --library"},
        {hostCommand(nobody, {}, "missing.so"), "missing.so"},
        {hostCommand(nobody, {}, LEDGER_LIBRARY, "createNothing"), "createNothing"},
        {hostCommand(nobody), "No such file"},
        {hostCommand("tcp://0.0.0.0:0"), "--allow-plain-tcp"},
        {hostCommand(nobody, {"--log", "99"}), "99"},
        {hostCommand(nobody, {"--curve-key", "none.key"}), "none.key"},
        {call(nobody, {"--data", "x"}), "mirel-call: --interface"},
        {call(nobody, {"--kind", "timer", "--load", "1"}), "--load"},
        {call(nobody, {"--input", "/nonexistent/file"}), "No such file"},
        {call("service", {"--kind", "timer"}), "'service' is no address"},
        {call(nobody, {"--kind", "timer", "--user", "anna"}), "for channels over nats://"},
        {hostCommand("nats://nobody/service", {"--queue", "1"}), "for channels over ipc://"},
        {{MIREL_HOST, "--generate-keys", "/nonexistent/key"}, "cannot be made"},
        {call(nobody, {"--kind", "timer", "--deadline", "50"}),
         "no service answers at ipc:///nonexistent/service within 50 ms"},
    };
    for (const auto& [command, why] : bad) {
        SCOPED_TRACE(why);
        const auto result = Process::run(command);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_TRUE(contains(result.errors, why));
        EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
    }
}

} // namespace
} // namespace mirel
