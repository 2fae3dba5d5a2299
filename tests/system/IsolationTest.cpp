// What one caller must not be able to do to another one, with the host on its defaults.

#include "tests/system/ProgramsFixture.h"

#include <arpa/inet.h>
#include <cstdint>
#include <fcntl.h>
#include <fstream>
#include <netinet/in.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace mirel {
namespace {

constexpr std::size_t kMegabyte = std::size_t{1} << 20;
constexpr long kMedianLimit = 50000; // microseconds
constexpr long kMemoryLimit = 256;   // megabytes

long numberBehind(const std::string& text, const std::string& word) {
    const std::size_t at = text.find(word);
    return at == std::string::npos ? -1 : std::stol(text.substr(at + word.size()));
}

/// Connections that say nothing.
class Connections {
public:
    Connections(const std::string& url, int count) {
        sockaddr_un local{};
        sockaddr_in loopback{};
        const bool isIpc = url.starts_with("ipc://");
        local.sun_family = AF_UNIX;
        if (isIpc)
            url.copy(local.sun_path, sizeof local.sun_path - 1, std::string("ipc://").size());
        loopback.sin_family = AF_INET;
        loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (!isIpc)
            loopback.sin_port =
                htons(static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1))));
        const auto* const address = isIpc ? reinterpret_cast<const sockaddr*>(&local)
                                          : reinterpret_cast<const sockaddr*>(&loopback);
        const socklen_t size = isIpc ? sizeof local : sizeof loopback;
        for (int i = 0; i < count; ++i) {
            m_sockets.push_back(socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
            EXPECT_EQ(connect(m_sockets.back(), address, size), 0) << i;
        }
    }
    ~Connections() {
        for (const int each : m_sockets)
            close(each);
    }

    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;

private:
    std::vector<int> m_sockets;
};

class IsolationTest : public ProgramsFixture {
protected:
    void serve(const Arguments& more = {}) {
        m_host.emplace(
            joined({MIREL_HOST, "--library", FAULTY_LIBRARY, "--creator", "makeUnevenService",
                    "--interface", "Ledger", "--channel", m_options.url},
                   more));
        ASSERT_TRUE(m_host->waitFor("serving"));
    }

    std::unique_ptr<ZmqCaller> attacker() const {
        ZmqCallerOptions options;
        options.url = m_options.url;
        options.maxMessageBytes = 2 * kMegabyte;
        return std::make_unique<ZmqCaller>(options);
    }

    /// Sends `count` requests and takes no answers.
    static void flood(ZmqCaller& caller, long count, const std::string& protocol,
                      const std::string& data) {
        for (long id = 1; id <= count; ++id) {
            auto msg = request(id, data);
            msg.interface() = "Ledger";
            msg.protocol() = protocol;
            ASSERT_TRUE(caller.send(msg, kPatience)) << id;
        }
    }

    /// Another caller is served as if nothing were.
    void expectVictimIsServed() const {
        const auto result = call({"--interface", "Ledger", "--protocol", "echo", "--data", "{n}",
                                  "--load", "200", "--sources", "2", "--window", "4"});
        EXPECT_EQ(result.status, 0) << result.output << result.errors;
        EXPECT_LE(numberBehind(result.output, "p50 "), kMedianLimit) << result.output;
    }

    /// And the host has needed no more memory than it may, whatever the sanitizers need.
    void expectLittleMemory() const {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        std::ostringstream status;
        status << std::ifstream("/proc/" + std::to_string(m_host->pid()) + "/status").rdbuf();
        EXPECT_LE(numberBehind(status.str(), "VmHWM:") / 1024, kMemoryLimit) << status.str();
#endif
    }

    std::optional<Process> m_host;
};

TEST_F(IsolationTest, ASourceThatHangsHoldsUpItselfOnly) {
    serve();
    const auto hanging = attacker();
    flood(*hanging, 2500, "hang", "");
    expectVictimIsServed();
    // Its caller's other sources, too.
    auto other = request(6000, "mine");
    other.sourceChannel() = "other";
    other.interface() = "Ledger";
    other.protocol() = "echo";
    ASSERT_TRUE(hanging->send(other, kPatience));
    unsigned long refused = 0;
    for (;;) {
        const auto answer = hanging->receive(kPatience);
        ASSERT_TRUE(answer);
        if (answer->requestId == 6000) {
            EXPECT_EQ(answer->data, "mine");
            break;
        }
        EXPECT_EQ(answer->refusal, ++refused);
        EXPECT_TRUE(contains(answer->data, refused == 1 ? "1000 unanswered requests, which is its "
                                                          "share (--source-requests); send it again"
                                                        : "send it again"));
    }
    EXPECT_EQ(refused, 1500U);
}

TEST_F(IsolationTest, ManySourcesThatHangLeaveWorkersToOthers) {
    serve({"--max-workers", "40"});
    const auto hanging = attacker();
    for (long id = 1; id <= 200; ++id) {
        auto msg = request(id);
        msg.sourceChannel() = std::to_string(id);
        msg.interface() = "Ledger";
        msg.protocol() = "hang";
        ASSERT_TRUE(hanging->send(msg, kPatience));
    }
    expectVictimIsServed();
    EXPECT_TRUE(contains(hanging->receive(kPatience).value().data, "--max-workers"));
}

TEST_F(IsolationTest, LargeRequestsBehindAHangingOne) {
    serve();
    const auto hanging = attacker();
    flood(*hanging, 600, "hang", std::string(kMegabyte - 1000, 'x'));
    expectVictimIsServed();
    expectLittleMemory();
}

TEST_F(IsolationTest, AnswersThatNobodyTakes) {
    serve();
    const auto deaf = attacker();
    flood(*deaf, 3000, "large", std::to_string(kMegabyte));
    expectVictimIsServed();
    expectLittleMemory();
    EXPECT_TRUE(m_host->waitFor("answers from "));
    const auto result = m_host->stop();
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.errors, "refused, the last one because mirel-call-"));
}

TEST_F(IsolationTest, WhatIsRefusedIsSentAgainInItsOrder) {
    m_host.emplace(Arguments{MIREL_HOST, "--library", LEDGER_LIBRARY, "--creator", "createLedger",
                             "--interface", "Ledger", "--channel", m_options.url,
                             "--source-requests", "2", "--caller-requests", "5"});
    ASSERT_TRUE(m_host->waitFor("serving"));
    // A posting fails when it does not follow the one before it.
    const auto result = call({"--interface", "Ledger", "--protocol", "text", "--data",
                              "post {source} {n}", "--load", "3000", "--sources", "4"});
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_GT(numberBehind(result.output, "sent again: "), 0) << result.output;
}

TEST_F(IsolationTest, MoreConnectionsThanDescriptors) {
    for (const std::string& url : {m_options.url, std::string("tcp://127.0.0.1:0")}) {
        m_host.emplace(Arguments{"/bin/sh", "-c", "ulimit -n 128; exec \"$@\"", "sh", MIREL_HOST,
                                 "--library", FAULTY_LIBRARY, "--creator", "makeUnevenService",
                                 "--interface", "Ledger", "--channel", url});
        ASSERT_TRUE(m_host->waitUntil([this](const std::string& output, const std::string&) {
            const std::size_t at = output.find(" on ") + 4;
            const std::size_t end = output.find(", multi-threaded", at);
            if (end != std::string::npos)
                m_options.url = output.substr(at, end - at);
            return end != std::string::npos;
        }));
        const auto victim = attacker();
        flood(*victim, 500, "echo", "early");
        {
            const Connections connections(m_options.url, 150);
            EXPECT_TRUE(m_host->waitFor("new callers: "));
            flood(*victim, 500, "echo", "late");
            for (long id = 1; id <= 1000; ++id) {
                const Answer answer = receive(*victim);
                ASSERT_EQ(answer.data, id <= 500 ? "early" : "late");
                ASSERT_EQ(answer.requestId, id <= 500 ? id : id - 500);
            }
            const auto result =
                call({"--interface", "Ledger", "--protocol", "echo", "--deadline", "1000"});
            EXPECT_EQ(result.status, 2);
            EXPECT_TRUE(contains(result.errors, "no room for another caller now"));
        }
        // Who is turned away tries again until the host has seen that they are gone.
        expectVictimIsServed();
        EXPECT_EQ(m_host->stop().status, 0);
    }
}

TEST_F(IsolationTest, ALogThatNobodyReads) {
    const std::string log = m_folder.path("log");
    ASSERT_EQ(mkfifo(log.c_str(), S_IRUSR | S_IWUSR), 0);
    const int reader = ::open(log.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    const std::string page(4096, 'x');
    while (write(reader, page.data(), page.size()) > 0) {
    }
    m_host.emplace(Arguments{"/bin/sh", "-c", "exec \"$@\" 2>\"$0\"", log, MIREL_HOST, "--library",
                             FAULTY_LIBRARY, "--creator", "makeUnevenService", "--interface",
                             "Ledger", "--channel", m_options.url, "--log", "6"});
    ASSERT_TRUE(m_host->waitFor("serving"));
    EXPECT_TRUE(
        contains(call({"--interface", "Ledger", "--protocol", "fail", "--load", "1000"}).output,
                 "unanswered: 0"));
    expectVictimIsServed();
    EXPECT_EQ(m_host->stop().status, 0);
    close(reader);
}

TEST_F(IsolationTest, FailuresThatRepeatDoNotFillTheLog) {
    for (const auto& [option, bytes] : {std::pair("0", 0U), std::pair("6", 6U)}) {
        serve({"--log-data", option});
        EXPECT_TRUE(contains(call({"--interface", "Ledger", "--protocol", "fail", "--load", "3000",
                                   "--data", "secret" + std::string(1000, 'x')})
                                 .output,
                             "unanswered: 0"));
        const auto result = m_host->stop();
        EXPECT_TRUE(contains(result.errors, "2995 more of this kind: "));
        EXPECT_TRUE(contains(result.errors, std::string("secret").substr(0, bytes) + "[" +
                                                std::to_string(1006 - bytes) +
                                                " bytes not logged]"));
        EXPECT_LT(result.errors.size(), 10000U);
    }
}

TEST_F(IsolationTest, FailuresThatBelongToBusinessAreAnsweredAndCountedOnly) {
    serve();
    const auto answers = call({"--interface", "Ledger", "--protocol", "decline", "--load", "1000"});
    EXPECT_TRUE(contains(answers.output, "no cover"));
    const auto result = m_host->stop();
    EXPECT_TRUE(contains(result.output, "0 done, 1000 failed"));
    EXPECT_TRUE(contains(result.output, "reports:  0 published"));
    EXPECT_EQ(result.errors, "");
}

} // namespace
} // namespace mirel
