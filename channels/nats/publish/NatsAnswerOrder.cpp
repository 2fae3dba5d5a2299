#include "channels/nats/publish/NatsAnswerOrder.h"

#include <algorithm>
#include <utility>

namespace mirel {

namespace {

constexpr std::chrono::seconds kPatience{4}; ///< several times as long as until a host repeats it

} // namespace

void NatsAnswerOrder::sent(const std::string& source, long requestId) {
    m_sources[source].unanswered.push_back(requestId);
    const bool any = m_first <= m_last;
    m_first = any ? std::min(m_first, requestId) : requestId;
    m_last = any ? std::max(m_last, requestId) : requestId;
}

bool NatsAnswerOrder::came(Answer answer, Time now) {
    const bool possible = answer.requestId >= m_first && answer.requestId <= m_last;
    const auto found = m_sources.find(answer.sourceChannel);
    if (found == m_sources.end())
        return possible;
    Source& source = found->second;
    if (std::find(source.unanswered.begin(), source.unanswered.end(), answer.requestId) ==
        source.unanswered.end())
        return possible;
    const long id = answer.requestId;
    if (source.waiting.try_emplace(id, Waiting{std::move(answer), now + kPatience}).second)
        ++m_waiting;
    release(source);
    if (source.unanswered.empty())
        m_sources.erase(found);
    return true;
}

/// What is answered at the front is ready.
void NatsAnswerOrder::release(Source& source) {
    while (!source.unanswered.empty()) {
        const auto first = source.waiting.find(source.unanswered.front());
        if (first == source.waiting.end())
            return;
        m_ready.push_back(std::move(first->second.answer));
        source.waiting.erase(first);
        --m_waiting;
        source.unanswered.pop_front();
    }
}

std::optional<Answer> NatsAnswerOrder::next(Time now) {
    if (m_ready.empty() && m_waiting > 0) {
        for (auto& [name, source] : m_sources) {
            const bool late =
                std::any_of(source.waiting.begin(), source.waiting.end(),
                            [now](const auto& entry) { return entry.second.until <= now; });
            // Those in front of the first that waits are given up; they may still be answered late,
            // as an answer to nothing.
            while (late && !source.unanswered.empty() &&
                   !source.waiting.contains(source.unanswered.front()))
                source.unanswered.pop_front();
            if (late)
                release(source);
        }
        std::erase_if(m_sources, [](const auto& entry) { return entry.second.unanswered.empty(); });
    }
    if (m_ready.empty())
        return std::nullopt;
    std::optional<Answer> result = std::move(m_ready.front());
    m_ready.pop_front();
    return result;
}

std::optional<NatsAnswerOrder::Time> NatsAnswerOrder::nextChange() const {
    std::optional<Time> result;
    if (m_waiting == 0)
        return result;
    for (const auto& [name, source] : m_sources)
        for (const auto& [id, waiting] : source.waiting)
            result = std::min(result.value_or(waiting.until), waiting.until);
    return result;
}

} // namespace mirel
