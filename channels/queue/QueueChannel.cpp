#include "channels/queue/QueueChannel.h"

#include "channels/ChannelCounters.h"
#include "channels/queue/MessageQueue.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "runtime/values/MessageRules.h"

#include <utility>

namespace mirel {

namespace {

constexpr const char* kUrl = "a queue of this process";

/// Has no state that changes, so that it can be used by any number of threads and for as long as a
/// response wants it.
class FunctionSink : public AnswerSink {
public:
    FunctionSink(QueueChannel::OnAnswer onAnswer, std::shared_ptr<ChannelCounters> counters)
        : m_onAnswer(std::move(onAnswer)),
          m_counters(std::move(counters)) {}

    void answer(Answer answer) override {
        ++m_counters->answersSent;
        if (m_onAnswer)
            m_onAnswer(answer);
    }

private:
    const QueueChannel::OnAnswer m_onAnswer;
    const std::shared_ptr<ChannelCounters> m_counters;
};

} // namespace

QueueChannel::QueueChannel(std::shared_ptr<MessageQueue> queue, OnAnswer onAnswer)
    : ServiceChannel("QueueChannel", kUrl),
      m_queue(std::move(queue)),
      m_answers(std::make_shared<FunctionSink>(std::move(onAnswer), m_counters)) {
    answerBy(m_answers);
}

QueueChannel::~QueueChannel() {
    failLastRead();
    close();
}

std::string QueueChannel::url() const { return kUrl; }

bool QueueChannel::readNext(CommsChannelDataContainerMessage& msg) {
    const bool read = m_queue->read(msg);
    if (read)
        ++m_counters->received;
    return read;
}

void QueueChannel::closeTransport() {
    m_queue->close();
    // Closed, the queue takes no more and gives nothing to the reader: these are the unread ones.
    for (CommsChannelDataContainerMessage& msg : m_queue->takeRest()) {
        ++m_counters->received;
        if (isInvokerRequest(msg))
            m_answers->answer({false, msg.requestId(), msg.sourceChannel(), msg.callbackChannel(),
                               "the service stopped before the request was read"});
    }
}

} // namespace mirel
