#pragma once

#include "channels/ServiceChannel.h"
#include "runtime/values/Answer.h"

#include <functional>
#include <memory>

namespace mirel {

class MessageQueue;

/// A channel inside one process: the executor reads what the program puts into a `MessageQueue`,
/// and answers go to a function of the program.
class QueueChannel : public ServiceChannel {
public:
    /// Called on the thread that answers, possibly by several at once. Must not throw.
    using OnAnswer = std::function<void(const Answer&)>;

    QueueChannel(std::shared_ptr<MessageQueue> queue, OnAnswer onAnswer);

    /// As `close`. Answers given later are still delivered: `onAnswer` must stay callable for as
    /// long as the service may answer.
    ~QueueChannel() override;

    std::string url() const override;

private:
    bool readNext(CommsChannelDataContainerMessage& msg) override;

    /// Closes the queue. Requests that were not read are answered with a failure.
    void closeTransport() override;

    const std::shared_ptr<MessageQueue> m_queue;
    const std::shared_ptr<AnswerSink> m_answers;
};

} // namespace mirel
