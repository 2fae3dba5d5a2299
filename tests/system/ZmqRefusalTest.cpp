#include "tests/system/ChannelFixture.h"

#include "channels/Envelope.h"
#include "runtime/values/MessageRules.h"

#include <vector>
#include <zmq.hpp>

namespace mirel {
namespace {

constexpr std::size_t kLimit = 10000;

/// Talks to the channel as a faulty or foreign caller might.
class ZmqRefusalTest : public ChannelFixture {
protected:
    ZmqRefusalTest() {
        m_options.maxMessageBytes = kLimit;
        open();
        m_stranger.set(zmq::sockopt::linger, 0);
        m_stranger.set(zmq::sockopt::rcvtimeo, static_cast<int>(kPatience.count()));
        m_stranger.set(zmq::sockopt::rcvhwm, 1);
        m_stranger.connect(m_options.url);
    }

    void send(const std::vector<std::string>& frames) {
        for (const std::string& frame : frames)
            m_stranger.send(zmq::buffer(frame), &frame == &frames.back()
                                                    ? zmq::send_flags::none
                                                    : zmq::send_flags::sndmore);
    }

    void send(CommsChannelDataContainerMessage msg) { send({encode(msg)}); }

    Answer receive() {
        zmq::message_t bytes;
        EXPECT_TRUE(m_stranger.recv(bytes));
        return decodeAnswer(bytes.to_string_view());
    }

    void expectFailure(const std::string& why) {
        const Answer failure = receive();
        EXPECT_FALSE(failure.succeeded);
        EXPECT_EQ(failure.requestId, 1);
        EXPECT_TRUE(contains(failure.data, why));
    }

    zmq::context_t m_context;
    zmq::socket_t m_stranger{m_context, zmq::socket_type::dealer};
};

TEST_F(ZmqRefusalTest, IsCountedAndTheServiceServesOn) {
    auto tooLarge = request(1, std::string(2 * kLimit, 'x'));
    auto priorityTooHigh = request(1);
    priorityTooHigh.setPriority(MirelThreadPriority{3});
    auto priorityTooLow = request(1);
    priorityTooLow.setPriority(MirelThreadPriority{-1});
    auto legacyWithBadPriority = priorityTooHigh;
    legacyWithBadPriority.protocol().clear();
    auto timerWithoutIdentifier = request(1, "tomorrow");
    timerWithoutIdentifier.setMsgType(kTimerEvent);

    // With a part of the failure that the caller gets; empty: none.
    const std::pair<std::vector<std::string>, std::string> refusals[] = {
        {{"hello"}, ""},
        {{""}, ""},
        {{"hello", "there", "world"}, ""},
        {{encode(Answer{})}, ""},
        {{encode(tooLarge)}, "10000 are the limit"},
        {{encode(priorityTooHigh)}, "priority is 3"},
        {{encode(priorityTooLow)}, "priority is -1"},
        {{encode(legacyWithBadPriority)}, ""},
        {{encode(timerWithoutIdentifier)}, ""},
    };
    unsigned long count = 0;
    for (const auto& [frames, failure] : refusals) {
        SCOPED_TRACE(++count);
        send(frames);
        if (!failure.empty())
            expectFailure(failure);
        // The executor reads only the good one, and the next answer is for that.
        send(request(2));
        auto msg = read();
        ASSERT_EQ(msg.requestId(), 2);
        answer(msg, "served");
        ASSERT_EQ(receive().requestId, 2);
        EXPECT_EQ(m_channel->counters()->refused.count(), count);
        EXPECT_EQ(m_channel->counters()->received, count);
    }
}

TEST_F(ZmqRefusalTest, ACallerFarBeyondTheLimitIsDisconnected) {
    // Not counted: nobody has read it. The other caller shows that the channel lives.
    send({std::string(5 * kLimit, 'x')});
    expectService(*newCaller(), 1);
    EXPECT_EQ(m_channel->counters()->refused.count(), 0U);
    EXPECT_EQ(m_channel->counters()->received, 1U);
}

TEST_F(ZmqRefusalTest, AnAnswerBeyondTheLimitBecomesAFailure) {
    send(request(1));
    auto received = read();
    answer(received, std::string(kLimit + 1, 'x'));
    expectFailure("10000 are the limit");
}

TEST_F(ZmqRefusalTest, ACallerThatTakesNoAnswersLosesItsOwnOnly) {
    send(request(1));
    auto fromStranger = read();
    constexpr unsigned long answers = 6000;
    for (unsigned long i = 0; i < answers; ++i)
        answerOnceMore(fromStranger, std::string(kLimit / 2, 'x'));
    expectService(*newCaller(), 2);
    const auto& counters = *m_channel->counters();
    EXPECT_GT(counters.answersDropped.count(), 0U);
    EXPECT_EQ(counters.answersDropped.count() + counters.answersSent, answers + 1);
}

} // namespace
} // namespace mirel
