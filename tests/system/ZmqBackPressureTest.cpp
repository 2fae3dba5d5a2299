#include "tests/system/ChannelFixture.h"

#include "standalone/Envelope.h"

#include <zmq.hpp>

namespace mirel {
namespace {

class ZmqBackPressureTest : public ChannelFixture {};

/// How long nobody must have taken a message before the way counts as full.
constexpr std::chrono::milliseconds kStuck{300};

TEST_F(ZmqBackPressureTest, holdsCallersUpAndLosesNothing) {
    m_options.queueLength = 2;
    open();
    const auto caller = newCaller();
    auto first = request(0);
    ASSERT_TRUE(caller->send(first, kPatience));
    auto firstRead = read();

    const std::string data(10000, 'x');
    constexpr long tooMany = 100000;
    long sent = 0;
    for (auto msg = request(1, data); sent < tooMany && caller->send(msg, kStuck);
         msg = request(sent + 1, data))
        ++sent;
    ASSERT_LT(sent, tooMany) << "the caller was never held up";
    EXPECT_LE(m_channel->counters()->received, 4U);

    // The other direction goes on.
    answer(firstRead, "first");
    EXPECT_EQ(caller->receive(kPatience).value().data, "first");

    for (long id = 1; id <= sent; ++id) {
        auto msg = read();
        ASSERT_EQ(msg.requestId(), id);
        answer(msg, "");
        ASSERT_EQ(caller->receive(kPatience).value().requestId, id);
    }
    expectService(*caller, sent + 1);
    EXPECT_EQ(m_channel->counters()->refused.count(), 0U);
}

TEST_F(ZmqBackPressureTest, closingAnswersTheMessageThatTheQueueHadNoRoomFor) {
    m_options.queueLength = 1;
    open();
    const auto caller = newCaller();
    constexpr long requests = 5;
    for (long id = 1; id <= requests; ++id) {
        auto msg = request(id);
        ASSERT_TRUE(caller->send(msg, kPatience));
    }
    m_channel->close();
    for (long id = 1; id <= requests; ++id)
        ASSERT_TRUE(caller->receive(kPatience)) << id;
}

TEST_F(ZmqBackPressureTest, aCallerThatTakesNoAnswersLosesItsOwnOnly) {
    open();
    const auto caller = newCaller();
    zmq::context_t context;
    zmq::socket_t slow(context, zmq::socket_type::dealer);
    slow.set(zmq::sockopt::rcvhwm, 1);
    slow.set(zmq::sockopt::linger, 0);
    slow.connect(m_options.url);
    auto msg = request(1);
    slow.send(zmq::buffer(encode(msg)), zmq::send_flags::none);
    auto fromSlow = read();

    constexpr int answers = 3000;
    for (int i = 0; i < answers; ++i)
        answer(fromSlow, std::string(10000, 'x'));
    expectService(*caller, 2);
    const auto& counters = *m_channel->counters();
    EXPECT_GT(counters.answersDropped.count(), 0U);
    EXPECT_EQ(counters.answersDropped.count() + counters.answersSent, answers + 1U);
}

} // namespace
} // namespace mirel
