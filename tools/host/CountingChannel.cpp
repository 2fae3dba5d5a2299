#include "host/CountingChannel.h"

#include "framework/CommsChannelDataContainerMessage.h"
#include "host/Tally.h"
#include "standalone/AnswerSink.h"
#include "standalone/MessageRules.h"

#include <utility>

namespace mirel {

namespace {

class CountingSink : public AnswerSink {
public:
    CountingSink(std::shared_ptr<AnswerSink> sink, std::shared_ptr<Tally> tally)
        : m_sink(std::move(sink)),
          m_tally(std::move(tally)) {}

    void answer(Answer answer) override {
        ++(answer.succeeded ? m_tally->done : m_tally->failed);
        m_sink->answer(std::move(answer));
    }

private:
    const std::shared_ptr<AnswerSink> m_sink;
    const std::shared_ptr<Tally> m_tally;
};

std::atomic<unsigned long>& countOf(CommsChannelDataContainerMessage& msg, Tally& tally) {
    if (msg.msgType() == kTimerEvent)
        return tally.timerEvents;
    return isInvokerRequest(msg) ? tally.requests : tally.legacyMessages;
}

} // namespace

CountingChannel::CountingChannel(std::unique_ptr<CommsChannelIfc> channel,
                                 std::shared_ptr<Tally> tally)
    : m_tally(std::move(tally)),
      m_channel(std::move(channel)),
      m_answers(std::make_shared<CountingSink>(m_channel->answerSink(), m_tally)) {}

bool CountingChannel::readMessage(CommsChannelDataContainerMessage& msg) {
    if (!m_channel->readMessage(msg))
        return false;
    ++countOf(msg, *m_tally);
    return true;
}

void CountingChannel::close() { m_channel->close(); }

std::shared_ptr<AnswerSink> CountingChannel::answerSink() { return m_answers; }

} // namespace mirel
