#include "tests/system/ChannelFixture.h"

#include "ServiceExecutor.h"
#include "ServiceThreadPool.h"
#include "framework/Service.h"
#include "framework/Threader.h"
#include "standalone/StandaloneContext.h"

#include <future>
#include <semaphore>
#include <thread>

namespace mirel {
namespace {

class ZmqChannelTest : public ChannelFixture {};

TEST_F(ZmqChannelTest, carriesEveryFieldOfARequest) {
    open();
    const auto caller = newCaller();
    auto sent = request(41, std::string("a\0b", 3));
    sent.channel() = "channel";
    sent.setPriority(ePriorityLow);
    sent.proxyCallMode() = "mode";
    sent.remoteContext() = "context";
    ASSERT_TRUE(caller->send(sent, kPatience));

    auto msg = read();
    EXPECT_EQ(msg.requestId(), 41);
    EXPECT_EQ(msg.getData(), std::string("a\0b", 3));
    EXPECT_EQ(msg.sourceChannel(), "source");
    EXPECT_EQ(msg.channel(), "channel");
    EXPECT_EQ(msg.priority(), ePriorityLow);
    EXPECT_EQ(msg.proxyCallMode(), "mode");
    EXPECT_EQ(msg.remoteContext(), "context");
    EXPECT_EQ(msg.callbackChannel().rfind("mirel-call-", 0), 0U) << msg.callbackChannel();
}

TEST_F(ZmqChannelTest, answersEachCallerWhoeverReadsFirst) {
    open();
    const auto first = newCaller();
    const auto second = newCaller();
    auto msg = request(1, "first");
    ASSERT_TRUE(first->send(msg, kPatience));
    auto fromFirst = read();
    msg = request(1, "second"); // the same id: only the caller tells them apart
    ASSERT_TRUE(second->send(msg, kPatience));
    auto fromSecond = read();

    answer(fromSecond, "to the second");
    answer(fromFirst, "to the first");
    EXPECT_EQ(first->receive(kPatience).value().data, "to the first");
    EXPECT_EQ(second->receive(kPatience).value().data, "to the second");
}

TEST_F(ZmqChannelTest, closeEndsABlockedRead) {
    open();
    auto reading = std::async(std::launch::async, [this] {
        CommsChannelDataContainerMessage msg;
        return m_channel->readMessage(msg);
    });
    m_channel->close();
    ASSERT_EQ(reading.wait_for(kPatience), std::future_status::ready);
    EXPECT_FALSE(reading.get());
    CommsChannelDataContainerMessage msg;
    EXPECT_FALSE(m_channel->readMessage(msg));
}

TEST_F(ZmqChannelTest, closedAnswersWhatWasNotRead) {
    open();
    const auto caller = newCaller();
    for (long id = 1; id <= 3; ++id) {
        auto msg = request(id);
        ASSERT_TRUE(caller->send(msg, kPatience));
    }
    auto wasRead = read();
    m_channel->close();
    auto late = request(4);
    ASSERT_TRUE(caller->send(late, kPatience));
    for (long id = 2; id <= 4; ++id) {
        const auto failure = caller->receive(kPatience);
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->requestId, id);
        EXPECT_FALSE(failure->succeeded);
        EXPECT_EQ(failure->data, "the service stopped before the request was read");
    }
    answer(wasRead, "still answered");
    EXPECT_EQ(caller->receive(kPatience).value().data, "still answered");
}

TEST_F(ZmqChannelTest, sendsTheLastAnswersWhenItIsDestroyed) {
    constexpr long requests = 200;
    open();
    const auto caller = newCaller();
    for (long id = 1; id <= requests; ++id) {
        auto msg = request(id);
        ASSERT_TRUE(caller->send(msg, kPatience));
    }
    for (long id = 1; id <= requests; ++id) {
        auto msg = read();
        answer(msg, std::string(10000, 'x'));
    }
    m_channel.reset();
    for (long id = 1; id <= requests; ++id)
        ASSERT_EQ(caller->receive(kPatience).value().requestId, id);
}

TEST_F(ZmqChannelTest, dropsAndCountsAnswersWhenItIsGone) {
    open();
    const auto sink = m_channel->answerSink();
    const auto counters = m_channel->counters();
    m_channel.reset();
    sink->answer({true, 1, "source", "caller", "data"});
    EXPECT_EQ(counters->answersDropped.count(), 1U);
}

TEST_F(ZmqChannelTest, countsAnswersToACallerThatIsGone) {
    open();
    const auto caller = newCaller();
    auto leaving = newCaller();
    auto msg = request(1);
    ASSERT_TRUE(leaving->send(msg, kPatience));
    auto received = read();
    leaving.reset();

    // The channel learns of it in its own time; a request of the other caller to and fro tells that
    // an answer before it has been dealt with.
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    unsigned long given = 0;
    while (m_channel->counters()->answersDropped.count() == 0 &&
           std::chrono::steady_clock::now() < deadline) {
        answer(received, "too late");
        ++given;
        expectService(*caller, static_cast<long>(given));
    }
    EXPECT_EQ(m_channel->counters()->answersDropped.count(), 1U);
    EXPECT_EQ(m_channel->counters()->answersSent, 2 * given - 1);
}

/// Blocks in its legacy message and in its requests until it is told to go on.
class BlockingService : public Service {
public:
    void timerEvent(int) override {}
    void handleMessage(const char*, int, std::string, CommsChannelIfc*,
                       CommsChannelDataContainerMessage&) override {
        m_legacyEntered.release();
        m_legacyGate.acquire();
    }

    std::binary_semaphore m_legacyEntered{0};
    std::binary_semaphore m_legacyGate{0};
    std::binary_semaphore m_requestGate{0};
};

TEST_F(ZmqChannelTest, sendsAnswersWhileALegacyMessageBlocksTheExecutor) {
    open();
    const auto caller = newCaller();
    BlockingService service;
    StandaloneContext context;
    context.addHandler<BlockingService>("Interface", "protocol",
                                        [](BlockingService& blocking, std::string_view) {
                                            blocking.m_requestGate.acquire();
                                            return "answered";
                                        });
    ServiceThreadPool pool(1, nullptr);
    ServiceExecutor executor(&service, m_channel.release(), "Interface", &context, &pool, nullptr,
                             true);
    Threader threader;
    unsigned long threadId = 0;
    executor.startThread(threader, threadId);

    auto msg = request(1);
    ASSERT_TRUE(caller->send(msg, kPatience));
    CommsChannelDataContainerMessage legacy;
    ASSERT_TRUE(caller->send(legacy, kPatience));
    const bool entered = service.m_legacyEntered.try_acquire_for(kPatience);
    service.m_requestGate.release();
    const auto answered = caller->receive(kPatience);
    service.m_legacyGate.release();
    executor.shutdown();
    pool.shutdown();
    EXPECT_TRUE(entered);
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered->data, "answered");
}

} // namespace
} // namespace mirel
