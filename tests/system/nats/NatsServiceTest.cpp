#include "tests/system/nats/HostsFixture.h"

namespace mirel {
namespace {

constexpr unsigned long kUnacknowledged = 256; ///< at most, by default

/// One server.
class NatsServiceTest : public HostsFixture {
protected:
    std::unique_ptr<Process> newHost(const Arguments& more = {}) const {
        return HostsFixture::newHost(m_server.url(), more);
    }
    std::unique_ptr<Process> newLoad(long ofEach) const {
        return HostsFixture::newLoad(m_server.url(), 4, ofEach);
    }

    NatsServer m_server;
};

TEST_F(NatsServiceTest, ServesInOrderAndLeavesNothingBehind) {
    const auto host = newHost();
    expectGood(newLoad(500)->finish());
    host->signal(SIGTERM);
    const auto result = host->finish();
    expectGood(result);
    EXPECT_TRUE(contains(result.output, "2000 requests, 0 timer events, 0 legacy; 0 refused"));
    expectAll(4, 500, 0);
}

TEST_F(NatsServiceTest, AHostThatIsKilledAgainAndAgainLosesNothing) {
    constexpr int kills = 3;
    const auto load = newLoad(2000);
    for (int i = 0; i < kills; ++i) {
        const auto host = newHost();
        ASSERT_TRUE(waitForProgress(500));
        host->signal(SIGKILL);
        host->finish();
    }
    const auto last = newHost();
    expectGood(load->finish());
    expectAll(4, 2000, kills * kUnacknowledged);
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

TEST_F(NatsServiceTest, AStandbyTakesOverFromAHostThatIsPaused) {
    auto paused = newHost();
    const auto load = newLoad(2000);
    ASSERT_TRUE(waitForProgress(500));
    paused->signal(SIGSTOP);
    const auto standby = newHost();
    ASSERT_TRUE(waitForProgress(500)) << "nobody took over";
    paused->signal(SIGCONT);
    expectGood(load->finish());
    for (Process* const host : {paused.get(), standby.get()}) {
        host->signal(SIGTERM);
        expectGood(host->finish());
    }
    expectAll(4, 2000, kUnacknowledged);
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

} // namespace
} // namespace mirel
