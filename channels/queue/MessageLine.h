#pragma once

#include "framework/CommsChannelDataContainerMessage.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace mirel {

/// Messages in the order in which they are read: that of their arrival, or, where it is known who
/// sent them, turn by turn: one of each sender, then the next of each. So who sends little never
/// stands behind more than one message of who sends much (fair queueing: J. Nagle, RFC 970, 1985).
/// Those of one sender keep their order. Used by one thread at a time.
class MessageLine {
public:
    /// The sender's name, as a part of the callback channel that is given.
    using SenderOf = std::string_view (*)(const std::string& callbackChannel);

    /// Null: all come from one.
    explicit MessageLine(SenderOf senderOf = nullptr) : m_senderOf(senderOf) {}

    /// Has not taken the message when it throws.
    void push(CommsChannelDataContainerMessage&& msg);

    /// There must be one.
    CommsChannelDataContainerMessage pop();

    std::size_t size() const { return m_arrived.size() + m_inTurn.size(); }

    /// All of them, in their order; leaves none.
    std::deque<CommsChannelDataContainerMessage> takeAll();

private:
    using Turn = std::uint64_t;
    using Place = std::pair<Turn, std::uint64_t>; ///< the second counts arrivals

    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;
    };

    /// The first turn in which this sender is not in the line yet.
    Turn nextTurnOf(std::string_view sender);

    const SenderOf m_senderOf;
    std::deque<CommsChannelDataContainerMessage> m_arrived; ///< without senders

    std::map<Place, CommsChannelDataContainerMessage> m_inTurn;
    Turn m_turn = 0; ///< of the message that was taken last
    std::uint64_t m_arrivals = 0;
    std::unordered_map<std::string, Turn, Hash, std::equal_to<>>
        m_lastTurns; ///< before m_turn: idle
};

} // namespace mirel
