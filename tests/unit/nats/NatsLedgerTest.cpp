#include "channels/nats/read/NatsLedger.h"
#include "channels/nats/read/NatsOutbox.h"
#include "tests/unit/Support.h"

#include <gtest/gtest.h>

namespace mirel {
namespace {

class NatsLedgerTest : public testing::Test {
protected:
    /// Messages of partition 1, each with its number as the subject to acknowledge to.
    void add(std::uint64_t subject, std::initializer_list<std::uint64_t> sequences) {
        for (const std::uint64_t sequence : sequences)
            m_ledger.add(1, subject, sequence, std::to_string(sequence));
    }

    std::string m_acknowledged;
    NatsLedger m_ledger{
        [this](const std::string& to, const char* how) { m_acknowledged += to + how + ' '; }};
};

TEST_F(NatsLedgerTest, AcknowledgesEachSubjectInItsOrder) {
    add(7, {1, 3, 4});
    add(8, {2});
    m_ledger.settle(1, 4, "+");
    m_ledger.settle(1, 3, "-");
    EXPECT_EQ(m_acknowledged, "");
    EXPECT_EQ(m_ledger.unsettled(1), 2U);
    m_ledger.wakeReader(1);
    EXPECT_TRUE(m_ledger.settle(1, 2, "+"));
    EXPECT_FALSE(m_ledger.settle(1, 1, "+"));
    EXPECT_EQ(m_acknowledged, "2+ 1+ 3- 4+ ");
    EXPECT_EQ(m_ledger.unsettled(1), 0U);
    EXPECT_FALSE(m_ledger.settle(1, 1, "+")) << "once more";
    EXPECT_EQ(m_acknowledged, "2+ 1+ 3- 4+ ");
}

TEST_F(NatsLedgerTest, LeavesInTheStreamWhatIsBehindOneThatStays) {
    add(7, {1, 2, 4, 5});
    add(8, {3, 6});
    m_ledger.settle(1, 4, "+");
    m_ledger.drop(1, 2);
    m_ledger.settle(1, 1, "+");
    m_ledger.settle(1, 5, "+");
    m_ledger.forget(1, 3);
    m_ledger.settle(1, 6, "+");
    EXPECT_EQ(m_acknowledged, "1+ ");
    EXPECT_EQ(m_ledger.unsettled(1), 0U);
    EXPECT_EQ(m_ledger.takeFirstDropped(1), 2U) << "a forgotten one was not handed out";
    EXPECT_EQ(m_ledger.takeFirstDropped(1), 0U);
}

TEST_F(NatsLedgerTest, TellsWhatTheServerHasNotHeardAbout) {
    add(7, {1, 2});
    m_ledger.settle(1, 2, "+");
    EXPECT_EQ(m_ledger.silentFor(std::chrono::hours(1)).size(), 0U);
    EXPECT_EQ(m_ledger.silentFor(std::chrono::seconds(0)).size(), 2U)
        << "the one that waits for the other included";
}

TEST(NatsOutbox, HoldsUpNobodyWhileTheServerTakesNothing) {
    Events sent;
    Gate server;
    NatsOutbox outbox([&](const NatsOutbox::Item& item) {
        sent.add("at " + item.to);
        server.pass();
    });
    NatsLedger ledger([&](const std::string& to, const char* how) { outbox.add({to, how, {}}); });
    for (const std::uint64_t sequence : {1U, 2U, 3U})
        ledger.add(1, 7, sequence, std::to_string(sequence));
    ledger.settle(1, 1, "+");
    sent.waitFor(1); // it is being sent now
    ledger.settle(1, 3, "+");
    ledger.settle(1, 2, "+");
    EXPECT_EQ(ledger.unsettled(1), 0U);
    EXPECT_FALSE(outbox.waitUntilSent(std::chrono::milliseconds(1)));
    server.open();
    EXPECT_TRUE(outbox.waitUntilSent(std::chrono::minutes(1)));
    EXPECT_EQ(sent.waitFor(3), (std::vector<std::string>{"at 1", "at 2", "at 3"}));
}

} // namespace
} // namespace mirel
