#include "tests/system/ChannelFixture.h"

#include "standalone/Envelope.h"
#include "standalone/MessageRules.h"

#include <functional>
#include <vector>
#include <zmq.hpp>

namespace mirel {
namespace {

constexpr std::size_t kLimit = 10000;

struct Refusal {
    const char* name;
    std::vector<std::string> frames;
    const char* answer; ///< part of the failure that the caller gets; empty: none

    friend void PrintTo(const Refusal& value, std::ostream* out) { *out << value.name; }
};

using Change = std::function<void(CommsChannelDataContainerMessage&)>;

std::string envelope(const Change& change) {
    CommsChannelDataContainerMessage msg;
    msg.setRequestId(1);
    msg.interface() = "Interface";
    msg.protocol() = "protocol";
    change(msg);
    return encode(msg);
}

/// Speaks to the channel as a caller might that is not ours.
class StrangerFixture : public ChannelFixture {
protected:
    StrangerFixture() {
        m_options.maxMessageBytes = kLimit;
        open();
        m_stranger.set(zmq::sockopt::linger, 0);
        m_stranger.set(zmq::sockopt::rcvtimeo, static_cast<int>(kPatience.count()));
        m_stranger.connect(m_options.url);
    }

    void send(const std::vector<std::string>& frames) {
        for (std::size_t i = 0; i < frames.size(); ++i)
            m_stranger.send(zmq::buffer(frames[i]), i + 1 < frames.size() ? zmq::send_flags::sndmore
                                                                          : zmq::send_flags::none);
    }

    Answer receive() {
        zmq::message_t bytes;
        EXPECT_TRUE(m_stranger.recv(bytes));
        return decodeAnswer(bytes.to_string_view());
    }

    zmq::context_t m_context;
    zmq::socket_t m_stranger{m_context, zmq::socket_type::dealer};
};

class ZmqRefusalTest : public StrangerFixture, public testing::WithParamInterface<Refusal> {};

TEST_P(ZmqRefusalTest, countsAndServesOn) {
    send(GetParam().frames);
    const std::string expected = GetParam().answer;
    if (!expected.empty()) {
        const Answer failure = receive();
        EXPECT_FALSE(failure.succeeded);
        EXPECT_EQ(failure.requestId, 1);
        EXPECT_NE(failure.data.find(expected), std::string::npos) << failure.data;
    }
    // The executor sees the good one only, and the next answer is its.
    auto good = request(2);
    send({encode(good)});
    auto msg = read();
    EXPECT_EQ(msg.requestId(), 2);
    answer(msg, "served");
    EXPECT_EQ(receive().requestId, 2);
    EXPECT_EQ(m_channel->counters()->refused.count(), 1U);
    EXPECT_EQ(m_channel->counters()->received, 1U);
}

INSTANTIATE_TEST_SUITE_P(
    All, ZmqRefusalTest,
    testing::Values(Refusal{"noEnvelope", {"hello"}, ""}, Refusal{"nothing", {""}, ""},
                    Refusal{"severalFrames", {"hello", "there", "world"}, ""},
                    Refusal{"anAnswer", {encode(Answer{})}, ""},
                    Refusal{
                        "tooLarge",
                        {envelope([](auto& msg) { msg.setData(std::string(2 * kLimit, 'x')); })},
                        "10000 are the limit"},
                    Refusal{"priorityTooHigh",
                            {envelope([](auto& msg) { msg.setPriority(MirelThreadPriority{3}); })},
                            "priority is 3"},
                    Refusal{"priorityTooLow",
                            {envelope([](auto& msg) { msg.setPriority(MirelThreadPriority{-1}); })},
                            "priority is -1"},
                    Refusal{"legacyWithBadPriority",
                            {envelope([](auto& msg) {
                                msg.protocol().clear();
                                msg.setPriority(MirelThreadPriority{3});
                            })},
                            ""},
                    Refusal{"timerWithoutIdentifier",
                            {envelope([](auto& msg) {
                                msg.setMsgType(kTimerEvent);
                                msg.setData("tomorrow");
                            })},
                            ""}),
    [](const auto& param) { return param.param.name; });

class ZmqSizeTest : public StrangerFixture {};

TEST_F(ZmqSizeTest, disconnectsACallerFarBeyondTheLimit) {
    // Not counted: nobody has read it. The other caller shows that the channel lives.
    send({std::string(5 * kLimit, 'x')});
    const auto caller = newCaller();
    expectService(*caller, 1);
    EXPECT_EQ(m_channel->counters()->refused.count(), 0U);
    EXPECT_EQ(m_channel->counters()->received, 1U);
}

TEST_F(ZmqSizeTest, turnsAnAnswerBeyondTheLimitIntoAFailure) {
    auto msg = request(1);
    send({encode(msg)});
    auto received = read();
    answer(received, std::string(kLimit + 1, 'x'));
    const Answer failure = receive();
    EXPECT_FALSE(failure.succeeded);
    EXPECT_NE(failure.data.find("10000 are the limit"), std::string::npos) << failure.data;
}

TEST_F(ZmqSizeTest, isRefusedByTheCallerItself) {
    ZmqCallerOptions options;
    options.url = m_options.url;
    options.maxMessageBytes = 100;
    ZmqCaller caller(options);
    auto msg = request(1, std::string(100, 'x'));
    EXPECT_ANY_THROW(caller.send(msg, kPatience));
}

} // namespace
} // namespace mirel
