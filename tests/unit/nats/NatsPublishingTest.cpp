#include "channels/nats/publish/NatsAnswerOrder.h"
#include "channels/nats/publish/NatsMessageIds.h"
#include "channels/nats/publish/NatsSendWindow.h"

#include <gtest/gtest.h>
#include <set>

namespace mirel {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const NatsSendWindow::Time start = std::chrono::steady_clock::now();

std::optional<NatsSendWindow::Transmission> add(NatsSendWindow& window, const std::string& id) {
    return window.add({id.substr(0, 1), "subject", id, "bytes"}, start);
}

TEST(NatsSendWindow, SendsOneMessageOfEachSourceAtATime) {
    NatsSendWindow window(4, "inbox.");
    const auto a1 = add(window, "a1"), b1 = add(window, "b1");
    ASSERT_TRUE(a1 && b1);
    EXPECT_FALSE(add(window, "a2"));
    EXPECT_FALSE(window.full());
    EXPECT_FALSE(add(window, "a3"));
    EXPECT_TRUE(window.full());

    const auto a2 = window.confirmed(a1->replyTo, start);
    ASSERT_TRUE(a2);
    EXPECT_EQ(a2->message->id, "a2");
    EXPECT_FALSE(window.full());
    EXPECT_FALSE(window.confirmed(a1->replyTo, start)) << "it was repeated";
    EXPECT_FALSE(window.confirmed(b1->replyTo, start));
    EXPECT_EQ(window.confirmed(a2->replyTo, start).value().message->id, "a3");
    EXPECT_EQ(window.unconfirmed(), 1U);
}

TEST(NatsSendWindow, RepeatsWhatIsNotConfirmedInTime) {
    NatsSendWindow window(10, "inbox.");
    const auto a1 = add(window, "a1"), b1 = add(window, "b1");
    for (const int pause : {10, 20, 40, 80, 160, 320, 500, 500}) {
        window.refused(b1->replyTo, start);
        EXPECT_TRUE(window.overdue(start + milliseconds(pause - 1)).empty());
        const auto refused = window.overdue(start + milliseconds(pause));
        ASSERT_EQ(refused.size(), 1U);
        EXPECT_EQ(refused[0].message->id, "b1");
    }
    EXPECT_EQ(window.overdue(start + seconds(2)).size(), 1U) << "the other one";
    EXPECT_EQ(window.all(start + seconds(2)).size(), 2U) << "after a lost connection";
}

TEST(NatsSendWindow, KeepsNoMoreWhenItRepeatsMore) {
    NatsSendWindow window(10, "inbox.");
    add(window, "a1");
    add(window, "b1");
    std::set<std::string> replyTo; // the window stores each until it is confirmed
    for (int attempt = 1; attempt <= 1000; ++attempt)
        for (const auto& transmission : window.overdue(start + seconds(2 * attempt)))
            replyTo.insert(transmission.replyTo);
    EXPECT_EQ(replyTo.size(), 2U);
}

TEST(NatsMessageIds, CannotBeToldWithoutTheSecret) {
    const auto one = NatsMessageIds::unrepeatable(), other = NatsMessageIds::unrepeatable();
    EXPECT_EQ(one.of("a message"), one.of("a message"));
    EXPECT_NE(one.of("a message"), one.of("another"));
    EXPECT_NE(one.of("a message"), other.of("a message"));
}

class NatsAnswerOrderTest : public testing::Test {
protected:
    void sent(const std::string& source, std::initializer_list<long> ids) {
        for (const long id : ids)
            m_order.sent(source, id);
    }

    /// The answers that are given to the caller when these have arrived.
    std::string come(const std::string& source, std::initializer_list<long> ids) {
        for (const long id : ids)
            m_possible = m_order.came(Answer{true, id, source, "", ""}, start);
        return given(start);
    }
    std::string given(NatsAnswerOrder::Time now) {
        std::string result;
        while (const auto answer = m_order.next(now))
            result += answer->sourceChannel + std::to_string(answer->requestId) + ' ';
        return result;
    }

    NatsAnswerOrder m_order;
    bool m_possible = false; ///< that the last one that came answers what was sent
};

TEST_F(NatsAnswerOrderTest, GivesEachSourcesAnswersInOrderAndOnce) {
    sent("a", {5, 3, 4});
    sent("b", {1});
    EXPECT_EQ(come("a", {4, 3, 3}), "");
    EXPECT_EQ(come("b", {1, 1, 2}), "b1 ")
        << "the others are a repetition, and an answer to no request that was sent";
    EXPECT_EQ(come("a", {5}), "a5 a3 a4 ");
    EXPECT_EQ(come("a", {3}), "");
    EXPECT_TRUE(m_possible) << "a repetition";
    EXPECT_FALSE(m_order.nextChange());
    for (const long never : {-1L, 0L, 6L}) {
        EXPECT_EQ(come("a", {never}), "");
        EXPECT_FALSE(m_possible) << never;
    }
}

TEST_F(NatsAnswerOrderTest, WaitsForALostAnswerNotForEver) {
    sent("a", {1, 2, 3});
    EXPECT_EQ(come("a", {2}), "");
    const auto until = m_order.nextChange().value();
    EXPECT_EQ(given(until - milliseconds(1)), "");
    EXPECT_EQ(given(until), "a2 ");
    EXPECT_EQ(come("a", {1}), "") << "too late";
    EXPECT_EQ(come("a", {3}), "a3 ");
}

} // namespace
} // namespace mirel
