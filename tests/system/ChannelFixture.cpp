#include "tests/system/ChannelFixture.h"

namespace mirel {

std::unique_ptr<ZmqCaller> ChannelFixture::newCaller() {
    ZmqCallerOptions options;
    options.url = m_channel->url();
    options.patience = kPatience;
    options.maxMessageBytes = 64 * 1024 * 1024;
    return std::make_unique<ZmqCaller>(options);
}

CommsChannelDataContainerMessage ChannelFixture::request(long id, const std::string& data) {
    CommsChannelDataContainerMessage msg;
    msg.setRequestId(id);
    msg.sourceChannel() = "source";
    msg.interface() = "Interface";
    msg.protocol() = "protocol";
    msg.setData(data);
    return msg;
}

CommsChannelDataContainerMessage ChannelFixture::read() {
    CommsChannelDataContainerMessage msg;
    EXPECT_TRUE(m_channel->readMessage(msg));
    return msg;
}

void ChannelFixture::answer(CommsChannelDataContainerMessage& msg, const std::string& data) {
    m_channel->answerSink()->answer(
        {true, msg.requestId(), msg.sourceChannel(), msg.callbackChannel(), data});
}

void ChannelFixture::expectService(ZmqCaller& caller, long id) {
    auto msg = request(id);
    ASSERT_TRUE(caller.send(msg, kPatience));
    auto received = read();
    ASSERT_EQ(received.requestId(), id);
    answer(received, "served");
    const auto answered = caller.receive(kPatience);
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered->requestId, id) << answered->data;
    EXPECT_EQ(answered->data, "served");
}

} // namespace mirel
