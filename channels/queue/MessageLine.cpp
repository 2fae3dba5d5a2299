#include "channels/queue/MessageLine.h"

#include <algorithm>

namespace mirel {

namespace {

constexpr std::size_t kManySenders = 1000; ///< more than usual, but for those that are idle

}

void MessageLine::push(CommsChannelDataContainerMessage&& msg) {
    if (!m_senderOf) {
        m_arrived.push_back(std::move(msg));
        return;
    }
    const Turn turn = nextTurnOf(m_senderOf(msg.callbackChannel()));
    m_inTurn.emplace_hint(m_inTurn.end(), Place(turn, ++m_arrivals), std::move(msg));
}

MessageLine::Turn MessageLine::nextTurnOf(std::string_view sender) {
    const auto last = m_lastTurns.find(sender);
    if (last != m_lastTurns.end())
        return last->second = std::max(last->second, m_turn) + 1;
    if (m_lastTurns.size() >= kManySenders + m_inTurn.size())
        std::erase_if(m_lastTurns, [this](const auto& entry) { return entry.second <= m_turn; });
    m_lastTurns.emplace(sender, m_turn + 1);
    return m_turn + 1;
}

CommsChannelDataContainerMessage MessageLine::pop() {
    if (!m_senderOf) {
        CommsChannelDataContainerMessage msg = std::move(m_arrived.front());
        m_arrived.pop_front();
        return msg;
    }
    const auto first = m_inTurn.begin();
    m_turn = first->first.first;
    CommsChannelDataContainerMessage msg = std::move(first->second);
    m_inTurn.erase(first);
    return msg;
}

std::deque<CommsChannelDataContainerMessage> MessageLine::takeAll() {
    std::deque<CommsChannelDataContainerMessage> all;
    while (size() > 0)
        all.push_back(pop());
    return all;
}

} // namespace mirel
