#include "channels/nats/read/NatsChannel.h"
#include "channels/nats/wire/NatsConnection.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "testkit/NatsServer.h"
#include "tests/system/nats/HostsFixture.h"
#include "tests/system/nats/Relay.h"
#include "tests/unit/Support.h"

#include <nlohmann/json.hpp>

namespace mirel {
namespace {

constexpr unsigned long kUnacknowledged = 256; ///< at most, by default

/// A service on one server.
class NatsServiceTest : public HostsFixture {
protected:
    std::unique_ptr<Process> newHost(const Arguments& more = {}) const {
        return HostsFixture::newHost(m_server.url(), more);
    }
    std::unique_ptr<Process> newLoad(long ofEach) const {
        return HostsFixture::newLoad(m_server.url(), 4, ofEach);
    }

    NatsConnectionOptions connectionOptions() const {
        NatsConnectionOptions options;
        options.url = m_server.url();
        return options;
    }

    /// Waits until the stream, or another one, holds as many messages; false after a minute.
    bool waitForRest(unsigned long messages, const std::string& stream = "service") const {
        NatsConnection connection(connectionOptions());
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (connection.call("STREAM.INFO." + stream, nullptr, std::chrono::seconds(5))
                   .at("state")
                   .at("messages") != messages)
            if (std::chrono::steady_clock::now() > end)
                return false;
        return true;
    }

    NatsServer m_server{m_folder.path("server")};
};

TEST_F(NatsServiceTest, ServesInOrderAndLeavesNothingBehind) {
    const auto host = newHost();
    const std::string timeline = m_folder.path("timeline");
    expectGood(newCall(m_server.url(), {"--load", "2000", "--sources", "4", "--source", "source",
                                        "--data", "{source} {n} work 200", "--timeline", timeline})
                   ->finish());
    host->signal(SIGTERM);
    const auto result = host->finish();
    expectGood(result);

    std::ifstream steps(timeline);
    std::string heading;
    std::getline(steps, heading);
    char comma = 0;
    double second = 0;
    unsigned long answers = 0, all = 0;
    while (steps >> second >> comma >> answers)
        all += answers;
    EXPECT_EQ(all, 2000U);
    EXPECT_TRUE(contains(result.output, "2000 requests, 0 timer events, 0 legacy; 0 refused"));
    expectAll(4, 500, 0);
}

TEST_F(NatsServiceTest, AHostThatIsKilledAgainAndAgainLosesNothing) {
    const char* const wanted = std::getenv("MIREL_NATS_KILLS");
    const int kills = wanted ? std::atoi(wanted) : 3;
    const long ofEach = 700 * kills;
    const auto load = newLoad(ofEach);
    for (int i = 0; i < kills; ++i) {
        const auto host = newHost();
        ASSERT_TRUE(waitForProgress(500));
        host->signal(SIGKILL);
        host->finish();
    }
    const auto last = newHost();
    expectGood(load->finish());
    expectAll(4, ofEach, static_cast<unsigned long>(kills) * kUnacknowledged);
}

TEST_F(NatsServiceTest, AServerThatIsKilledLosesNothing) {
    const auto host = newHost();
    const auto load = newLoad(2000);
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(waitForProgress(500));
        m_server.kill();
        m_server.start();
    }
    expectGood(load->finish());
    host->signal(SIGTERM);
    expectGood(host->finish());
    expectAll(4, 2000, 0);
}

TEST_F(NatsServiceTest, ConnectionsThatAreCutLoseNothing) {
    Relay ofHost(m_server.port()), ofCaller(m_server.port());
    const auto through = [](const Relay& relay) {
        return "nats://127.0.0.1:" + std::to_string(relay.port()) + "/service";
    };
    const auto host = HostsFixture::newHost(through(ofHost));
    const auto load = HostsFixture::newLoad(through(ofCaller), 4, 2000);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(waitForProgress(500));
        ofHost.cut();
        ofHost.restore();
        ASSERT_TRUE(waitForProgress(500));
        ofCaller.cut();
        ofCaller.restore();
    }
    expectGood(load->finish());
    expectAll(4, 2000, 0);
}

TEST_F(NatsServiceTest, APausedHostLeavesWhatItHeldBack) {
    // All of one source, so that the executor holds them back behind the one that runs.
    const auto paused = newHost();
    const auto load = HostsFixture::newLoad(m_server.url(), 1, 100, "work 10000");
    ASSERT_TRUE(waitForProgress(10));
    paused->signal(SIGSTOP);
    const auto standby = newHost();
    ASSERT_TRUE(waitForProgress(10)) << "nobody took over";
    paused->signal(SIGCONT);
    expectGood(load->finish());
    paused->signal(SIGTERM);
    expectGood(paused->finish());
    expectAll(1, 100, 2); // what ran when it was paused, and what had just been done
}

TEST_F(NatsServiceTest, AnOrderlyStopLeavesTheRestToTheNextHost) {
    auto host = newHost();
    const auto load = HostsFixture::newLoad(m_server.url(), 4, 200, "work 5000");
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(waitForProgress(50));
        host->signal(SIGTERM);
        expectGood(host->finish());
        host = newHost();
    }
    expectGood(load->finish()); // no request has failed
    expectAll(4, 200, 0);
}

TEST_F(NatsServiceTest, AStreamMadeAnewIsReadFromItsBeginning) {
    const auto host = newHost();
    expectGood(newLoad(50)->finish());
    NatsConnection(connectionOptions())
        .call("STREAM.DELETE.service", nullptr, std::chrono::seconds(5));
    const auto maker = newHost();
    expectGood(newLoad(50)->finish());
    EXPECT_EQ(history().count(), 400U);
}

TEST_F(NatsServiceTest, KnowsARepeatedRequestAndNoOtherOne) {
    const auto host = newHost();
    const auto callAs = [this](const std::string& caller, const std::string& source) {
        return newCall(m_server.url(), {"--caller", caller, "--source", source, "--data",
                                        source + " 1", "--deadline", "1000"})
            ->finish()
            .status;
    };
    EXPECT_EQ(callAs("anna", "source"), 0);
    EXPECT_EQ(callAs("anna", "source"), 1) << "the first call was answered, this is not run";
    EXPECT_EQ(callAs("anna", "other"), 0);
    EXPECT_EQ(callAs("bert", "source"), 0);
    const auto callWithoutSource = [this](const Arguments& caller) {
        return newCall(m_server.url(), joined({"--data", "x 1", "--deadline", "1000"}, caller))
            ->finish()
            .status;
    };
    EXPECT_EQ(callWithoutSource({"--caller", "carla"}), 0);
    EXPECT_EQ(callWithoutSource({"--caller", "carla"}), 1) << "carla repeats it";
    EXPECT_EQ(callWithoutSource({}), 0);
    EXPECT_EQ(callWithoutSource({}), 0);
    EXPECT_EQ(history().count(), 6U);
}

TEST_F(NatsServiceTest, AStreamThatCountsAgainFromANumberBeforeIsRead) {
    const auto host = newHost();
    expectGood(HostsFixture::newLoad(m_server.url(), 1, 10)->finish());
    ASSERT_TRUE(waitForRest(0));
    m_server.kill();
    m_server.keepStore();
    m_server.start();
    expectGood(HostsFixture::newLoad(m_server.url(), 4, 500)->finish());
    m_server.kill();
    m_server.bringBackStore();
    m_server.start();
    expectGood(HostsFixture::newLoad(m_server.url(), 8, 100)->finish());
    EXPECT_EQ(history().lost("source", 8, 100), 0U);
    EXPECT_EQ(history().count(), 10U + 2000 + 800);
}

TEST_F(NatsServiceTest, FindsTheLastOfThoseThatWereAcknowledgedOutOfTheirOrder) {
    std::ostringstream input;
    for (const char* const data : {"first 1 work 100000", "left 1 work 2000000", "last 1"})
        input << R"({"kind": "request", "interface": "Recording", "protocol": "run", "source": ")"
              << std::string(data).substr(0, std::string(data).find(' ')) << R"(", "data": ")"
              << data << "\"}\n";
    auto host = newHost();
    const auto call = newCall(m_server.url(), {"--input", "-"}, input.str());
    ASSERT_TRUE(waitFor(2));
    ASSERT_TRUE(waitForRest(1));
    host->signal(SIGKILL);
    host = newHost();
    expectGood(call->finish());
}

TEST_F(NatsServiceTest, HostsShareThePartitionsAndTakeOverThoseOfADeadOne) {
    const Arguments partitions{"--partitions", "8"};
    std::vector<std::unique_ptr<Process>> hosts;
    for (int i = 0; i < 4; ++i)
        hosts.push_back(newHost(partitions));
    const auto load = HostsFixture::newLoad(m_server.url(), 16, 500);
    ASSERT_TRUE(waitForProgress(1000));
    hosts.front()->signal(SIGKILL);
    expectGood(load->finish());
    expectAll(16, 500, 8 * kUnacknowledged);
}

TEST_F(NatsServiceTest, ARequestThatKillsItsHostsIsGivenUp) {
    constexpr int deliveries = 3;
    // The service dies of the one, and the others are beside and behind it.
    const auto poison =
        newCall(m_server.url(), {"--source", "source-9", "--data", "source-9 1 die"});
    std::unique_ptr<Process> load;
    for (int i = 0; i < deliveries; ++i) {
        const auto host = newHost({"--max-deliveries", std::to_string(deliveries)});
        if (i == 0)
            load = newLoad(100);
        EXPECT_EQ(host->finish().status, -SIGKILL) << "attempt " << i + 1;
    }
    const auto host = newHost({"--max-deliveries", std::to_string(deliveries)});
    const auto answer = poison->finish();
    EXPECT_EQ(answer.status, 1);
    EXPECT_TRUE(contains(answer.output, "failed: the request was given up: its host died 3 times"));
    expectGood(load->finish());
    host->signal(SIGTERM);
    EXPECT_TRUE(contains(host->finish().errors, "given up"));
    expectAll(4, 100, deliveries * kUnacknowledged);
}

TEST_F(NatsServiceTest, ASilentServerHoldsUpAndLosesNothing) {
    const auto host = newHost();
    const auto load = newLoad(1000);
    ASSERT_TRUE(waitForProgress(500));
    m_server.pause();
    ASSERT_TRUE(host->waitFor("its lease ran out")) << "the host never noticed";
    m_server.resume();
    expectGood(load->finish());
    expectAll(4, 1000, 0);
}

TEST_F(NatsServiceTest, AHostEndsWithoutItsServer) {
    const auto host = newHost();
    const auto load = newLoad(1000);
    ASSERT_TRUE(waitForProgress(500));
    m_server.kill();
    host->signal(SIGTERM);
    expectGood(host->finish());
}

TEST_F(NatsServiceTest, WhatTakesLongIsNotDeliveredAgain) {
    const auto host = newHost({"--acknowledge-within", "1000", "--max-unacknowledged", "4"});
    // Four are in work at any time, and each takes longer than it may stay unmentioned.
    expectGood(HostsFixture::newLoad(m_server.url(), 2, 4, "work 700000")->finish());
    expectAll(2, 4, 0);
    host->signal(SIGTERM);
    const auto result = host->finish();
    EXPECT_TRUE(contains(result.output, "8 requests"));
    EXPECT_FALSE(contains(result.errors, "is read again"));
}

TEST_F(NatsServiceTest, AReaderThatFailsGivesItsPartitionsBack) {
    NatsChannelOptions options;
    options.connection = connectionOptions();
    options.lease = std::chrono::hours(1);
    NatsChannel channel(options);
    ASSERT_TRUE(waitForRest(2, "KV_service-leases")) << "the host's presence, and its partition";
    LogCapture log;
    log.throwOn("cannot be decoded");
    NatsConnection(connectionOptions())
        .publish("service.requests.0.-.stranger.run.line", "garbage");
    CommsChannelDataContainerMessage msg;
    EXPECT_FALSE(channel.readMessage(msg));
    EXPECT_TRUE(waitForRest(0, "KV_service-leases"));
}

TEST_F(NatsServiceTest, RefusesWhatCannotBeARequest) {
    const auto host = newHost();
    NatsConnection stranger(connectionOptions());
    ASSERT_TRUE(stranger.publish("service.requests.0.-.stranger.run.line", "garbage"));
    ASSERT_TRUE(stranger.publish("service.requests.0", "on no caller's subject"));

    const auto large = newCall(m_server.url(), {"--input", "-", "--max-message", "10000000"},
                               "{\"kind\": \"request\", \"interface\": \"Recording\", "
                               "\"protocol\": \"run\", \"data\": \"" +
                                   std::string(2000000, 'x') + "\"}\n")
                           ->finish();
    EXPECT_EQ(large.status, 2);
    EXPECT_TRUE(contains(large.errors, "are the limit"));

    expectGood(newLoad(10)->finish());
    host->signal(SIGTERM);
    EXPECT_TRUE(
        contains(host->finish().output, "40 requests, 0 timer events, 0 legacy; 1 refused"));
}

} // namespace
} // namespace mirel
