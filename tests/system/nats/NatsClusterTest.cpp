#include "testkit/NatsCluster.h"
#include "tests/system/nats/HostsFixture.h"

namespace mirel {
namespace {

/// Three servers, three replicas, and load while some of them are killed. An election takes the
/// server up to 17 s.
class NatsClusterTest : public HostsFixture {
protected:
    void SetUp() override {
        m_host = newHost(m_cluster.url(), {"--replicas", "3"});
        m_load = newLoad(m_cluster.url(), 8, 400);
        ASSERT_TRUE(waitForProgress(500));
    }

    void expectNothingLost() {
        expectGood(m_load->finish());
        m_host->signal(SIGTERM);
        expectGood(m_host->finish());
        expectAll(8, 400, 0);
    }

    void killAndRestart(NatsServer& server) {
        server.kill();
        ASSERT_TRUE(waitForProgress(300)) << "without " << server.name();
        server.start();
    }

    NatsCluster m_cluster{m_folder.path("cluster")};
    std::unique_ptr<Process> m_host;
    std::unique_ptr<Process> m_load;
};

TEST_F(NatsClusterTest, SurvivesAFollower) {
    killAndRestart(m_cluster.follower());
    expectNothingLost();
}

TEST_F(NatsClusterTest, SurvivesTheStreamsLeader) {
    killAndRestart(m_cluster.streamLeader());
    expectNothingLost();
}

TEST_F(NatsClusterTest, SurvivesTheConsumersLeader) {
    killAndRestart(m_cluster.consumerLeader());
    expectNothingLost();
}

TEST_F(NatsClusterTest, WaitsForAMajority) {
    NatsServer& leader = m_cluster.streamLeader();
    NatsServer& follower = m_cluster.follower();
    leader.kill();
    follower.kill();
    ASSERT_TRUE(m_host->waitFor("its lease ran out"));
    leader.start();
    follower.start();
    expectNothingLost();
}

} // namespace
} // namespace mirel
