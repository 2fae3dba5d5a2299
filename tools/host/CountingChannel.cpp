#include "host/CountingChannel.h"

#include "framework/CommsChannelDataContainerMessage.h"
#include "host/FlowLimit.h"
#include "host/Tally.h"
#include "runtime/values/AnswerSink.h"
#include "runtime/values/MessageRules.h"

#include <utility>

namespace mirel {

namespace {

class CountingSink : public AnswerSink {
public:
    CountingSink(std::shared_ptr<AnswerSink> sink, std::shared_ptr<Tally> tally,
                 std::shared_ptr<FlowLimit> flow)
        : m_sink(std::move(sink)),
          m_tally(std::move(tally)),
          m_flow(std::move(flow)) {}

    void answer(Answer answer) override {
        ++(answer.succeeded ? m_tally->done : m_tally->failed);
        m_sink->answer(std::move(answer));
        m_flow->requestAnswered();
    }

    bool unanswered(Answer failure) override {
        const bool told = m_sink->unanswered(std::move(failure));
        if (told)
            ++m_tally->failed;
        m_flow->requestAnswered();
        return told;
    }

    bool mayRun(const std::string& callbackChannel) override {
        const bool may = m_sink->mayRun(callbackChannel);
        if (!may)
            m_flow->requestAnswered();
        return may;
    }

private:
    const std::shared_ptr<AnswerSink> m_sink;
    const std::shared_ptr<Tally> m_tally;
    const std::shared_ptr<FlowLimit> m_flow;
};

std::atomic<unsigned long>& countOf(CommsChannelDataContainerMessage& msg, Tally& tally) {
    if (msg.msgType() == kTimerEvent)
        return tally.timerEvents;
    return isInvokerRequest(msg) ? tally.requests : tally.legacyMessages;
}

} // namespace

CountingChannel::CountingChannel(std::unique_ptr<CommsChannelIfc> channel,
                                 std::shared_ptr<Tally> tally, std::shared_ptr<FlowLimit> flow)
    : m_tally(std::move(tally)),
      m_flow(std::move(flow)),
      m_channel(std::move(channel)) {}

bool CountingChannel::readMessage(CommsChannelDataContainerMessage& msg) {
    m_flow->waitForRoom(); // closed, it lets through, and the channel is closed before it
    if (!m_channel->readMessage(msg))
        return false;
    ++countOf(msg, *m_tally);
    return true;
}

void CountingChannel::close() {
    m_channel->close();
    m_flow->close();
}

/// Asked for once by the response of each request that is accepted, as the channel within expects it.
std::shared_ptr<AnswerSink> CountingChannel::answerSink() {
    m_flow->requestAccepted();
    return std::make_shared<CountingSink>(m_channel->answerSink(), m_tally, m_flow);
}

} // namespace mirel
