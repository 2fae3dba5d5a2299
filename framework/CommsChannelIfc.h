#pragma once

#include <memory>

class CommsChannelDataContainerMessage;

namespace mirel {
class AnswerSink;
}

/// The inbound channel of one service.
class CommsChannelIfc {
public:
    virtual ~CommsChannelIfc() = default;

    /// Blocks until the next message is in `msg` (true) or the channel will deliver no more
    /// (false, and false ever after). Called by the executor's thread only.
    virtual bool readMessage(CommsChannelDataContainerMessage& msg) = 0;

    /// Ends reading: a pending and every later `readMessage` returns false. Any thread; repeatable.
    virtual void close() = 0;

    /// Where responses to this channel's requests go; null when it has no way back. What is
    /// returned may be used after the channel has been destroyed and then drops what it is given.
    virtual std::shared_ptr<mirel::AnswerSink> answerSink();
};
