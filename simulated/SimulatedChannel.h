#pragma once

#include "framework/CommsChannelDataContainerMessage.h"
#include "runtime/values/Answer.h"
#include "runtime/values/AnsweringChannel.h"

#include <deque>
#include <memory>
#include <vector>

namespace mirel::simulated {

/// What goes through a channel of a run, in both directions. It may outlive the channel.
struct Traffic : AnswerSink {
    void answer(Answer answer) override; ///< a step, as `send` is

    /// Appends a message for the channel's reader. Any thread of the run.
    void send(CommsChannelDataContainerMessage message);

    std::deque<CommsChannelDataContainerMessage> unread;
    std::vector<Answer> answers;
    bool closed = false;
    int deleted = 0; ///< channels on this traffic that have been destroyed
};

/// The channel of an executor in a simulated run. Requests that are unread when it is closed are
/// answered with a failure.
class SimulatedChannel : public AnsweringChannel {
public:
    explicit SimulatedChannel(std::shared_ptr<Traffic> traffic);
    ~SimulatedChannel() override;

    bool readMessage(CommsChannelDataContainerMessage& msg) override;
    void close() override;
    std::shared_ptr<AnswerSink> answerSink() override;

private:
    const std::shared_ptr<Traffic> m_traffic;
};

} // namespace mirel::simulated
