#include "channels/Envelope.h"
#include "channels/nats/wire/NatsConnection.h"
#include "channels/nats/wire/NatsHandles.h"
#include "testkit/NatsServer.h"
#include "tests/system/nats/HostsFixture.h"

#include <fstream>
#include <sstream>

namespace mirel {
namespace {

using std::chrono::seconds;

/// Somebody who is let in by the server and does there what he likes.
class Stranger {
public:
    /// Listens to the subjects.
    Stranger(const NatsConnectionOptions& options, const Arguments& subjects)
        : m_connection(options) {
        for (const std::string& subject : subjects) {
            natsSubscription* made = nullptr;
            natsConnection_SubscribeSync(&made, m_connection.get(), subject.c_str());
            m_heard.emplace_back(made);
        }
        EXPECT_TRUE(m_connection.flush(seconds(5)));
    }

    void publish(const std::string& subject, const std::string& bytes,
                 const std::string& replyTo = "") {
        EXPECT_TRUE(m_connection.publish(subject, bytes, replyTo));
        EXPECT_TRUE(m_connection.flush(seconds(5)));
    }

    /// Where the next message on the first subject is to be confirmed; empty when none comes.
    std::string nextReplyTo() {
        natsMsg* msg = nullptr;
        natsSubscription_NextMsg(&msg, m_heard.front().get(), 5000);
        const NatsMessage owned(msg);
        return msg && natsMsg_GetReply(msg) ? natsMsg_GetReply(msg) : "";
    }

    /// Messages on all subjects that have not been taken.
    int heard() {
        EXPECT_TRUE(m_connection.flush(seconds(5)));
        int sum = 0;
        for (const NatsSubscription& subscription : m_heard) {
            int messages = 0;
            natsSubscription_GetPending(subscription.get(), &messages, nullptr);
            sum += messages;
        }
        return sum;
    }

private:
    NatsConnection m_connection;
    std::vector<NatsSubscription> m_heard;
};

/// What one caller can do to another one.
class NatsIsolationTest : public HostsFixture {
protected:
    /// A file with the text in its first line.
    std::string fileWith(const std::string& text) const {
        std::string file = m_folder.path(text);
        std::ofstream(file) << text << '\n';
        return file;
    }

    /// As examples/nats/accounts.conf has them.
    std::string passwordOf(const std::string& user) const { return fileWith("change-me-" + user); }
    Arguments accessOf(const std::string& user) const {
        return {"--user", user, "--password-file", passwordOf(user)};
    }

    static NatsConnectionOptions optionsFor(const std::string& url) {
        NatsConnectionOptions options;
        options.url = url;
        return options;
    }
    NatsConnectionOptions optionsFor(const std::string& url, const std::string& user) const {
        NatsConnectionOptions options = optionsFor(url);
        options.user = user;
        options.passwordFile = passwordOf(user);
        return options;
    }

    static std::string forgedAnswer(long request) {
        return encode(Answer{false, request, "source-1", "", "forged"});
    }

    /// A request, encoded, that is quickly done unless `what` says otherwise.
    static std::string request(int number = 1, const std::string& what = "") {
        CommsChannelDataContainerMessage msg;
        msg.sourceChannel() = "stranger";
        msg.interface() = "Recording";
        msg.protocol() = "run";
        msg.setRequestId(number);
        msg.setData("stranger " + std::to_string(number) + " " + what);
        return encode(msg);
    }
};

// On a server that lets everybody in, and permits everything.

TEST_F(NatsIsolationTest, WhatIsNoAnswerCostsACallerNothing) {
    const NatsServer server(m_folder.path("server"));
    const auto host = newHost(server.url());
    const auto load =
        newCall(server.url(), {"--caller", "anna", "--load", "400", "--sources", "4", "--source",
                               "source", "--data", "{source} {n} work 10000"});
    ASSERT_TRUE(waitForProgress(20));
    Stranger stranger(optionsFor(server.url()), {"elsewhere.*"});
    const std::string annas = "service.answers.-.anna";
    stranger.publish(annas, "x", "elsewhere.1");
    stranger.publish(annas, "");
    stranger.publish(annas, forgedAnswer(1000000), "elsewhere.1"); // to no request
    const auto result = load->finish();
    expectGood(result);
    EXPECT_TRUE(contains(result.output, "skipped:    3 messages that are no answers"));
    EXPECT_EQ(stranger.heard(), 0) << "she published what others had her publish";
}

TEST_F(NatsIsolationTest, AHungSourceDoesNotStopItsPartition) {
    const NatsServer server(m_folder.path("server"));
    const auto host = newHost(server.url());
    Stranger stranger(optionsFor(server.url()), {"refusals"});
    for (int number = 1; number <= 300; ++number)
        stranger.publish("service.requests.0.-.bob.run.line", request(number, "work 3600000000"),
                         "refusals");
    EXPECT_EQ(stranger.heard(), 300);
    expectGood(newCall(server.url(), {"--load", "1000", "--sources", "4", "--source", "source",
                                      "--data", "{source} {n}", "--deadline", "10000"})
                   ->finish());
    EXPECT_EQ(history().lost("source", 4, 250), 0U);
    host->signal(SIGKILL); // it would wait for the hung one
}

TEST_F(NatsIsolationTest, WhatTheServerHasNoRoomForIsSentAgainInItsOrder) {
    const NatsServer server(m_folder.path("server"));
    const auto host = newHost(server.url(), {"--max-of-source", "1"});
    const auto load = newLoad(server.url(), 4, 50, "work 1000");
    const auto result = load->finish();
    expectGood(result);
    EXPECT_TRUE(contains(result.errors, "(--max-of-source of its hosts); they are sent again"));
    expectAll(4, 50, 0);
}

TEST_F(NatsIsolationTest, WhoHasNotACallersSecretCannotSuppressItsRequests) {
    const NatsServer server(m_folder.path("server")); // takes every password
    const auto host = newHost(server.url());
    const auto statusOfCall = [&](const std::string& password) {
        return newCall(server.url(), {"--user", "anna", "--password-file", fileWith(password),
                                      "--caller", "nightly", "--source", "source", "--data",
                                      "source 1", "--deadline", "1500"})
            ->finish()
            .status;
    };
    EXPECT_EQ(statusOfCall("a-guess"), 0);
    EXPECT_EQ(statusOfCall("the-secret"), 0) << "taken for the same message";
    EXPECT_EQ(statusOfCall("the-secret"), 1) << "repeated, and run again";
    EXPECT_EQ(history().count(), 2U);
}

TEST_F(NatsIsolationTest, NobodyConfirmsAnothersAnswer) {
    const NatsServer server(m_folder.path("server"));
    const auto host = newHost(server.url());
    Stranger anna(optionsFor(server.url()), {"service.answers.-.anna"});
    anna.publish("service.requests.0.-.anna.run.line", request());
    std::string where = anna.nextReplyTo();
    ASSERT_TRUE(contains(where, "anna"));
    where.replace(where.find("anna"), 4, "bert");
    anna.publish(where.substr(0, where.rfind('.')) + ".0", "1 ");
    EXPECT_NE(anna.nextReplyTo(), "") << "the host has forgotten the answer";
}

// With accounts.

TEST_F(NatsIsolationTest, WithAccountsACallerCannotHarmAnother) {
    std::ostringstream accounts;
    accounts << std::ifstream(ACCOUNTS).rdbuf();
    const NatsServer server(m_folder.path("server"), accounts.str());
    const std::string url = server.url("ledger");
    const auto host = newHost(url, joined({"--log", "4"}, accessOf("host")));

    Stranger spy(optionsFor(url, "bob"),
                 {"ledger.answers.alice.*", "ledger.answers.>", "ledger.requests.>",
                  "ledger.hosts.>", "_INBOX.>", "_INBOX.alice.>", ">"});
    // What bob may do, and learns by it: where the host listens.
    Stranger bob(optionsFor(url, "bob"), {"ledger.answers.bob.spy"});
    const std::string bobs = "ledger.requests.0.bob.spy.run.line";
    bob.publish(bobs, request());
    const std::string bobsAnswer = bob.nextReplyTo();
    const std::string inbox = bobsAnswer.substr(0, bobsAnswer.find("taken."));
    ASSERT_NE(inbox, "");
    bob.publish(bobsAnswer, "1 ");

    constexpr long kRequests = 600;
    const auto load = newCall(
        url, joined({"--caller", "nightly", "--load", std::to_string(kRequests), "--sources", "4",
                     "--source", "source", "--data", "{source} {n} work 10000"},
                    accessOf("alice")));
    ASSERT_TRUE(waitForProgress(100));
    const std::string alices = "ledger.answers.alice.nightly";
    const Arguments places{alices,
                           "ledger.requests.0.alice.nightly.run.line",
                           inbox + "taken.alice.nightly.0",
                           inbox + "0.1",
                           inbox + "wake.0",
                           "ledger.dead",
                           "$KV.ledger-leases.partition-0",
                           "$KV.ledger-attempts.partition-0",
                           "$JS.API.STREAM.PURGE.ledger",
                           "$JS.API.STREAM.DELETE.ledger"};
    for (const std::string& place : places) {
        bob.publish(place, "1 2 3 4 5 6 7 8 9 ");
        bob.publish(bobs, request(), place); // the server answers there that it has stored it
    }
    for (long number = 1; number <= kRequests; ++number)
        bob.publish(alices, forgedAnswer(number));

    const auto result = load->finish();
    expectGood(result);
    EXPECT_TRUE(contains(result.output, "skipped:    1 messages that are no answers"))
        << "the server's, and none of bob's";
    const History seen = history();
    EXPECT_EQ(seen.lost("source", 4, kRequests / 4), 0U);
    EXPECT_EQ(seen.outOfOrder(), 0U);
    EXPECT_EQ(spy.heard(), 0);
    EXPECT_TRUE(waitForLines(m_folder.path("server/log"), places.size() + kRequests,
                             "Publish Violation - User \"bob\""));
    expectGood(newCall(url, joined({"--data", "source 1"}, accessOf("bob")))->finish());

    const auto end = host->stop();
    expectGood(end);
    for (const char* const trouble : {"lease", "is read again", "is not served", "was made anew"})
        EXPECT_FALSE(contains(end.errors, trouble));
}

} // namespace
} // namespace mirel
