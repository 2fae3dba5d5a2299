#include "call/Exchange.h"

#include "runtime/values/MessageRules.h"

#include <algorithm>
#include <utility>

namespace mirel {

namespace {

using std::chrono::milliseconds;

/// What an envelope needs at most beside its texts and data.
constexpr std::size_t kEnvelope = 120;

// Between attempts while no answer comes that would tell of room.
constexpr milliseconds kFirstPause{10};
constexpr milliseconds kLongestPause{500};

std::size_t sizeOf(CommsChannelDataContainerMessage& msg) {
    return kEnvelope + msg.getData().size() + msg.sourceChannel().size() + msg.channel().size() +
           msg.protocol().size() + msg.interface().size();
}

/// Whether one more fits; the first always does, and 0 is no limit.
bool fits(std::size_t used, std::size_t more, std::size_t limit) {
    return limit == 0 || used == 0 || used + more <= limit;
}

/// One more on the way for each time that as many as the limit have been answered.
void raise(double& limit) { limit += 1 / limit; }

} // namespace

Exchange::Exchange(Caller& caller, std::size_t window, milliseconds deadline, Listener& listener)
    : m_caller(caller),
      m_share(caller.share()),
      m_window(window),
      m_deadline(deadline),
      m_listener(listener),
      m_pause(kFirstPause) {}

void Exchange::send(CommsChannelDataContainerMessage msg) {
    const std::size_t bytes = sizeOf(msg);
    Sources::value_type& source = *m_sources.try_emplace(msg.sourceChannel()).first;
    while (!hasRoom(source, bytes))
        waitForAnswers();
    msg.setRequestId(++m_lastId);
    if (!transmit(msg)) {
        ++m_outcome.unanswered;
        m_listener.unanswered(source.first);
    } else if (isInvokerRequest(msg)) {
        if (source.second.bytes == 0)
            ++m_busySources;
        m_waiting.emplace(m_lastId, Request{std::move(msg), bytes, &source, Clock::now()});
        source.second.bytes += bytes;
        m_bytes += bytes;
        ++source.second.onWay;
        ++m_onWay;
    } else {
        m_listener.sent(source.first);
    }
    takeAnswers(milliseconds(0));
}

bool Exchange::transmit(CommsChannelDataContainerMessage& msg) {
    m_abandoned = m_abandoned || !m_caller.send(msg, m_deadline);
    return !m_abandoned;
}

bool Exchange::hasRoom(const Sources::value_type& entry, std::size_t bytes) const {
    const Source& source = entry.second;
    const std::size_t waitingOfSource = source.onWay + source.refused.size();
    return m_waiting.size() < m_window && source.refused.empty() &&
           static_cast<double>(source.onWay) < source.limit &&
           static_cast<double>(m_onWay) < m_limit &&
           fits(m_waiting.size(), 1, m_share.all.requests) &&
           fits(m_bytes, bytes, m_share.all.bytes) &&
           fits(waitingOfSource, 1, m_share.source.requests) &&
           fits(source.bytes, bytes, m_share.source.bytes) &&
           (waitingOfSource > 0 || fits(m_busySources, 1, m_share.sources)) &&
           fits(m_waiting.size() * m_largestAnswer, m_largestAnswer, m_share.answerBytes);
}

void Exchange::finish() {
    while (!m_waiting.empty())
        waitForAnswers();
}

void Exchange::waitForAnswers() {
    if (m_waiting.empty())
        return;
    auto until = m_waiting.begin()->second.sent + m_deadline;
    if (!m_held.empty())
        until = std::min(until, m_nextTry);
    const auto left = until - Clock::now();
    takeAnswers(std::chrono::ceil<milliseconds>(std::max(left, Clock::duration::zero())));
}

void Exchange::takeAnswers(milliseconds patience) {
    while (const std::optional<Answer> answer = m_caller.receive(patience)) {
        take(*answer);
        patience = milliseconds(0);
    }
    m_outcome.skipped = m_caller.skipped();
    // Only now: an answer may have waited here while we were sending.
    giveUpLateOnes();
    sendRefused();
}

void Exchange::take(const Answer& answer) {
    const auto request = m_waiting.find(answer.requestId);
    if (request == m_waiting.end() || request->second.refused) {
        ++m_outcome.unexpected;
        return;
    }
    if (answer.refusal != 0) {
        refused(request, answer);
        return;
    }
    Source& source = request->second.source->second;
    const Clock::duration latency = Clock::now() - request->second.sent;
    if (answer.requestId < source.lastAnswered)
        ++m_outcome.outOfOrder;
    source.lastAnswered = std::max(source.lastAnswered, answer.requestId);
    m_largestAnswer = std::max(m_largestAnswer, answer.data.size());
    raise(source.limit);
    raise(m_limit);
    m_mayTryAgain = true;
    m_pause = kFirstPause;
    if (!answer.succeeded)
        ++m_outcome.failed;
    const MirelThreadPriority priority = request->second.msg.priority();
    forget(request);
    m_listener.answered(answer, priority, latency);
}

void Exchange::refused(Requests::iterator request, const Answer& answer) {
    Source& source = request->second.source->second;
    request->second.refused = true;
    source.refused.insert(request->first);
    m_held.insert(request->second.source);
    m_lastRefusal = answer.data;
    --source.onWay;
    --m_onWay;
    if (source.onWay > 0)
        source.limit = static_cast<double>(source.onWay);
    else
        m_limit = static_cast<double>(std::max<std::size_t>(m_onWay, 1));
    if (m_onWay == 0) { // no answer will come to tell of room
        m_nextTry = Clock::now() + m_pause;
        m_pause = std::min(2 * m_pause, kLongestPause);
    } else {
        m_nextTry = Clock::now() + kLongestPause;
    }
}

void Exchange::sendRefused() {
    if (m_held.empty() || (!std::exchange(m_mayTryAgain, false) && Clock::now() < m_nextTry))
        return;
    m_nextTry = Clock::now() + kLongestPause;
    std::erase_if(m_held, [this](Sources::value_type* held) {
        Source& source = held->second;
        if (source.refused.empty() || laterOneOnWay(*held))
            return source.refused.empty();
        source.limit = std::max(source.limit, 1.0);
        while (!source.refused.empty() && static_cast<double>(source.onWay) < source.limit &&
               static_cast<double>(m_onWay) < m_limit) {
            Request& request = m_waiting.at(*source.refused.begin());
            if (!transmit(request.msg))
                return false; // given up with the others at its deadline
            source.refused.erase(source.refused.begin());
            request.refused = false;
            ++source.onWay;
            ++m_onWay;
            ++m_outcome.sentAgain;
        }
        return source.refused.empty();
    });
}

/// The service refuses what was sent behind a refused request; all of that has to come back first.
bool Exchange::laterOneOnWay(const Sources::value_type& source) const {
    return std::any_of(m_waiting.upper_bound(*source.second.refused.begin()), m_waiting.end(),
                       [&](const auto& waiting) {
                           return waiting.second.source == &source && !waiting.second.refused;
                       });
}

void Exchange::giveUpLateOnes() {
    const Clock::time_point now = Clock::now();
    while (!m_waiting.empty() && m_waiting.begin()->second.sent + m_deadline <= now) {
        giveUp(m_waiting.begin());
        m_abandoned = m_abandoned || !m_caller.connected();
    }
}

void Exchange::giveUp(Requests::iterator request) {
    Request& late = request->second;
    const std::string& source = late.source->first;
    if (late.refused) {
        const Answer last{false, request->first, source, {}, m_lastRefusal};
        const MirelThreadPriority priority = late.msg.priority();
        const auto latency = Clock::now() - late.sent;
        ++m_outcome.failed;
        forget(request);
        m_listener.answered(last, priority, latency);
    } else {
        ++m_outcome.unanswered;
        forget(request);
        m_listener.unanswered(source);
    }
}

void Exchange::forget(Requests::iterator request) {
    Source& source = request->second.source->second;
    if (request->second.refused) {
        source.refused.erase(request->first);
    } else {
        --source.onWay;
        --m_onWay;
    }
    source.bytes -= request->second.bytes;
    m_bytes -= request->second.bytes;
    if (source.bytes == 0)
        --m_busySources;
    m_waiting.erase(request);
}

} // namespace mirel
