#include "tests/system/ChannelFixture.h"

#include <algorithm>
#include <future>
#include <pthread.h>
#include <thread>

namespace mirel {
namespace {

class ZmqChannelTest : public ChannelFixture {};

TEST_F(ZmqChannelTest, AFullQueueHoldsCallersUpAndLosesNothing) {
    m_options.queueLength = 2;
    const auto caller = newCaller();
    send(*caller, request(0));
    auto first = read();

    const std::string data(10000, 'x');
    constexpr std::chrono::milliseconds stuck{300}; // nobody has taken a message for so long
    constexpr long tooMany = 100000;
    long sent = 0;
    for (auto msg = request(1, data); sent < tooMany && caller->send(msg, stuck);
         msg = request(sent + 1, data))
        ++sent;
    ASSERT_LT(sent, tooMany) << "the caller was never held up";
    EXPECT_LE(m_channel->counters()->received, 4U);

    // The other direction goes on.
    answer(first, "first");
    EXPECT_EQ(receive(*caller).data, "first");

    for (long id = 1; id <= sent; ++id)
        ASSERT_EQ(read().requestId(), id);
    expectService(*caller, sent + 1);
    EXPECT_EQ(m_channel->counters()->refused.count(), 0U);
}

TEST_F(ZmqChannelTest, AThousandRequestsMayBeOnTheirWay) {
    constexpr long atOnce = 1000;
    constexpr long requests = 100 * atOnce;
    const auto caller = newCaller();
    auto serving = std::async(std::launch::async, [this] {
        for (CommsChannelDataContainerMessage msg; read(msg);)
            answer(msg, "served");
    });
    long sent = 0;
    long answered = 0;
    do {
        for (; sent < std::min(requests, answered + atOnce); ++sent)
            send(*caller, request(sent));
    } while (caller->receive(kPatience) && ++answered < requests);
    m_channel->close();
    EXPECT_EQ(answered, requests);
    EXPECT_EQ(m_channel->counters()->answersDropped.count(), 0U);
}

TEST_F(ZmqChannelTest, AnswersGoToTheirCallerWhoeverReadsFirst) {
    const auto first = newCaller();
    const auto second = newCaller();
    send(*first, request(1));
    auto fromFirst = read();
    send(*second, request(1)); // the same id: only the caller tells them apart
    auto fromSecond = read();

    answer(fromSecond, "to the second");
    answer(fromFirst, "to the first");
    EXPECT_EQ(receive(*first).data, "to the first");
    EXPECT_EQ(receive(*second).data, "to the second");
}

TEST_F(ZmqChannelTest, WhatWasNotReadIsAnsweredOnceClosed) {
    m_options.queueLength = 1; // one in the queue, one that it has no room for, others behind
    const auto caller = newCaller();
    for (long id = 1; id <= 5; ++id)
        send(*caller, request(id));
    auto wasRead = read();
    m_channel->close();
    send(*caller, request(6));
    for (long id = 2; id <= 6; ++id) {
        const Answer failure = receive(*caller);
        EXPECT_EQ(failure.requestId, id);
        EXPECT_FALSE(failure.succeeded);
        EXPECT_EQ(failure.data, "the service stopped before the request was read");
    }
    answer(wasRead, "still answered");
    EXPECT_EQ(receive(*caller).data, "still answered");
}

TEST_F(ZmqChannelTest, SendsTheLastAnswersWhenDestroyedAndDropsLaterOnes) {
    constexpr long requests = 200;
    const auto caller = newCaller();
    for (long id = 1; id <= requests; ++id) {
        send(*caller, request(id));
        auto msg = read();
        answer(msg, std::string(10000, 'x'));
    }
    const auto sink = m_channel->answerSink();
    const auto counters = m_channel->counters();
    m_channel.reset();
    for (long id = 1; id <= requests; ++id)
        ASSERT_EQ(receive(*caller).requestId, id);
    sink->answer({true, 1, "source", "caller", "data"});
    EXPECT_EQ(counters->answersDropped.count(), 1U);
}

TEST_F(ZmqChannelTest, AnAnswerToACallerThatIsGoneIsCounted) {
    const auto caller = newCaller();
    auto leaving = newCaller();
    send(*leaving, request(1));
    auto received = read();
    leaving.reset();

    // The channel notices that a little later. When the other caller's request is answered, the
    // channel has dealt with the answer before it.
    const auto counters = m_channel->counters();
    long given = 0;
    while (counters->answersDropped.count() == 0 && given < 100000) {
        answer(received, "too late");
        expectService(*caller, ++given);
    }
    EXPECT_EQ(counters->answersDropped.count(), 1U);
    EXPECT_EQ(static_cast<long>(counters->answersSent), 2 * given - 1);
}

// A cancellation that strikes while the answer is sent would end the process.
TEST_F(ZmqChannelTest, AnAnswerLeavesWhileItsThreadIsBeingCancelled) {
    const auto caller = newCaller();
    send(*caller, request(1));
    auto msg = read();
    std::thread([&] {
        pthread_cancel(pthread_self());
        answer(msg, "late");
    }).join();
    EXPECT_EQ(receive(*caller).data, "late");
}

} // namespace
} // namespace mirel
