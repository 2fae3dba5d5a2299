#pragma once

#include "channels/ChannelCounters.h"
#include "channels/zmq/ZmqCaller.h"
#include "channels/zmq/ZmqChannel.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/MirelException.h"
#include "runtime/values/Answer.h"
#include "runtime/values/AnswerSink.h"
#include "testkit/TemporaryFolder.h"
#include "tests/system/Support.h"

#include <chrono>
#include <memory>
#include <string>

namespace mirel {

constexpr std::chrono::milliseconds kPatience{20000}; ///< for what must happen

/// The text of the exception that the call ends with, "none" without one.
template <typename Call>
std::string failureOf(Call call) {
    try {
        call();
        return "none";
    } catch (const MirelException& failure) {
        return failure.message();
    }
}

/// A channel with the test as its service.
class ChannelFixture : public testing::Test {
protected:
    ChannelFixture() { m_options.url = "ipc://" + m_folder.path("service"); }

    /// To be called after the test has changed `m_options`.
    void open() { m_channel = std::make_unique<ZmqChannel>(m_options); }

    /// Opens the channel if it is not open.
    std::unique_ptr<ZmqCaller> newCaller() {
        if (!m_channel)
            open();
        ZmqCallerOptions options;
        options.url = m_channel->url();
        options.patience = kPatience;
        return std::make_unique<ZmqCaller>(options);
    }

    static CommsChannelDataContainerMessage request(long id, const std::string& data = "data") {
        CommsChannelDataContainerMessage msg;
        msg.setRequestId(id);
        msg.sourceChannel() = "source";
        msg.interface() = "Interface";
        msg.protocol() = "protocol";
        msg.setData(data);
        return msg;
    }

    static void send(ZmqCaller& caller, CommsChannelDataContainerMessage msg) {
        ASSERT_TRUE(caller.send(msg, kPatience));
    }

    static Answer receive(ZmqCaller& caller) { return caller.receive(kPatience).value(); }

    /// The next message that the service reads. False when there is none any more.
    bool read(CommsChannelDataContainerMessage& msg) {
        const bool read = m_channel->readMessage(msg);
        if (read)
            m_channel->answerSink()->accept(msg.requestId(), msg.callbackChannel());
        return read;
    }
    CommsChannelDataContainerMessage read() {
        CommsChannelDataContainerMessage msg;
        EXPECT_TRUE(read(msg));
        return msg;
    }

    /// Answers a message that was read.
    void answer(CommsChannelDataContainerMessage& msg, const std::string& data) {
        m_channel->answerSink()->answer(
            {true, msg.requestId(), msg.sourceChannel(), msg.callbackChannel(), data});
    }

    /// Answers a message although it has been answered, as no executor would.
    void answerOnceMore(CommsChannelDataContainerMessage& msg, const std::string& data) {
        m_channel->answerSink()->accept(msg.requestId(), msg.callbackChannel());
        answer(msg, data);
    }

    /// One request to and fro.
    void expectService(ZmqCaller& caller, long id) {
        send(caller, request(id));
        auto received = read();
        ASSERT_EQ(received.requestId(), id);
        answer(received, "served");
        const Answer answered = receive(caller);
        EXPECT_EQ(answered.requestId, id) << answered.data;
        EXPECT_EQ(answered.data, "served");
    }

    const TemporaryFolder m_folder;
    ZmqChannelOptions m_options;
    std::unique_ptr<ZmqChannel> m_channel;
};

} // namespace mirel
