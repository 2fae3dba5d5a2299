#include "channels/ServiceChannel.h"

#include "channels/ChannelCounters.h"
#include "channels/DeliveredRequests.h"
#include "channels/FlowLimit.h"

#include <utility>

namespace mirel {

namespace {

std::string whyUnservedAtAll(const std::string& interface, const std::string& protocol) {
    return "the service does not offer interface \"" + interface +
           "\", or has no handler for its protocol \"" + protocol + "\"";
}

} // namespace

ServiceChannel::ServiceChannel(const char* component, const std::string& url)
    : m_counters(std::make_shared<ChannelCounters>(component, url)),
      m_whyUnserved(&whyUnservedAtAll) {}

ServiceChannel::~ServiceChannel() = default;

void ServiceChannel::answerBy(std::shared_ptr<AnswerSink> transport) {
    m_requests = std::make_shared<DeliveredRequests>(std::move(transport), m_counters);
}

void ServiceChannel::limitBy(std::shared_ptr<FlowLimit> limit) {
    m_requests->limitBy(std::move(limit));
}

void ServiceChannel::explainBy(WhyUnserved whyUnserved) {
    m_whyUnserved = whyUnserved ? std::move(whyUnserved) : &whyUnservedAtAll;
}

bool ServiceChannel::readMessage(CommsChannelDataContainerMessage& msg) {
    if (const DeliveredRequests::Unaccepted* const last = m_requests->unaccepted())
        m_requests->refuseUnaccepted(m_whyUnserved(last->interface, last->protocol));
    m_requests->limit().waitForRoom(m_closed); // closed, it lets through, and nothing is read below
    if (!readNext(msg))
        return false;
    m_requests->delivered(msg);
    return true;
}

void ServiceChannel::failLastRead() {
    if (m_requests->unaccepted())
        m_requests->refuseUnaccepted("the service failed before the request could run");
}

void ServiceChannel::close() {
    closeTransport();
    m_closed = true;
    m_requests->limit().wakeAll();
}

std::shared_ptr<AnswerSink> ServiceChannel::answerSink() { return m_requests; }

std::shared_ptr<const ChannelCounters> ServiceChannel::counters() const { return m_counters; }

} // namespace mirel
