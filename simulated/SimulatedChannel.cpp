#include "simulated/SimulatedChannel.h"

#include "runtime/values/MessageRules.h"
#include "simulated/Scheduler.h"
#include "simulated/Simulation.h"

#include <utility>

namespace mirel::simulated {

namespace {

bool canBeRead(const void* argument) {
    const auto* const traffic = static_cast<const Traffic*>(argument);
    return traffic->closed || !traffic->unread.empty();
}

} // namespace

void Traffic::answer(Answer answer) {
    point(&answers, "answer");
    answers.push_back(std::move(answer));
}

void Traffic::send(CommsChannelDataContainerMessage message) {
    point(this, "send");
    unread.push_back(std::move(message));
}

SimulatedChannel::SimulatedChannel(std::shared_ptr<Traffic> traffic)
    : m_traffic(std::move(traffic)) {}

SimulatedChannel::~SimulatedChannel() { ++m_traffic->deleted; }

bool SimulatedChannel::readMessage(CommsChannelDataContainerMessage& msg) {
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler)
        scheduler->perform(
            {"readMessage", m_traffic.get(), Access::write, &canBeRead, m_traffic.get()});
    if (m_traffic->closed || m_traffic->unread.empty())
        return false;
    msg = std::move(m_traffic->unread.front());
    m_traffic->unread.pop_front();
    return true;
}

void SimulatedChannel::close() {
    if (running())
        point(m_traffic.get(), "close");
    m_traffic->closed = true;
    for (auto& message : std::exchange(m_traffic->unread, {}))
        if (isInvokerRequest(message))
            m_traffic->answer({false, message.requestId(), message.sourceChannel(),
                               message.callbackChannel(),
                               "the service stopped before the request was read"});
}

std::shared_ptr<AnswerSink> SimulatedChannel::answerSink() { return m_traffic; }

} // namespace mirel::simulated
