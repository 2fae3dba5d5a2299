#include "call/Exchange.h"

#include "framework/CommsChannelDataContainerMessage.h"
#include "runtime/values/MessageRules.h"

#include <algorithm>

namespace mirel {

using std::chrono::milliseconds;

Exchange::Exchange(Caller& caller, std::size_t window, milliseconds deadline, Listener& listener)
    : m_caller(caller),
      m_window(window),
      m_deadline(deadline),
      m_listener(listener) {}

void Exchange::send(CommsChannelDataContainerMessage& msg) {
    while (m_waiting.size() >= m_window)
        waitForAnswers();
    msg.setRequestId(++m_lastId);
    m_abandoned = m_abandoned || !m_caller.send(msg, m_deadline);
    if (m_abandoned) {
        ++m_outcome.unanswered;
        m_listener.unanswered(msg.sourceChannel());
    } else if (isInvokerRequest(msg)) {
        m_waiting.emplace(m_lastId, Request{msg.sourceChannel(), msg.priority(), Clock::now()});
    } else {
        m_listener.sent(msg.sourceChannel());
    }
    takeAnswers(milliseconds(0));
}

void Exchange::finish() {
    while (!m_waiting.empty())
        waitForAnswers();
}

void Exchange::waitForAnswers() {
    const auto left = m_waiting.begin()->second.sent + m_deadline - Clock::now();
    takeAnswers(std::chrono::ceil<milliseconds>(std::max(left, Clock::duration::zero())));
}

void Exchange::takeAnswers(milliseconds patience) {
    while (const std::optional<Answer> answer = m_caller.receive(patience)) {
        take(*answer);
        patience = milliseconds(0);
    }
    // Only now: an answer may have waited here while we were sending.
    giveUpLateOnes();
}

void Exchange::take(const Answer& answer) {
    const auto request = m_waiting.find(answer.requestId);
    if (request == m_waiting.end()) {
        ++m_outcome.unexpected;
        return;
    }
    const Clock::duration latency = Clock::now() - request->second.sent;
    long& last = m_lastAnswered[request->second.source];
    if (answer.requestId < last)
        ++m_outcome.outOfOrder;
    last = std::max(last, answer.requestId);
    if (!answer.succeeded)
        ++m_outcome.failed;
    const MirelThreadPriority priority = request->second.priority;
    m_waiting.erase(request);
    m_listener.answered(answer, priority, latency);
}

void Exchange::giveUpLateOnes() {
    const Clock::time_point now = Clock::now();
    while (!m_waiting.empty() && m_waiting.begin()->second.sent + m_deadline <= now) {
        ++m_outcome.unanswered;
        m_listener.unanswered(m_waiting.begin()->second.source);
        m_waiting.erase(m_waiting.begin());
        m_abandoned = m_abandoned || !m_caller.connected();
    }
}

} // namespace mirel
