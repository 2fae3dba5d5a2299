#include "channels/DeliveredRequests.h"

#include "channels/ChannelCounters.h"
#include "channels/FlowLimit.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "runtime/values/MessageRules.h"

#include <utility>

namespace mirel {

namespace {

struct RequestEnd {
    FlowLimit& limit;
    ~RequestEnd() { limit.requestDone(); }
};

} // namespace

DeliveredRequests::DeliveredRequests(std::shared_ptr<AnswerSink> transport,
                                     std::shared_ptr<ChannelCounters> counters)
    : m_transport(std::move(transport)),
      m_counters(std::move(counters)),
      m_limit(std::make_shared<FlowLimit>()) {}

void DeliveredRequests::limitBy(std::shared_ptr<FlowLimit> limit) { m_limit = std::move(limit); }

void DeliveredRequests::delivered(CommsChannelDataContainerMessage& msg) {
    if (!isInvokerRequest(msg)) {
        ++(msg.msgType() == kTimerEvent ? m_counters->timerEvents : m_counters->legacyMessages);
        return;
    }
    ++m_counters->requests;
    m_last.requestId = msg.requestId();
    m_last.sourceChannel = msg.sourceChannel();
    m_last.callbackChannel = msg.callbackChannel();
    m_last.interface = msg.interface();
    m_last.protocol = msg.protocol();
    m_isUnaccepted = true;
}

void DeliveredRequests::refuseUnaccepted(std::string why) {
    m_isUnaccepted = false;
    ++m_counters->unserved;
    m_transport->answer(
        {false, m_last.requestId, m_last.sourceChannel, m_last.callbackChannel, std::move(why)});
}

void DeliveredRequests::accept(long requestId, const std::string& callbackChannel) noexcept {
    if (m_last.requestId == requestId && m_last.callbackChannel == callbackChannel)
        m_isUnaccepted = false;
    m_limit->requestAccepted();
    m_transport->accept(requestId, callbackChannel);
}

bool DeliveredRequests::claim(const std::string& callbackChannel) {
    const bool ours = m_transport->claim(callbackChannel);
    if (!ours)
        m_limit->requestDone();
    return ours;
}

void DeliveredRequests::answer(Answer answer) {
    auto& count = answer.succeeded ? m_counters->done : m_counters->failed;
    m_transport->answer(std::move(answer));
    ++count;
    m_limit->requestDone();
}

bool DeliveredRequests::abandon(Answer failure) {
    const RequestEnd end{*m_limit}; // nobody asks for it once more, also if its caller is not told
    const bool told = m_transport->abandon(std::move(failure));
    if (told)
        ++m_counters->failed;
    return told;
}

} // namespace mirel
