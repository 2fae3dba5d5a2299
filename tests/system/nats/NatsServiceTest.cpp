#include "tests/system/nats/History.h"
#include "tests/system/nats/NatsServer.h"

#include <optional>

namespace mirel {
namespace {

/// A service hosted by mirel-host and called by mirel-call, over a server of the test's own.
class NatsServiceTest : public testing::Test {
protected:
    NatsServiceTest() { setenv("MIREL_HISTORY", m_folder.path("history").c_str(), 1); }

    std::unique_ptr<Process> newHost(const Arguments& more = {}) const {
        Arguments arguments{
            MIREL_HOST,    "--library", RECORDING_LIBRARY, "--creator",    "makeRecordingService",
            "--interface", "Recording", "--channel",       m_server.url(), "--lease",
            "1000"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        auto host = std::make_unique<Process>(arguments);
        EXPECT_TRUE(host->waitFor("serving")) << host->finish().errors;
        return host;
    }

    std::unique_ptr<Process> newCall(const Arguments& more) const {
        Arguments arguments{MIREL_CALL,   "--channel", m_server.url(), "--interface", "Recording",
                            "--protocol", "run",       "--deadline",   "60000"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return std::make_unique<Process>(arguments);
    }

    /// Requests that take a while, of four sources.
    std::unique_ptr<Process> newLoad(long ofEachSource) const {
        return newCall({"--load", std::to_string(4 * ofEachSource), "--sources", "4", "--source",
                        "source", "--data", "{source} {n} work 200"});
    }

    /// Every request was run, each source's in its order.
    void expectAll(long ofEachSource, unsigned long mayRepeat) const {
        const History history(m_folder.path("history"));
        EXPECT_EQ(history.lost("source", 4, ofEachSource), 0U);
        EXPECT_EQ(history.outOfOrder(), 0U);
        EXPECT_LE(history.repeated(), mayRepeat);
    }

    static void expectGood(Process::Result result) {
        EXPECT_EQ(result.status, 0) << result.output << result.errors;
    }

    const TemporaryFolder m_folder;
    NatsServer m_server;
};

constexpr unsigned long kUnacknowledged = 256; ///< by default

TEST_F(NatsServiceTest, ServesInOrder) {
    const auto host = newHost();
    expectGood(newLoad(500)->finish());
    host->signal(SIGTERM);
    const auto result = host->finish();
    expectGood(result);
    EXPECT_TRUE(contains(result.output, "2000 requests, 0 timer events, 0 legacy; 0 refused"));
    expectAll(500, 0);
}

TEST_F(NatsServiceTest, AHostThatIsKilledLosesNothing) {
    constexpr int kills = 3;
    auto host = newHost();
    const auto load = newLoad(3000);
    for (int i = 0; i < kills; ++i) {
        const History before(m_folder.path("history"));
        host->signal(SIGKILL);
        host->finish();
        host = newHost();
    }
    expectGood(load->finish());
    expectAll(3000, kills * kUnacknowledged);
}

TEST_F(NatsServiceTest, AServerThatIsKilledLosesNothing) {
    const auto host = newHost();
    const auto load = newLoad(3000);
    m_server.kill();
    m_server.start();
    expectGood(load->finish());
    host->signal(SIGTERM);
    expectGood(host->finish());
    expectAll(3000, 0);
}

} // namespace
} // namespace mirel
